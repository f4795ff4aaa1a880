// Fixed facts about the token family, as the query entry points and the card properties state them.
#ifndef ORVANE_MINIDRIVER_PROPERTIES_CAPABILITIES_H
#define ORVANE_MINIDRIVER_PROPERTIES_CAPABILITIES_H

#include "platform/card_module.h"

namespace orvane {

inline constexpr DWORD kMaxKeyContainers = 6;         // on one token
inline constexpr DWORD kBytesPerKeyContainer = 2048;  // what a key takes of the room that is stated

// cardCapabilities: certificates are exchanged uncompressed (the minidriver looks after compression), no key
// generation.
constexpr CARD_CAPABILITIES cardCapabilities() noexcept { return {CARD_CAPABILITIES_CURRENT_VERSION, 1, 0}; }

// freeSpaceInfo states the room that is left beside `keySlotsUsed` keys. That the number of containers still available
// is the number of used ones is deliberate: nothing is ever created on this card, and callers rely on the value.
constexpr CARD_FREE_SPACE_INFO freeSpaceInfo(DWORD keySlotsUsed) noexcept {
  return {CARD_FREE_SPACE_INFO_CURRENT_VERSION, (kMaxKeyContainers - keySlotsUsed) * kBytesPerKeyContainer,
          keySlotsUsed, kMaxKeyContainers};
}

// keySizes states 2048 bits as minimum, default and step, and `maximumBits` as the largest size. The query entry point
// deliberately states 2048 there and the property 4096.
constexpr CARD_KEY_SIZES keySizes(DWORD maximumBits) noexcept {
  return {CARD_KEY_SIZES_CURRENT_VERSION, 2048, 2048, maximumBits, 2048};
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_PROPERTIES_CAPABILITIES_H
