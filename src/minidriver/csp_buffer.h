// Memory that is handed to the caller.
#ifndef ORVANE_MINIDRIVER_CSP_BUFFER_H
#define ORVANE_MINIDRIVER_CSP_BUFFER_H

#include <cstring>

#include "platform/card_module.h"

namespace orvane {

// allocateForCaller gets `size` zeroed bytes from the caller's allocator, which also owns and frees them. Returns null
// when the allocator is missing or has no memory.
inline BYTE* allocateForCaller(const CARD_DATA& cardData, SIZE_T size) {
  if (cardData.pfnCspAlloc == nullptr) return nullptr;
  void* buffer = cardData.pfnCspAlloc(size);
  if (buffer != nullptr) std::memset(buffer, 0, size);
  return static_cast<BYTE*>(buffer);
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_CSP_BUFFER_H
