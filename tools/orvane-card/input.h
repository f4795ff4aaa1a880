// What the program reads from standard input: PINs, and the lines of a session. Nothing is read ahead, so that both can
// come through the same pipe, and no copy of a PIN stays behind in a buffer.
#ifndef ORVANE_TOOL_INPUT_H
#define ORVANE_TOOL_INPUT_H

#include <string>
#include <vector>

#include "card/pin_rules.h"
#include "support/secret.h"

namespace orvane::tool {

// isInputConsole says whether a person sits at standard input.
bool isInputConsole();

// readInputLine reads one line, without its end and without a byte order mark at its beginning, as UTF-8; false at the
// end of the input. On a console `prompt` is shown.
bool readInputLine(std::string& line, const std::string& prompt);

// readPin reads one line: on a console without echo, behind `prompt`; from a pipe or file without a byte order mark at
// its beginning. Throws ToolError: ExitCode::kPinNeeded when the input has ended, ExitCode::kUsage when the line cannot
// be a PIN (requirePossiblePin).
SecretText readPin(const std::string& prompt, PinLength length);

// readFurtherLines gives the next lines of a pipe or file that are not empty, at most two. It waits for them, or for
// the end of the input.
std::vector<SecretText> readFurtherLines();

}  // namespace orvane::tool

#endif
