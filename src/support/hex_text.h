// Upper-case hexadecimal text of bytes.
#ifndef ORVANE_SUPPORT_HEX_TEXT_H
#define ORVANE_SUPPORT_HEX_TEXT_H

#include <cstddef>
#include <string>

namespace orvane {

// hexText writes `size` bytes as upper-case hexadecimal digits, two a byte, high digit first, without separators.
template <typename Text = std::string>
Text hexText(const unsigned char* bytes, std::size_t size) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  Text digits;
  digits.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) {
    digits.push_back(static_cast<typename Text::value_type>(kDigits[bytes[i] >> 4]));
    digits.push_back(static_cast<typename Text::value_type>(kDigits[bytes[i] & 0x0F]));
  }
  return digits;
}

}  // namespace orvane

#endif  // ORVANE_SUPPORT_HEX_TEXT_H
