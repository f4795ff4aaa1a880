// Comparing a card's answer to reset (ATR) with the card types that the operating system knows.
#ifndef ORVANE_TOOL_CARD_CARD_TYPE_H
#define ORVANE_TOOL_CARD_CARD_TYPE_H

#include <string>
#include <string_view>

#include "text/bytes.h"

namespace orvane::tool {

// CardType is one entry below Calais\SmartCards, as the operating system's registry states it.
struct CardType {
  std::string name;        // name of the registry key
  Bytes atr;               // stored already masked
  Bytes mask;              // empty: every bit counts
  std::string driverPath;  // value "80000001": the minidriver's file, with or without its folder; empty when missing
  std::string cryptoProvider = {};      // value "Crypto Provider"; empty when missing
  std::string keyStorageProvider = {};  // value "Smart Card Key Storage Provider"; empty when missing
};

// The minidriver's file, without its folder.
inline constexpr std::string_view kMinidriver = "OrvaneMinidriver.dll";

// isMinidriverFile says whether a path, with or without a folder, is that of a file with the minidriver's name.
bool isMinidriverFile(std::string_view path);

// atrMatches says whether `atr`, under the mask, is the type's ATR. ATR and mask must be as long as `atr`; a type
// without an ATR fits no card.
bool atrMatches(ByteView atr, const CardType& type);

}  // namespace orvane::tool

#endif
