// What the program reads from standard input: PINs, and the lines of a session. Nothing is read ahead, so that both can
// come through the same pipe, and no copy of a PIN stays behind in a buffer.
#ifndef ORVANE_TOOL_INPUT_H
#define ORVANE_TOOL_INPUT_H

#include <string>

#include "support/secret.h"

namespace orvane::tool {

// isInputConsole says whether a person sits at standard input.
bool isInputConsole();

// readInputLine reads one line, without its end, as UTF-8; false at the end of the input. On a console `prompt` is
// shown.
bool readInputLine(std::string& line, const std::string& prompt);

// readPin reads one line: on a console without echo, behind `prompt`. Throws ToolError: ExitCode::kPinNeeded when the
// input has ended, ExitCode::kUsage when the line has more than 256 bytes.
SecretText readPin(const std::string& prompt);

}  // namespace orvane::tool

#endif
