// The host process's name, as it stands in log paths.
#ifndef ORVANE_LOG_PROCESS_NAME_H
#define ORVANE_LOG_PROCESS_NAME_H

#include <string_view>

#include "platform/windows_api.h"

namespace orvane {

// processNameOf returns a module's base name up to its first ".": "lsass.exe" gives "lsass".
constexpr std::string_view processNameOf(std::string_view moduleBaseName) noexcept {
  return moduleBaseName.substr(0, moduleBaseName.find('.'));
}

// ProcessName asks the system once: the name never changes, and asking at every line would be a good part of its cost.
class ProcessName {
 public:
  ProcessName() noexcept {
    if (K32GetModuleBaseNameA(GetCurrentProcess(), nullptr, baseName_, sizeof(baseName_)) == 0) baseName_[0] = '\0';
  }

  // Empty when the system could not tell. Valid as long as the object.
  std::string_view text() const noexcept { return processNameOf(baseName_); }

 private:
  char baseName_[MAX_PATH] = {};
};

// processName returns the name that was asked for when the module was loaded. Any thread may read it at any time, also
// while the module's static objects are being destroyed, since lines are logged until the last of them is gone.
ProcessName& processName() noexcept;

}  // namespace orvane

#endif  // ORVANE_LOG_PROCESS_NAME_H
