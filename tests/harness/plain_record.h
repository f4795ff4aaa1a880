// The record as a caller makes it before an acquisition.
#ifndef ORVANE_TESTS_HARNESS_PLAIN_RECORD_H
#define ORVANE_TESTS_HARNESS_PLAIN_RECORD_H

#include "platform/card_module.h"

namespace orvane::test {

// A version-7 record with the right answer to reset, a card name and these callbacks; all else is 0. ATR and name live
// as long as the program.
inline CARD_DATA plainRecord(PFN_CSP_ALLOC allocate, PFN_CSP_REALLOC reallocate, PFN_CSP_FREE release) {
  static BYTE atr[] = {0x3B, 0x8E, 0x80, 0x01, 0x50, 0x4B, 0x03, 0x58, 0x58, 0x58,
                       0x5F, 0x44, 0x53, 0x43, 0x5F, 0x4B, 0x45, 0x59, 0x4C};
  static wchar_t cardName[] = L"Orvane test card";
  CARD_DATA record{};
  record.dwVersion = CARD_DATA_CURRENT_VERSION;
  record.pbAtr = atr;
  record.cbAtr = sizeof(atr);
  record.pwszCardName = cardName;
  record.pfnCspAlloc = allocate;
  record.pfnCspReAlloc = reallocate;
  record.pfnCspFree = release;
  return record;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_PLAIN_RECORD_H
