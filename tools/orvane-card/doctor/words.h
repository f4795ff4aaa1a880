// How "doctor" puts things.
#ifndef ORVANE_TOOL_DOCTOR_WORDS_H
#define ORVANE_TOOL_DOCTOR_WORDS_H

#include <string>

#include "text/style.h"
#include "tool_error.h"

namespace orvane::tool {

// inWords gives what a failed call means, and behind it, in brackets, the call and its status for those who know them:
// "the card was removed [CardReadFile: SCARD_W_REMOVED_CARD (0x80100069)]". Of an error that is no failed call, or
// whose status has no meaning in words, the message.
std::string inWords(const ToolError& error);

// What helps when files or registry entries of the minidriver are not as they should be.
inline constexpr const char* kInstallAgain = "Install the minidriver again, with the package for this machine.";

}  // namespace orvane::tool

#endif
