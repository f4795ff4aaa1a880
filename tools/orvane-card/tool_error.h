// The one exception that the tool's parts throw for a failure that a user can act on.
#ifndef ORVANE_TOOL_TOOL_ERROR_H
#define ORVANE_TOOL_TOOL_ERROR_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "exit_codes.h"

namespace orvane::tool {

// ToolError carries what happened (`what()`), what to do about it (`advice`, may be empty), the status code if a call
// failed, and the number of PIN attempts left if the call said so. Texts are UTF-8.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode exitCode, const std::string& message, std::string advice = {})
      : std::runtime_error(message), exitCode_(exitCode), advice_(std::move(advice)) {}

  // A failed call: the message is `call` followed by the status's name and number, exit code and advice come from the
  // tables in status_names.h.
  ToolError(const std::string& call, std::uint32_t status);

  ToolError& withExitCode(ExitCode exitCode);
  ToolError& withAttempts(std::uint32_t attempts);

  ExitCode exitCode() const { return exitCode_; }
  const std::string& advice() const { return advice_; }
  std::optional<std::uint32_t> status() const { return status_; }
  std::optional<std::uint32_t> attempts() const { return attempts_; }

 private:
  ExitCode exitCode_;
  std::string advice_;
  std::optional<std::uint32_t> status_;
  std::optional<std::uint32_t> attempts_;
};

}  // namespace orvane::tool

#endif
