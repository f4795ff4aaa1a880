// The rules that PINs obey on their way to the token.
#ifndef ORVANE_MINIDRIVER_AUTHENTICATION_PIN_RULES_H
#define ORVANE_MINIDRIVER_AUTHENTICATION_PIN_RULES_H

#include <cstdint>

namespace orvane {

inline constexpr std::uint32_t kMinimumPinLength = 4;   // bytes
inline constexpr std::uint32_t kMaximumPinLength = 63;  // bytes

// Where a stated length is no length any more, in bytes. Certification kits pass 0xFFFFFFFF, and nobody has a PIN or
// the memory behind one of that size.
inline constexpr std::uint32_t kLargestReadablePinLength = 65536;

// isPinReadable tells whether a PIN of the stated length may be read at all. One that may not is neither read nor sent
// to the token, and counts as wrong.
constexpr bool isPinReadable(std::uint32_t statedLength) noexcept { return statedLength <= kLargestReadablePinLength; }

// isPinLengthValid tells whether the token takes a PIN of so many bytes.
constexpr bool isPinLengthValid(std::uint32_t length) noexcept {
  return length >= kMinimumPinLength && length <= kMaximumPinLength;
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_AUTHENTICATION_PIN_RULES_H
