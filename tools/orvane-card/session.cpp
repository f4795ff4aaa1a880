#include "session.h"

#include <functional>
#include <string>
#include <vector>

#include "doctor/shown_verdict.h"
#include "input.h"
#include "local_files.h"
#include "support/text_compare.h"
#include "text/bytes.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

// Runs one command and reports how it ended.
ExitCode runCommand(Environment& environment, const Request& request) {
  const Output& output = environment.output();
  try {
    output.document(resultDocument(request.command, request.run(environment)));
    return ExitCode::kSuccess;
  } catch (const ShownVerdict& error) {
    output.document(errorDocument(request.command, error));
    return error.exitCode();
  } catch (const ToolError& error) {
    output.failure(request.command, error);
    return error.exitCode();
  } catch (const std::exception& error) {
    output.failure(request.command, ToolError(ExitCode::kInternal, error.what()));
    return ExitCode::kInternal;
  }
}

// Gives the next line of the session; false at its end.
using LineSource = std::function<bool(std::string&)>;

std::vector<std::string> linesOfFile(const std::string& path) {
  std::vector<std::string> lines(1);
  const Bytes content = readLocalFile(path);
  for (const std::uint8_t byte : withoutByteOrderMark(content)) {
    if (byte == '\n') {
      lines.emplace_back();
    } else if (byte != '\r') {
      lines.back() += static_cast<char>(byte);
    }
  }
  return lines;
}

bool comesFromInput(const Request& request) {
  return request.sessionLines.empty() && (request.sessionFile.empty() || request.sessionFile == "-");
}

LineSource lineSource(const Request& request) {
  if (comesFromInput(request)) return [](std::string& line) { return readInputLine(line, "orvane-card> "); };
  return [lines = request.sessionLines.empty() ? linesOfFile(request.sessionFile) : request.sessionLines,
          count = std::size_t{0}](std::string& line) mutable {
    if (count == lines.size()) return false;
    line = lines[count++];
    return true;
  };
}

// `mayBePin`: the line comes from where PINs come from, too. One that no command has taken, because the command failed
// before it asked, must not be shown.
ExitCode runLine(Environment& environment, const std::string& line, bool isEchoed, bool mayBePin) {
  const Output& output = environment.output();
  try {
    const Request request = parseSessionLine(line);
    if (isEchoed) output.text("> " + line + "\n");
    if (request.text.empty()) return runCommand(environment, request);
    output.text(request.text);
    return ExitCode::kSuccess;
  } catch (const ToolError& error) {
    if (mayBePin) {
      output.failure("", ToolError(error.exitCode(), "a line of standard input is no command",
                                   "It is not shown here, because it could be a PIN that no command has asked for."));
    } else {
      output.failure(line, error);
    }
    return error.exitCode();
  }
}

ExitCode runSession(Environment& environment, const Request& request) {
  const LineSource next = lineSource(request);
  const bool interactive = request.sessionLines.empty() && request.sessionFile.empty() && isInputConsole();
  for (std::string line; next(line);) {
    line.erase(0, line.find_first_not_of(" \t"));
    if (line.empty() || line.starts_with('#')) continue;
    if (interactive && (equalsIgnoreCase(line, "exit") || equalsIgnoreCase(line, "quit"))) break;
    const bool mayFail = line.starts_with('-');
    if (mayFail) line.erase(0, 1);
    const ExitCode result = runLine(environment, line, !interactive, comesFromInput(request) && !interactive);
    if (result != ExitCode::kSuccess && !mayFail && !interactive) return result;
  }
  return ExitCode::kSuccess;
}

}  // namespace

ExitCode execute(const Request& request) {
  const Output output(request.format);
  Environment environment(request.connect, output, request.session);
  ExitCode result = ExitCode::kInternal;
  try {
    result = request.session ? runSession(environment, request) : runCommand(environment, request);
  } catch (const ToolError& error) {
    output.failure(request.command, error);
    result = error.exitCode();
  }
  for (const std::string& complaint : environment.disconnect()) output.message("orvane-card: warning: " + complaint);
  if (output.isClosed() && result == ExitCode::kSuccess) {
    output.message("orvane-card: standard output could not be written in full");
    return ExitCode::kLocalFile;
  }
  return result;
}

}  // namespace orvane::tool
