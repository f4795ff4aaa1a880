// What is known about one card reader.
#ifndef ORVANE_TOOL_CARD_READER_H
#define ORVANE_TOOL_CARD_READER_H

#include <string>

#include "text/bytes.h"

namespace orvane::tool {

// Reader is what the smart-card service says about one reader.
struct Reader {
  std::string name;  // UTF-8
  bool cardPresent = false;
  bool exclusive = false;  // another program holds the card for itself
  bool mute = false;       // the card does not answer
  Bytes atr;               // empty without a card
};

}  // namespace orvane::tool

#endif
