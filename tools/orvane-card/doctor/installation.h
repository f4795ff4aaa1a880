// What is installed on this machine, as "doctor" looks at it: libraries, and the log's settings.
#ifndef ORVANE_TOOL_DOCTOR_INSTALLATION_H
#define ORVANE_TOOL_DOCTOR_INSTALLATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor/checks.h"

namespace orvane::tool {

// processMachine gives the kind of this process: kMachineArm64Ec for an x64 program on an Arm machine.
std::uint16_t processMachine();

// inspectLibrary looks at the file at `path` (UTF-8) without loading it.
LibraryFile inspectLibrary(const std::string& path);

// inspectMinidriver does so, too, and looks for the libraries that the minidriver needs, without the token library, if
// a process of the kind `machine` can load it.
LibraryFile inspectMinidriver(const std::string& path, std::uint16_t machine);

// inspectTokenLibrary finds the token library as Windows would for a minidriver in `driverPath`: beside it, else in the
// system folder. A library of the kind `machine` is also loaded, with everything that it needs, and stays loaded.
LibraryFile inspectTokenLibrary(const std::string& driverPath, std::uint16_t machine);

// registryNumber reads a REG_DWORD below HKEY_LOCAL_MACHINE; none when it is missing or of another type.
std::optional<std::uint32_t> registryNumber(const wchar_t* key, const wchar_t* value);

// logonFacts reads the settings that protect the logon process, and takes the libraries that were found.
LogonFacts logonFacts(std::vector<LibraryFile> libraries);

// logFacts reads the level and looks whether this program's log can be written; for that a folder or file is made in
// its place and removed again.
LogFacts logFacts();

}  // namespace orvane::tool

#endif
