// Small values that all tests are written with: lines, bytes, statuses, and the poison.
#ifndef ORVANE_TESTS_HARNESS_TEST_VALUES_H
#define ORVANE_TESTS_HARNESS_TEST_VALUES_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/card_module.h"

namespace orvane::test {

using Lines = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

// What a test puts wherever the minidriver might write, as a byte and as a number of 32 bits.
inline constexpr unsigned char kPoison = 0xA5;
inline constexpr DWORD kPoison32 = 0xA5A5A5A5;

// The status as entry points return it.
constexpr DWORD code(LONG status) { return static_cast<DWORD>(status); }

// Both, one after the other.
inline Lines concat(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Lines one after the other, each part one line or several.
template <typename... Parts>
Lines inOrder(const Parts&... parts) {
  Lines lines;
  const auto add = [&lines](const auto& part) {
    if constexpr (std::is_convertible_v<decltype(part), std::string>) {
      lines.emplace_back(part);
    } else {
      lines.insert(lines.end(), part.begin(), part.end());
    }
  };
  (add(parts), ...);
  return lines;
}

// The bytes of a plain record, padding included.
template <typename Value>
Bytes bytesOf(const Value& value) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(&value);
  return Bytes(first, first + sizeof(value));
}

// A plain record with every byte poisoned, padding included.
template <typename Value>
Value poisoned() {
  Value value;
  std::memset(&value, kPoison, sizeof(value));
  return value;
}

// The 32-bit words as bytes, least significant first.
inline Bytes words(const std::vector<std::uint32_t>& values) {
  Bytes bytes;
  for (const std::uint32_t value : values) {
    for (unsigned shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  }
  return bytes;
}

// The units of a text as bytes, without a terminating NUL unless the text has one.
inline Bytes wideBytes(std::wstring_view text) {
  Bytes bytes;
  for (const wchar_t unit : text) {
    bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>((unit >> 8) & 0xFF));
  }
  return bytes;
}

// A PIN as entry points take it: not zero-terminated, in memory that ends with it; without a value a null pointer.
class PinBytes {
 public:
  explicit PinBytes(const std::optional<std::string>& pin)
      : isNull_(!pin), bytes_(pin ? Bytes(pin->begin(), pin->end()) : Bytes()) {
    bytes_.reserve(1);
  }
  PBYTE data() { return isNull_ ? nullptr : bytes_.data(); }
  DWORD size() const { return static_cast<DWORD>(bytes_.size()); }

 private:
  bool isNull_;
  Bytes bytes_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_TEST_VALUES_H
