// What the program reads: PINs, and the lines of a session.
#ifndef ORVANE_TOOL_INPUT_H
#define ORVANE_TOOL_INPUT_H

#include <string>

#include "secret.h"

namespace orvane::tool {

// Input reads standard input without any buffer of its own, so that a PIN leaves no copy behind and the lines of a
// session and the PINs between them can come through the same pipe.
class Input {
 public:
  // fromConsole says whether a person sits at standard input.
  static bool fromConsole();

  // readLine reads one line, without its end, as UTF-8; false at the end of the input. On a console `prompt` is shown.
  static bool readLine(std::string& line, const std::string& prompt);

  // readSecret reads one line into `secret` (which is emptied first): on a console without echo, behind `prompt`.
  // Throws ToolError (ExitCode::kPinNeeded) when the input has ended and ExitCode::kUsage when the line is too long.
  static void readSecret(Secret& secret, const std::string& prompt);
};

}  // namespace orvane::tool

#endif
