// The one exception that the tool's parts throw for a failure that a user can act on, and the program's exit codes.
#ifndef ORVANE_TOOL_TOOL_ERROR_H
#define ORVANE_TOOL_TOOL_ERROR_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvane::tool {

// What the program's exit status means. Scripts rely on these numbers: none ever changes its meaning.
enum class ExitCode {
  kSuccess = 0,
  kInternal = 1,  // something that should not happen
  kUsage = 2,     // the command line or the data given with it is wrong
  kNoCard = 3,    // no smart-card service, no reader or no card
  kDriver = 4,    // no minidriver for the card, it does not load, or it refuses the card
  kNotFound = 5,  // the card has no such file, directory or key
  kWrongPin = 6,
  kPinBlocked = 7,
  kPinNeeded = 8,     // the operation wants a verified PIN
  kRefused = 9,       // the minidriver refused the call for another reason
  kLocalFile = 10,    // a file on this machine cannot be read or written
  kCheckFailed = 11,  // everything could be read, but it does not fit together
  kWarnings = 12,     // "doctor" found nothing broken, but something to look at
};

// ToolError carries what happened (`what()`), what to do about it (`advice`, may be empty), the status code if a call
// failed, and the number of PIN attempts left if the call said so. Texts are UTF-8.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode exitCode, const std::string& message, std::string advice = {})
      : std::runtime_error(message), exitCode_(exitCode), advice_(std::move(advice)) {}

  // A failed call: the message is what `status` means there, and in brackets `call` and the status's name and number;
  // exit code, meaning and advice come from the tables in card/status_names.cpp.
  ToolError(const std::string& call, std::uint32_t status);

  ToolError& withExitCode(ExitCode exitCode) {
    exitCode_ = exitCode;
    return *this;
  }
  ToolError& withAdvice(std::string advice) {
    advice_ = std::move(advice);
    return *this;
  }
  ToolError& withAttempts(std::uint32_t attempts) {
    attempts_ = attempts;
    return *this;
  }

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
