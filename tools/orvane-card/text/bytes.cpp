#include "text/bytes.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

#include "support/hex_text.h"
#include "tool_error.h"

namespace orvane::tool {

std::string toHex(ByteView data, std::string_view separator) {
  std::string text;
  for (const std::uint8_t& byte : data) {
    if (!text.empty()) text += separator;
    text += hexText(&byte, 1);
  }
  return text;
}

std::string hexNumber(std::uint32_t number, std::size_t digits) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
                                static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
  return hexText(bytes, sizeof bytes).substr(8 - digits);
}

bool isHexDigit(char unit) { return std::isxdigit(static_cast<unsigned char>(unit)) != 0; }

Bytes fromHex(std::string_view text) {
  const auto refused = [text](const char* why) {
    return ToolError(ExitCode::kUsage, std::string(why) + ": \"" + std::string(text) + "\"");
  };
  Bytes data;
  for (std::string_view rest = text; !rest.empty();) {
    if (rest.starts_with(' ') || rest.starts_with(':') || rest.starts_with('-')) {
      rest.remove_prefix(1);
      continue;
    }
    const std::string_view pair = rest.substr(0, 2);
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
    if (error != std::errc() || end != pair.data() + pair.size()) throw refused("not a hexadecimal number");
    if (pair.size() < 2) throw refused("odd number of hexadecimal digits");
    data.push_back(byte);
    rest.remove_prefix(2);
  }
  return data;
}

std::string hexDump(ByteView data) {
  constexpr std::size_t kBytesPerLine = 16;
  std::string text;
  for (std::size_t offset = 0; offset < data.size(); offset += kBytesPerLine) {
    const ByteView line = data.subspan(offset, std::min(kBytesPerLine, data.size() - offset));
    text += hexNumber(static_cast<std::uint32_t>(offset), 8) + " ";
    for (std::size_t i = 0; i < kBytesPerLine; ++i) {
      text += i == kBytesPerLine / 2 ? "  " : " ";
      text += i < line.size() ? hexText(&line[i], 1) : "  ";
    }
    text += "  |" + printableAscii(line) + "|\n";
  }
  return text;
}

std::string printableAscii(ByteView data) {
  std::string text;
  for (const std::uint8_t byte : data) text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
  return text;
}

std::uint16_t readLittleEndian16(ByteView data, std::size_t offset) {
  if (offset > data.size() || data.size() - offset < 2) throw std::out_of_range("16-bit value past the end");
  return static_cast<std::uint16_t>(data[offset] | data[offset + 1] << 8);
}

std::uint32_t readLittleEndian32(ByteView data, std::size_t offset) {
  if (offset > data.size() || data.size() - offset < 4) throw std::out_of_range("32-bit value past the end");
  return static_cast<std::uint32_t>(readLittleEndian16(data, offset)) |
         static_cast<std::uint32_t>(readLittleEndian16(data, offset + 2)) << 16;
}

std::size_t byteOrderMarkSize(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  return text.starts_with(kMark) ? kMark.size() : 0;
}

ByteView withoutByteOrderMark(ByteView text) {
  return text.subspan(byteOrderMarkSize({reinterpret_cast<const char*>(text.data()), text.size()}));
}

Bytes reversed(ByteView data) { return {data.rbegin(), data.rend()}; }

}  // namespace orvane::tool
