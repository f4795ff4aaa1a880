// What the tool calls a key of the token, in every command.
#ifndef ORVANE_TOOL_CARD_KEY_NAMES_H
#define ORVANE_TOOL_CARD_KEY_NAMES_H

#include <cstddef>
#include <string>

#include "card/card_files.h"

namespace orvane::tool {

// keyPurpose says what a container's keys are for, in the words of those who use them: "signing", "encryption" (the
// interface calls it key exchange), "signing and encryption", or an empty text for a container without a key.
std::string keyPurpose(const ContainerRecord& record);

// keyName names the key of a container among the `count` records of "cmapfile": "key 2 of 3 (encryption)". People count
// from 1, containers from 0.
std::string keyName(const ContainerRecord& record, std::size_t count);

}  // namespace orvane::tool

#endif
