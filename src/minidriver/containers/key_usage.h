// What a key is for.
#ifndef ORVANE_MINIDRIVER_CONTAINERS_KEY_USAGE_H
#define ORVANE_MINIDRIVER_CONTAINERS_KEY_USAGE_H

#include <cstdint>

namespace orvane {

// A key's usage code, as the token library states it: 1 signature, 2 key exchange, 3 both. Any other code is neither.
constexpr bool isSignatureUsage(std::int32_t keyUsage) noexcept { return keyUsage == 1 || keyUsage == 3; }
constexpr bool isKeyExchangeUsage(std::int32_t keyUsage) noexcept { return keyUsage == 2 || keyUsage == 3; }

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_CONTAINERS_KEY_USAGE_H
