#include "text/utf.h"

#include <cstddef>
#include <cstdint>

namespace orvane::tool {
namespace {

static_assert(sizeof(wchar_t) == 2, "wide texts are UTF-16");

constexpr std::uint32_t kReplacement = 0xFFFD;

bool isHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void appendUtf8(std::string& out, std::uint32_t point) {
  const auto continuation = [point](int shift) { return static_cast<char>(0x80 | (point >> shift & 0x3F)); };
  if (point < 0x80) {
    out += static_cast<char>(point);
  } else if (point < 0x800) {
    out += {static_cast<char>(0xC0 | point >> 6), continuation(0)};
  } else if (point < 0x10000) {
    out += {static_cast<char>(0xE0 | point >> 12), continuation(6), continuation(0)};
  } else {
    out += {static_cast<char>(0xF0 | point >> 18), continuation(12), continuation(6), continuation(0)};
  }
}

void appendUtf16(std::wstring& out, std::uint32_t point) {
  if (point < 0x10000) {
    out += static_cast<wchar_t>(point);
  } else {
    out += static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10));
    out += static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
  }
}

struct Sequence {
  std::size_t length;  // 0: not well-formed
  std::uint32_t point;
};

Sequence decodeUtf8(std::string_view text) {
  const auto first = static_cast<std::uint8_t>(text[0]);
  if (first < 0x80) return {1, first};
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return {0, 0};
  std::uint32_t point = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto unit = static_cast<std::uint8_t>(text[i]);
    if ((unit & 0xC0) != 0x80) return {0, 0};
    point = point << 6 | (unit & 0x3FU);
  }
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool wellFormed = point >= kSmallest[length] && point < 0x110000 && (point < 0xD800 || point > 0xDFFF);
  return {wellFormed ? length : 0, point};
}

}  // namespace

std::string toUtf8(std::wstring_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t point = static_cast<std::uint16_t>(text[i]);
    if (isHighSurrogate(point) && i + 1 < text.size() && isLowSurrogate(static_cast<std::uint16_t>(text[i + 1]))) {
      point = 0x10000 + ((point - 0xD800) << 10) + (static_cast<std::uint16_t>(text[++i]) - 0xDC00U);
    } else if (isHighSurrogate(point) || isLowSurrogate(point)) {
      point = kReplacement;
    }
    appendUtf8(out, point);
  }
  return out;
}

std::wstring toWide(std::string_view text) {
  std::wstring out;
  while (!text.empty()) {
    const Sequence sequence = decodeUtf8(text);
    appendUtf16(out, sequence.length ? sequence.point : kReplacement);
    text.remove_prefix(sequence.length ? sequence.length : 1);
  }
  return out;
}

}  // namespace orvane::tool
