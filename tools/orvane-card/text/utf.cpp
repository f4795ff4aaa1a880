#include "text/utf.h"

#include <cstdint>

namespace orvane::tool {
namespace {

static_assert(sizeof(wchar_t) == 2, "wide texts are UTF-16");

void append(std::string& text, std::uint32_t point) {
  const auto continuation = [point](int shift) { return static_cast<char>(0x80 | (point >> shift & 0x3F)); };
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text += {static_cast<char>(0xC0 | point >> 6), continuation(0)};
  } else if (point < 0x10000) {
    text += {static_cast<char>(0xE0 | point >> 12), continuation(6), continuation(0)};
  } else {
    text += {static_cast<char>(0xF0 | point >> 18), continuation(12), continuation(6), continuation(0)};
  }
}

}  // namespace

std::string toUtf8(std::wstring_view text) {
  constexpr std::uint32_t kReplacement = 0xFFFD;
  std::string utf8;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::uint32_t unit = text[i];
    const std::uint32_t following = i + 1 < text.size() ? text[i + 1] : 0U;
    const bool isHigh = (unit & 0xFC00) == 0xD800;
    if (isHigh && (following & 0xFC00) == 0xDC00) {
      append(utf8, 0x10000 + ((unit & 0x3FF) << 10 | (following & 0x3FF)));
      ++i;
    } else {
      append(utf8, (unit & 0xF800) == 0xD800 ? kReplacement : unit);
    }
  }
  return utf8;
}

std::string toUtf8(ByteView text) {
  std::wstring wide;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) wide += static_cast<wchar_t>(readLittleEndian16(text, i));
  return toUtf8(wide);
}

}  // namespace orvane::tool
