#include "doctor/pe_file.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace orvane::tool {
namespace {

constexpr std::size_t kHeader = 0x80;        // of the PE signature
constexpr std::size_t kOptional = 0x98;      // of the optional header
constexpr std::size_t kSection = 0x198;      // of the only section's header
constexpr std::size_t kSectionData = 0x200;  // in the file
constexpr std::uint32_t kSectionAddress = 0x1000;

void put16(Bytes& file, std::size_t offset, std::uint16_t value) {
  file[offset] = static_cast<std::uint8_t>(value);
  file[offset + 1] = static_cast<std::uint8_t>(value >> 8);
}

void put32(Bytes& file, std::size_t offset, std::uint32_t value) {
  put16(file, offset, static_cast<std::uint16_t>(value));
  put16(file, offset + 2, static_cast<std::uint16_t>(value >> 16));
}

// A library that imports from two others, in the smallest form that has everything.
Bytes library(std::uint16_t machine, bool is64) {
  Bytes file(0x300);
  file[0] = 'M';
  file[1] = 'Z';
  put32(file, 0x3C, kHeader);
  put32(file, kHeader, 0x00004550);
  put16(file, kHeader + 4, machine);
  put16(file, kHeader + 6, 1);
  put16(file, kHeader + 20, static_cast<std::uint16_t>(kSection - kOptional));
  put16(file, kOptional, is64 ? 0x020B : 0x010B);
  const std::size_t directories = kOptional + (is64 ? 112 : 96);
  put32(file, directories - 4, 16);
  put32(file, directories + 8, kSectionAddress + 0x10);
  put32(file, kSection + 12, kSectionAddress);
  put32(file, kSection + 16, 0x100);
  put32(file, kSection + 20, kSectionData);
  put32(file, kSectionData + 0x10 + 12, kSectionAddress + 0x80);
  put32(file, kSectionData + 0x10 + 20 + 12, kSectionAddress + 0x90);
  const std::string first = "ONE.dll";
  const std::string second = "two.DLL";
  std::copy(first.begin(), first.end(), file.begin() + kSectionData + 0x80);
  std::copy(second.begin(), second.end(), file.begin() + kSectionData + 0x90);
  return file;
}

TEST(ToolPeFile, MachineAndImportsAreRead) {
  const std::vector<std::string> imports = {"ONE.dll", "two.DLL"};
  EXPECT_EQ(readPeFile(library(kMachineArm64, true)), (PeFile{kMachineArm64, imports}));
  EXPECT_EQ(readPeFile(library(kMachineX64, true)), (PeFile{kMachineX64, imports}));
  EXPECT_EQ(readPeFile(library(kMachineX86, false)), (PeFile{kMachineX86, imports}));
}

// Puts a load configuration into the file whose pointer to hybrid metadata is `pointer`.
void putLoadConfig(Bytes& file, std::uint32_t size, std::uint32_t low, std::uint32_t high) {
  constexpr std::size_t kDirectory = kOptional + 112 + std::size_t{10} * 8;
  file.resize(kSectionData + 0x300);
  put32(file, kSection + 16, 0x300);
  put32(file, kDirectory, kSectionAddress + 0x200);
  put32(file, kDirectory + 4, size);
  put32(file, kSectionData + 0x200, size);
  put32(file, kSectionData + 0x200 + 200, low);
  put32(file, kSectionData + 0x200 + 204, high);
}

TEST(ToolPeFile, HybridCodeIsTakenForWhatItIs) {
  struct Case {
    const char* what;
    std::uint16_t machine;
    std::uint32_t size;
    std::uint32_t low;
    std::uint32_t high;
    std::uint16_t kind;
  };
  const Case cases[] = {
      {"ARM64X", kMachineArm64, 0x140, 0x1000, 0x1, kMachineArm64X},
      {"ARM64EC", kMachineX64, 0x140, 0x1000, 0x1, kMachineArm64Ec},
      {"high half alone", kMachineX64, 0x140, 0, 0x1, kMachineArm64Ec},
      {"shortest", kMachineX64, 208, 0x1000, 0, kMachineArm64Ec},
      {"too short", kMachineX64, 207, 0x1000, 0x1, kMachineX64},
      {"no metadata", kMachineX64, 0x140, 0, 0, kMachineX64},
      {"no metadata, ARM64", kMachineArm64, 0x140, 0, 0, kMachineArm64},
      {"another machine", 0x01C4, 0x140, 0x1000, 0, 0x01C4},
  };
  for (const Case& row : cases) {
    Bytes file = library(row.machine, true);
    putLoadConfig(file, row.size, row.low, row.high);
    const auto read = readPeFile(file);
    ASSERT_TRUE(read) << row.what;
    EXPECT_EQ(read->machine, row.kind) << row.what;
    EXPECT_EQ(read->imports.size(), 2U) << row.what;
  }
}

TEST(ToolPeFile, SignatureLiesWithinTheFile) {
  struct Case {
    const char* what;
    std::uint32_t place;
    std::uint32_t size;
    bool isSigned;
  };
  const Case cases[] = {
      {"signed", 0x280, 0x80, true},        {"none", 0, 0, false},           {"no place", 0, 0x80, false},
      {"no size", 0x280, 0, false},         {"cut off", 0x280, 0x81, false}, {"outside", 0x1000, 0x80, false},
      {"overflow", 0xFFFFFFFF, 0x2, false},
  };
  for (const Case& row : cases) {
    Bytes file = library(kMachineX64, true);
    put32(file, kOptional + 112 + std::size_t{4} * 8, row.place);
    put32(file, kOptional + 112 + std::size_t{4} * 8 + 4, row.size);
    const auto read = readPeFile(file);
    ASSERT_TRUE(read) << row.what;
    EXPECT_EQ(read->isSigned, row.isSigned) << row.what;
  }
}

TEST(ToolPeFile, ProcessesLoadTheirOwnKindAndWhatIsMadeForIt) {
  struct Case {
    std::uint16_t process;
    std::vector<std::uint16_t> files;
  };
  const Case cases[] = {
      {kMachineArm64, {kMachineArm64, kMachineArm64X}},
      {kMachineX64, {kMachineX64}},
      {kMachineArm64Ec, {kMachineX64, kMachineArm64Ec, kMachineArm64X}},
      {kMachineX86, {kMachineX86}},
  };
  for (const auto& [process, files] : cases) {
    for (const std::uint16_t file : {kMachineArm64, kMachineArm64X, kMachineArm64Ec, kMachineX64, kMachineX86})
      EXPECT_EQ(canLoad(process, file), std::find(files.begin(), files.end(), file) != files.end())
          << machineName(process) << " " << machineName(file);
  }
}

TEST(ToolPeFile, WhatIsNoProgramFileHasNoValue) {
  EXPECT_EQ(readPeFile({}), std::nullopt);
  EXPECT_EQ(readPeFile(Bytes{'M', 'Z'}), std::nullopt);
  struct Case {
    const char* what;
    std::size_t offset;
    std::uint32_t value;
  };
  const Case cases[] = {
      {"first letters", 0, 0},
      {"place of the header", 0x3C, 0xFFFFFFFF},
      {"signature", kHeader, 0x00004551},
      {"kind of the optional header", kOptional, 0x0107},
  };
  for (const Case& row : cases) {
    Bytes file = library(kMachineX64, true);
    put32(file, row.offset, row.value);
    EXPECT_EQ(readPeFile(file), std::nullopt) << row.what;
  }
}

TEST(ToolPeFile, ImportsThatLieOutsideEndTheList) {
  constexpr std::size_t kDirectory = kOptional + 112 + 8;
  struct Case {
    const char* what;
    std::size_t offset;
    std::uint32_t value;
    std::vector<std::string> imports;
  };
  const Case cases[] = {
      {"no directories", kOptional + 108, 1, {}},
      {"no import table", kDirectory, 0, {}},
      {"table before every section", kDirectory, 0x10, {}},
      {"table behind every section", kDirectory, kSectionAddress + 0x100, {}},
      {"first name outside", kSectionData + 0x10 + 12, 0x9000, {}},
      {"second name outside", kSectionData + 0x24 + 12, 0x9000, {"ONE.dll"}},
      {"section outside the file", kSection + 20, 0x10000, {}},
  };
  for (const Case& row : cases) {
    Bytes file = library(kMachineX64, true);
    put32(file, row.offset, row.value);
    EXPECT_EQ(readPeFile(file), (PeFile{kMachineX64, row.imports})) << row.what;
  }
}

// Names may lie upon each other, so that a small file could claim more of them than memory holds.
TEST(ToolPeFile, NamesAndTheirNumberAreLimited) {
  for (const auto& [length, fits] : {std::pair(260U, true), std::pair(261U, false)}) {
    Bytes file = library(kMachineX64, true);
    file.resize(kSectionData + 0x400);
    put32(file, kSection + 16, 0x400);
    put32(file, kSectionData + 0x10 + 12, kSectionAddress + 0x200);
    std::fill_n(file.begin() + kSectionData + 0x200, length, std::uint8_t{'n'});
    const std::vector<std::string> imports = {std::string(length, 'n'), "two.DLL"};
    EXPECT_EQ(readPeFile(file), (PeFile{kMachineX64, fits ? imports : std::vector<std::string>()})) << length;
  }
  constexpr std::uint32_t kDescriptors = 2000;
  Bytes file = library(kMachineX64, true);
  file.resize(kSectionData + 0x10 + (kDescriptors + 1) * 20 + 2);
  put32(file, kSection + 16, static_cast<std::uint32_t>(file.size() - kSectionData));
  const auto name = static_cast<std::uint32_t>(file.size() - 2);
  file[name] = 'n';
  for (std::uint32_t i = 0; i < kDescriptors; ++i)
    put32(file, kSectionData + 0x10 + i * 20 + 12, kSectionAddress + name - kSectionData);
  EXPECT_EQ(readPeFile(file), (PeFile{kMachineX64, std::vector<std::string>(1024, "n")}));
}

TEST(ToolPeFile, EveryShorterFileIsRefusedOrReadInPart) {
  const Bytes whole = library(kMachineX64, true);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    // Of its own size, so that a sanitizer sees every read beyond the end.
    const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    const auto file = readPeFile(part);
    EXPECT_EQ(file.has_value(), size >= kOptional + 2) << size;
    if (file) EXPECT_EQ(file->machine, kMachineX64);
  }
}

TEST(ToolPeFile, MachinesHaveNames) {
  EXPECT_EQ(machineName(kMachineArm64), "ARM64");
  EXPECT_EQ(machineName(kMachineX64), "x64");
  EXPECT_EQ(machineName(kMachineX86), "x86 (32 bits)");
  EXPECT_EQ(machineName(kMachineArm64Ec), "ARM64EC");
  EXPECT_EQ(machineName(kMachineArm64X), "ARM64X");
  EXPECT_EQ(machineName(0x01C4), "0x01C4");
  EXPECT_EQ(processName(kMachineArm64Ec), "x64");
  EXPECT_EQ(processName(kMachineArm64), "ARM64");
}

}  // namespace
}  // namespace orvane::tool
