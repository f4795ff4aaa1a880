#include "log/log.h"

#include <optional>

#include "log/log_file.h"
#include "platform/windows_api.h"

namespace orvane {
namespace {

// The first byte of "logLevel", whatever type the value has: for a number its low byte, for a text its first character.
std::optional<signed char> readLogLevel() noexcept {
  // Only the first byte counts, which a value without data leaves as it is.
  unsigned char data[32];
  data[0] = 0;
  DWORD size = sizeof(data);
  const LONG result =
      RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Brightfold\\Orvane", "logLevel", RRF_RT_ANY, nullptr, data, &size);
  if (result != ERROR_SUCCESS) return std::nullopt;
  return static_cast<signed char>(data[0]);
}

void consume(bool isLogged, LogLevel level, std::string& message) noexcept {
  if (isLogged) writeLogLine(level, message);
  message.clear();
}

}  // namespace

bool isDebugLogged() noexcept {
  const auto level = readLogLevel();
  return level && *level == static_cast<int>(LogLevel::kDebug);
}

bool isErrorLogged() noexcept {
  const auto level = readLogLevel();
  return !level || *level >= static_cast<int>(LogLevel::kError);
}

void writeLogParts(LogLevel level, std::span<const LogPart> parts) noexcept {
  try {
    writeLogLine(level, joinText(parts));
  } catch (...) {
    // Out of memory for a log line: the line is lost, the call that wanted to log goes on.
  }
}

void logDebug(std::string& message) noexcept { consume(isDebugLogged(), LogLevel::kDebug, message); }
void logDebug(std::string&& message) noexcept { logDebug(message); }
void logError(std::string& message) noexcept { consume(isErrorLogged(), LogLevel::kError, message); }
void logError(std::string&& message) noexcept { logError(message); }

}  // namespace orvane
