// The guard around every entry point, and the ways in which an entry point ends.
#ifndef ORVANE_MINIDRIVER_FRAME_ENTRY_H
#define ORVANE_MINIDRIVER_FRAME_ENTRY_H

#include "log/log.h"
#include "platform/windows_api.h"

namespace orvane {

// statusOfCaughtException gives the status for the exception being handled: SCARD_E_NO_MEMORY for std::bad_alloc,
// SCARD_F_INTERNAL_ERROR for everything else. It logs one ERROR line: the entry point's name, ": unhandled exception: "
// and the exception's text. To be called from a catch block; never throws.
DWORD statusOfCaughtException(const char* entryPoint) noexcept;

// logEntryLine logs the first line of every entry point at DEBUG.
void logEntryLine(const char* entryPoint) noexcept;

// cardEntry runs the body of the entry point `name` (its __func__): first the entry line, then `body`, whose status it
// returns. It is the only place where exceptions are caught on their way to the caller.
template <typename Body>
DWORD cardEntry(const char* name, Body&& body) noexcept {
  try {
    logEntryLine(name);
    return body();
  } catch (...) {
    return statusOfCaughtException(name);
  }
}

// statusCode turns a published status, signed in the system's headers, into what entry points return.
constexpr DWORD statusCode(LONG status) noexcept { return static_cast<DWORD>(status); }

// The three ways to end with a log line: succeed logs what was done at DEBUG and returns 0, refuse logs why not at
// ERROR and returns `status`, decline does the same at DEBUG.
template <typename... Parts>
DWORD succeed(const Parts&... message) noexcept {
  logDebug(message...);
  return statusCode(SCARD_S_SUCCESS);
}
template <typename... Parts>
DWORD refuse(LONG status, const Parts&... message) noexcept {
  logError(message...);
  return statusCode(status);
}
template <typename... Parts>
DWORD decline(LONG status, const Parts&... message) noexcept {
  logDebug(message...);
  return statusCode(status);
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_ENTRY_H
