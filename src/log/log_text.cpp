#include "log/log_text.h"

#include <charconv>

#include "support/hex_text.h"

namespace orvane {
namespace {

template <typename Number>
void appendDecimal(std::string& message, Number number) {
  char digits[24];
  const auto result = std::to_chars(digits, digits + sizeof(digits), number);
  message.append(digits, result.ptr);
}

}  // namespace

void LogPart::appendTo(std::string& message) const {
  switch (kind_) {
    case Kind::kText:
      message.append(static_cast<const char*>(data_), size_);
      break;
    case Kind::kWideText:
      for (const wchar_t unit : std::wstring_view(static_cast<const wchar_t*>(data_), size_)) {
        message.push_back(static_cast<char>(unit & 0xFF));
      }
      break;
    case Kind::kHexBytes:
      message.append(hexText(static_cast<const unsigned char*>(data_), size_));
      break;
    case Kind::kHex8: {
      const unsigned char bigEndian[] = {static_cast<unsigned char>(number_ >> 24),
                                         static_cast<unsigned char>(number_ >> 16),
                                         static_cast<unsigned char>(number_ >> 8), static_cast<unsigned char>(number_)};
      message.append(hexText(bigEndian, sizeof(bigEndian)));
      break;
    }
    case Kind::kUnsigned:
      appendDecimal(message, number_);
      break;
    case Kind::kSigned:
      appendDecimal(message, static_cast<std::int64_t>(number_));
      break;
  }
}

std::string joinText(std::span<const LogPart> parts) {
  std::string message;
  for (const LogPart& part : parts) part.appendTo(message);
  return message;
}

}  // namespace orvane
