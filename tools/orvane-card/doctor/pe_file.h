// What the head of a Windows program file says: its kind of processor and the libraries that it needs.
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

// PeFile is the part of a program file's headers that decides whether it can be loaded.
struct PeFile {
  std::uint16_t machine = 0;
  std::vector<std::string> imports;  // names of the libraries that it is linked with, in the file's order

  bool operator==(const PeFile&) const = default;
};

// readPeFile reads a whole program file of 32 or 64 bits. No value when it is none; an import table that points outside
// the file, or a name longer than 260 bytes, ends the list of imports; so do 1024 of them.
std::optional<PeFile> readPeFile(ByteView file);

// machineName gives "ARM64", "x64", "x86 (32 bits)" or the number.
std::string machineName(std::uint16_t machine);

}  // namespace orvane::tool

#endif
