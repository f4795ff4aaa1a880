#include "minidriver/frame/entry.h"

#include <exception>
#include <new>

namespace orvane {

DWORD statusOfCaughtException(const char* entryPoint) noexcept {
  try {
    throw;
  } catch (const std::bad_alloc& error) {
    return refuse(SCARD_E_NO_MEMORY, entryPoint, ": unhandled exception: ", error.what());
  } catch (const std::exception& error) {
    return refuse(SCARD_F_INTERNAL_ERROR, entryPoint, ": unhandled exception: ", error.what());
  } catch (...) {
    return refuse(SCARD_F_INTERNAL_ERROR, entryPoint, ": unhandled exception: ", "unknown");
  }
}

void logEntryLine(const char* entryPoint) noexcept { logDebug(entryPoint, " :: LOG_FUNCTION_NAME = Entry"); }

}  // namespace orvane
