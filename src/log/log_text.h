// The pieces that log messages are put together from.
#ifndef ORVANE_LOG_LOG_TEXT_H
#define ORVANE_LOG_LOG_TEXT_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace orvane {

// Marks bytes to be written as upper-case hexadecimal digits, two a byte, without separators.
struct HexBytes {
  const unsigned char* bytes;
  std::size_t size;
};
inline HexBytes hexBytes(const unsigned char* bytes, std::size_t size) { return {bytes, size}; }

// Marks a 32-bit number to be written as eight upper-case hexadecimal digits.
struct Hex8 {
  std::uint32_t value;
};
inline Hex8 hex8(std::uint32_t value) { return {value}; }

// LogPart refers to one piece of a message; it owns nothing and lives only for the duration of a log call. Integers
// print in decimal (8-bit ones as numbers, bool as 1 or 0), wide text by the low byte of each unit, a null text as
// nothing.
class LogPart {
 public:
  LogPart(const char* text) : LogPart(text != nullptr ? std::string_view(text) : std::string_view()) {}
  LogPart(std::string_view text) : kind_(Kind::kText), data_(text.data()), size_(text.size()) {}
  LogPart(const std::string& text) : LogPart(std::string_view(text)) {}
  LogPart(const wchar_t* text) : LogPart(text != nullptr ? std::wstring_view(text) : std::wstring_view()) {}
  LogPart(std::wstring_view text) : kind_(Kind::kWideText), data_(text.data()), size_(text.size()) {}
  LogPart(const std::wstring& text) : LogPart(std::wstring_view(text)) {}
  LogPart(HexBytes bytes) : kind_(Kind::kHexBytes), data_(bytes.bytes), size_(bytes.size) {}
  LogPart(Hex8 number) : kind_(Kind::kHex8), number_(number.value) {}
  template <std::unsigned_integral Number>
  LogPart(Number number) : kind_(Kind::kUnsigned), number_(number) {}
  template <std::signed_integral Number>
  LogPart(Number number) : kind_(Kind::kSigned), number_(static_cast<std::uint64_t>(std::int64_t{number})) {}
  // A lone character is a mistake: it is not said whether the character or its number is meant.
  LogPart(char) = delete;
  LogPart(wchar_t) = delete;

  // appendTo writes the piece at the end of `message`. Throws std::bad_alloc.
  void appendTo(std::string& message) const;

 private:
  enum class Kind { kText, kWideText, kHexBytes, kHex8, kUnsigned, kSigned };
  Kind kind_;
  const void* data_ = nullptr;
  std::size_t size_ = 0;
  std::uint64_t number_ = 0;
};

// joinText puts the pieces together, in order. Throws std::bad_alloc.
std::string joinText(std::span<const LogPart> parts);

}  // namespace orvane

#endif  // ORVANE_LOG_LOG_TEXT_H
