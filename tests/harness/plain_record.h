// The record as a caller makes it before an acquisition.
#ifndef ORVANE_TESTS_HARNESS_PLAIN_RECORD_H
#define ORVANE_TESTS_HARNESS_PLAIN_RECORD_H

#include "platform/card_module.h"

namespace orvane::test {

// The one answer to reset that the minidriver accepts.
inline constexpr BYTE kAtr[] = {0x3B, 0x8E, 0x80, 0x01, 0x50, 0x4B, 0x03, 0x58, 0x58, 0x58,
                                0x5F, 0x44, 0x53, 0x43, 0x5F, 0x4B, 0x45, 0x59, 0x4C};

// Fills in what the caller brings: version 7, kAtr, a card name and these callbacks; all else stays. ATR and name live
// as long as the program.
inline void fillCallersMembers(CARD_DATA& record, PFN_CSP_ALLOC allocate, PFN_CSP_REALLOC reallocate,
                               PFN_CSP_FREE release) {
  static wchar_t cardName[] = L"Orvane test card";
  record.dwVersion = CARD_DATA_CURRENT_VERSION;
  record.pbAtr = const_cast<PBYTE>(kAtr);
  record.cbAtr = sizeof(kAtr);
  record.pwszCardName = cardName;
  record.pfnCspAlloc = allocate;
  record.pfnCspReAlloc = reallocate;
  record.pfnCspFree = release;
}

// A record with the caller's members, and 0 in all others.
inline CARD_DATA plainRecord(PFN_CSP_ALLOC allocate, PFN_CSP_REALLOC reallocate, PFN_CSP_FREE release) {
  CARD_DATA record{};
  fillCallersMembers(record, allocate, reallocate, release);
  return record;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_PLAIN_RECORD_H
