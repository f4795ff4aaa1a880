// Running commands: one alone, or several on one connection.
#ifndef ORVANE_TOOL_SESSION_H
#define ORVANE_TOOL_SESSION_H

#include "command_line.h"

namespace orvane::tool {

// execute does what `request` asks for, prints results and errors, and gives the program's exit code.
ExitCode execute(const Request& request);

}  // namespace orvane::tool

#endif
