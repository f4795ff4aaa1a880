// The diagnostic log: one file per host process and day, its level read from the registry at every call.
//
// Whether a line is written is decided anew each time, so a change of "logLevel" takes effect without a restart. No
// call here throws or reports a failure: a log that cannot be written never changes what an entry point answers. No
// lock is taken; each line is one open, one write and one close in append mode.
#ifndef ORVANE_LOG_LOG_H
#define ORVANE_LOG_LOG_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "log/log_text.h"

namespace orvane {

// Levels as they appear in "logLevel" and, by their tag, in the line. Only kError and kDebug are ever written.
enum class LogLevel : int { kException = 1, kError = 2, kDebug = 3, kInfo = 4 };

// isDebugLogged reads "logLevel": true only if it can be read and its first byte is exactly 3.
bool isDebugLogged() noexcept;

// isErrorLogged reads "logLevel": false only if it can be read and its first byte, as a signed number, is below 2. A
// missing value therefore leaves errors on.
bool isErrorLogged() noexcept;

// writeLogParts joins the pieces and writes them as one line of `level`, whatever "logLevel" says.
void writeLogParts(LogLevel level, std::span<const LogPart> parts) noexcept;

// logDebug writes one line at the DEBUG level, logError one at the ERROR level, if "logLevel" asks for it. The registry
// is read once a call; the message is put together only when it will be written.
template <typename... Parts>
void logDebug(const Parts&... parts) noexcept {
  if (!isDebugLogged()) return;
  const LogPart list[] = {LogPart(parts)...};
  writeLogParts(LogLevel::kDebug, list);
}
template <typename... Parts>
void logError(const Parts&... parts) noexcept {
  if (!isErrorLogged()) return;
  const LogPart list[] = {LogPart(parts)...};
  writeLogParts(LogLevel::kError, list);
}

// The same for a message that is already a string. It is consumed: the caller's string is empty afterwards, written or
// not.
void logDebug(std::string& message) noexcept;
void logDebug(std::string&& message) noexcept;
void logError(std::string& message) noexcept;
void logError(std::string&& message) noexcept;

}  // namespace orvane

#endif  // ORVANE_LOG_LOG_H
