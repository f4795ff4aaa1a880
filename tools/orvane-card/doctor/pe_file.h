// What the head of a Windows program file says: its kind of processor, the libraries that it needs, and whether it is
// signed.
#ifndef ORVANE_TOOL_DOCTOR_PE_FILE_H
#define ORVANE_TOOL_DOCTOR_PE_FILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "text/bytes.h"

namespace orvane::tool {

// Machine numbers as the file format has them.
inline constexpr std::uint16_t kMachineX86 = 0x014C;
inline constexpr std::uint16_t kMachineX64 = 0x8664;
inline constexpr std::uint16_t kMachineArm64 = 0xAA64;

// The kinds of hybrid code for Arm machines have numbers, too, but do not show them in the file: there ARM64EC, code
// that x64 programs load, says that it is x64, and ARM64X, which has code for ARM64 and for x64 programs, that it is
// ARM64.
inline constexpr std::uint16_t kMachineArm64Ec = 0xA641;
inline constexpr std::uint16_t kMachineArm64X = 0xA64E;

// PeFile is the part of a program file's headers that decides whether it can be loaded.
struct PeFile {
  std::uint16_t machine = 0;         // hybrid code with its own number
  std::vector<std::string> imports;  // names of the libraries that it is linked with, in the file's order
  bool isSigned = false;             // carries a signature; whose, and whether it is right, is another matter

  bool operator==(const PeFile&) const = default;
};

// readPeFile reads a whole program file of 32 or 64 bits. No value when it is none; an import table that points outside
// the file, or a name longer than 260 bytes, ends the list of imports; so do 1024 of them.
std::optional<PeFile> readPeFile(ByteView file);

// canLoad says whether a process of the kind `process` can load a file of the kind `file`. An x64 program on an Arm
// machine is of the kind kMachineArm64Ec.
bool canLoad(std::uint16_t process, std::uint16_t file);

// machineName gives the kind of a file, "ARM64", "x64", "x86 (32 bits)" or the number, processName that of a process.
std::string machineName(std::uint16_t machine);
std::string processName(std::uint16_t machine);

}  // namespace orvane::tool

#endif
