// What is known about the card readers, and which of them is meant.
#ifndef ORVANE_TOOL_CARD_READER_H
#define ORVANE_TOOL_CARD_READER_H

#include <optional>
#include <string>
#include <vector>

#include "text/bytes.h"
#include "tool_error.h"

namespace orvane::tool {

// Reader is what the smart-card service says about one reader.
struct Reader {
  std::string name;  // UTF-8
  bool cardPresent = false;
  bool exclusive = false;  // another program holds the card for itself
  bool mute = false;       // the card does not answer
  Bytes atr;               // empty without a card
};

// orvaneAtr is the answer to reset of the one kind of card that the minidriver serves.
ByteView orvaneAtr();

// isOrvane says whether an Orvane token is in the reader.
bool isOrvane(const Reader& reader);

// chooseReader gives the reader named `wanted`, which may be a part of its name, in any letter case, if only one has
// it; without a name the first one with an Orvane token, else the first one with any card, else the first one. Null
// when there is none, or when the part fits several.
const Reader* chooseReader(const std::vector<Reader>& readers, const std::optional<std::string>& wanted);

// readerNotNamed is the error (ExitCode::kNoCard) when chooseReader finds none for `wanted`: which readers there are,
// or which of them have that part in their names.
ToolError readerNotNamed(const std::vector<Reader>& readers, const std::string& wanted);

// readerWithCard chooses in the same way, but throws ToolError (ExitCode::kNoCard) when there is no reader, or no card
// in the chosen one.
Reader readerWithCard(const std::vector<Reader>& readers, const std::optional<std::string>& wanted);

// requireOrvane throws ToolError (ExitCode::kNoCard) when the card in the reader does not answer or is of another kind,
// as a badge or a bank card is. With `driverNamed` the minidriver is named on the command line, and then any card will
// do.
void requireOrvane(const Reader& reader, bool driverNamed);

}  // namespace orvane::tool

#endif
