// Counting the freshness counters on.
#ifndef ORVANE_CACHE_BUMP_FRESHNESS_H
#define ORVANE_CACHE_BUMP_FRESHNESS_H

#include <cstdint>
#include <string>

namespace orvane {

// Which counters a bump changes.
inline constexpr std::uint32_t kBumpVersion = 0x1;
inline constexpr std::uint32_t kBumpPins = 0x2;
inline constexpr std::uint32_t kBumpContainers = 0x4;
inline constexpr std::uint32_t kBumpFiles = 0x8;
inline constexpr std::uint32_t kBumpAll = 0xF;

// bumpCacheFreshness counts the chosen counters (kBump... bits) on, for the token `serial` or, with an empty serial,
// for none in particular, and logs the process-wide ones. From the second bump of a token's PIN counter on, the token
// is asked first: while it still reports the PIN as validated and so does this process, the counter stays. Takes
// `deviceCacheMutex` several times, never across the library call. Throws what DeviceCache throws.
void bumpCacheFreshness(std::uint32_t flags, const std::string& serial);

}  // namespace orvane

#endif  // ORVANE_CACHE_BUMP_FRESHNESS_H
