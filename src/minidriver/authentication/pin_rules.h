// The rules that PINs obey on their way to the token.
#ifndef ORVANE_MINIDRIVER_AUTHENTICATION_PIN_RULES_H
#define ORVANE_MINIDRIVER_AUTHENTICATION_PIN_RULES_H

#include <cstdint>

namespace orvane {

inline constexpr std::uint32_t kMinimumPinLength = 4;   // bytes
inline constexpr std::uint32_t kMaximumPinLength = 63;  // bytes

// isPinLengthValid tells whether the token takes a PIN of so many bytes.
constexpr bool isPinLengthValid(std::uint32_t length) noexcept {
  return length >= kMinimumPinLength && length <= kMaximumPinLength;
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_AUTHENTICATION_PIN_RULES_H
