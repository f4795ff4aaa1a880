// What the program's exit status means; scripts rely on these numbers, so they never change their meaning.
#ifndef ORVANE_TOOL_EXIT_CODES_H
#define ORVANE_TOOL_EXIT_CODES_H

#include <cstdint>

namespace orvane::tool {

enum class ExitCode {
  kSuccess = 0,
  kInternal = 1,  // something that should not happen
  kUsage = 2,     // the command line or the data given with it is wrong
  kNoCard = 3,    // no smart-card service, no reader or no card
  kDriver = 4,    // no minidriver for the card, it does not load, or it refuses the card
  kNotFound = 5,  // the card has no such file, directory or container
  kWrongPin = 6,
  kPinBlocked = 7,
  kPinNeeded = 8,     // the operation wants a verified PIN
  kRefused = 9,       // the minidriver refused the call for another reason
  kLocalFile = 10,    // a file on this machine cannot be read or written
  kCheckFailed = 11,  // everything could be read, but it does not fit together
  kWarnings = 12,     // "doctor" found nothing broken, but something to look at
};

// exitCodeOf gives the exit code for a failed call of the minidriver or of the smart-card service. `status` is its
// result: a smart-card code or a Win32 code.
ExitCode exitCodeOf(std::uint32_t status);

}  // namespace orvane::tool

#endif
