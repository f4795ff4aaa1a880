// Memory that is handed to the caller.
#ifndef ORVANE_MINIDRIVER_FRAME_CSP_BUFFER_H
#define ORVANE_MINIDRIVER_FRAME_CSP_BUFFER_H

#include <cstring>

#include "platform/card_module.h"

namespace orvane {

// allocateRawForCaller gets `size` bytes from the caller's allocator, which also owns and frees them. Their content is
// whatever it is: only for a buffer of which every byte is written before the caller sees it. Returns null when the
// allocator is missing or has no memory.
inline BYTE* allocateRawForCaller(const CARD_DATA& cardData, SIZE_T size) {
  return cardData.pfnCspAlloc != nullptr ? static_cast<BYTE*>(cardData.pfnCspAlloc(size)) : nullptr;
}

// allocateForCaller is the same with zeroed bytes.
inline BYTE* allocateForCaller(const CARD_DATA& cardData, SIZE_T size) {
  BYTE* const buffer = allocateRawForCaller(cardData, size);
  if (buffer != nullptr) std::memset(buffer, 0, size);
  return buffer;
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_CSP_BUFFER_H
