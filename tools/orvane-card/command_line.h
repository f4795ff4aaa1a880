// The command line: names, options and help of all commands.
#ifndef ORVANE_TOOL_COMMAND_LINE_H
#define ORVANE_TOOL_COMMAND_LINE_H

#include <functional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "output.h"

namespace orvane::tool {

// Request is a command line, understood. With `text` the answer is just that text (help or version) and nothing runs.
struct Request {
  std::string text;
  OutputFormat format = OutputFormat::kText;
  ConnectOptions connect;
  std::string command;  // "pin verify"
  std::function<Json(Environment&)> run;

  // For the command "session": where its lines come from. With neither, standard input.
  bool session = false;
  std::vector<std::string> sessionLines;
  std::string sessionFile;
};

// parseArguments understands the arguments behind the program's name (UTF-8). Throws ToolError (ExitCode::kUsage).
Request parseArguments(std::vector<std::string> arguments);

// parseSessionLine understands one line of a session: a command with its options, but without those that choose card,
// minidriver and format. Throws ToolError (ExitCode::kUsage).
Request parseSessionLine(const std::string& line);

}  // namespace orvane::tool

#endif
