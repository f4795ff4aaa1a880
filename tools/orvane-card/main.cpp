// orvane-card: looks at a smart-card token through its minidriver, as the operating system's base provider does.
#include "platform/windows_api.h"
// After the system's own header, which it relies on.
#include <shellapi.h>

#include <algorithm>
#include <exception>

#include "command_line.h"
#include "library_messages.h"
#include "session.h"
#include "support/text_compare.h"
#include "text/utf.h"
#include "tool_error.h"

namespace {

// The arguments behind the program's name, as UTF-8: those that main gets are in the local code page.
std::vector<std::string> argumentsAsUtf8() {
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; wide && i < count; ++i) arguments.push_back(orvane::tool::toUtf8(wide[i]));
  LocalFree(wide);
  return arguments;
}

int run() {
  using namespace orvane::tool;
  const std::vector<std::string> arguments = argumentsAsUtf8();
  try {
    const Request request = parseArguments(arguments);
    if (request.text.empty()) return static_cast<int>(execute(request));
    Output(OutputFormat::kText).text(request.text);
    return static_cast<int>(ExitCode::kSuccess);
  } catch (const ToolError& error) {
    const bool json = std::any_of(arguments.begin(), arguments.end(), [](const std::string& argument) {
      return orvane::equalsIgnoreCase(argument, "--json");
    });
    Output(json ? OutputFormat::kJson : OutputFormat::kText).failure("", error);
    return static_cast<int>(error.exitCode());
  }
}

}  // namespace

int main() {
  try {
    const orvane::tool::CapturedOutput capturedOutput;
    return run();
  } catch (const std::exception& error) {
    const orvane::tool::Output output(orvane::tool::OutputFormat::kText);
    output.message("orvane-card: " + std::string(error.what()));
    return static_cast<int>(orvane::tool::ExitCode::kInternal);
  }
}
