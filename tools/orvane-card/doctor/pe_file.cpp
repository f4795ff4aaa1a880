#include "doctor/pe_file.h"

namespace orvane::tool {
namespace {

// Offsets of the published format.
constexpr std::size_t kHeaderOffsetAt = 0x3C;
constexpr std::size_t kFileHeaderSize = 24;  // with the signature before it
constexpr std::size_t kSectionSize = 40;
constexpr std::size_t kImportDescriptorSize = 20;
constexpr std::size_t kImportDirectory = 1;
constexpr std::size_t kSecurityDirectory = 4;
constexpr std::size_t kLoadConfigDirectory = 10;
// Of the pointer to the metadata of hybrid code, in the load configuration of 64-bit files:
// IMAGE_LOAD_CONFIG_DIRECTORY64 in the system's header winnt.h. Files of which kind have it: Microsoft Learn, "Arm64X
// PE files".
constexpr std::size_t kHybridPointerAt = 200;
// What no library has: a file that claims more is damaged or made up, and would cost memory without end.
constexpr std::size_t kLongestName = 260;
constexpr std::size_t kMostImports = 1024;
constexpr std::uint32_t kSignature = 0x00004550;  // "PE", two NULs
constexpr std::uint16_t kMagic32 = 0x010B;
constexpr std::uint16_t kMagic64 = 0x020B;

// Reads numbers that may lie outside the file.
class Numbers {
 public:
  explicit Numbers(ByteView file) : file_(file) {}

  std::optional<std::uint16_t> half(std::size_t offset) const {
    if (offset + 2 > file_.size()) return std::nullopt;
    return readLittleEndian16(file_, offset);
  }

  std::optional<std::uint32_t> word(std::size_t offset) const {
    if (offset + 4 > file_.size()) return std::nullopt;
    return readLittleEndian32(file_, offset);
  }

  // The text up to a NUL; no value when it is not ended within the file, or too long for a library's name.
  std::optional<std::string> text(std::size_t offset) const {
    std::string text;
    for (; offset < file_.size() && text.size() <= kLongestName; ++offset) {
      if (!file_[offset]) return text;
      text += static_cast<char>(file_[offset]);
    }
    return std::nullopt;
  }

 private:
  ByteView file_;
};

// Where the sections lie: finds the place in the file of an address in memory.
struct SectionTable {
  const Numbers& reader;
  std::size_t start;
  std::size_t count;

  std::optional<std::size_t> fileOffset(std::uint32_t address) const {
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t section = start + i * kSectionSize;
      const auto virtualAddress = reader.word(section + 12);
      const auto rawSize = reader.word(section + 16);
      const auto rawOffset = reader.word(section + 20);
      if (!virtualAddress || !rawSize || !rawOffset) return std::nullopt;
      if (address >= *virtualAddress && address - *virtualAddress < *rawSize)
        return std::size_t{*rawOffset} + (address - *virtualAddress);
    }
    return std::nullopt;
  }
};

std::vector<std::string> importsAt(const Numbers& reader, const SectionTable& sections, std::uint32_t tableAddress) {
  std::vector<std::string> imports;
  const auto table = tableAddress ? sections.fileOffset(tableAddress) : std::nullopt;
  if (!table) return imports;
  for (std::size_t descriptor = *table; imports.size() < kMostImports; descriptor += kImportDescriptorSize) {
    const auto nameAddress = reader.word(descriptor + 12);
    if (!nameAddress || !*nameAddress) return imports;
    const auto nameOffset = sections.fileOffset(*nameAddress);
    const auto name = nameOffset ? reader.text(*nameOffset) : std::nullopt;
    if (!name) return imports;
    imports.push_back(*name);
  }
  return imports;
}

struct Directory {
  std::uint32_t address = 0;
  std::uint32_t size = 0;
};

// The entry of the table of directories at `table`; an empty one when there is none.
Directory directoryAt(const Numbers& reader, std::size_t table, std::size_t index) {
  const auto count = reader.word(table - 4);
  const auto address = reader.word(table + index * 8);
  const auto size = reader.word(table + index * 8 + 4);
  if (!count || *count <= index || !address || !size) return {};
  return {*address, *size};
}

bool isHybrid(const Numbers& reader, const SectionTable& sections, std::uint32_t loadConfigAddress) {
  const auto config = loadConfigAddress ? sections.fileOffset(loadConfigAddress) : std::nullopt;
  if (!config || reader.word(*config).value_or(0) < kHybridPointerAt + 8) return false;
  return reader.word(*config + kHybridPointerAt).value_or(0) || reader.word(*config + kHybridPointerAt + 4).value_or(0);
}

std::uint16_t hybridMachine(std::uint16_t machine) {
  if (machine == kMachineX64) return kMachineArm64Ec;
  return machine == kMachineArm64 ? kMachineArm64X : machine;
}

}  // namespace

std::optional<PeFile> readPeFile(ByteView file) {
  const Numbers reader(file);
  if (file.size() < 2 || file[0] != 'M' || file[1] != 'Z') return std::nullopt;
  const auto header = reader.word(kHeaderOffsetAt);
  if (!header || reader.word(*header) != kSignature) return std::nullopt;
  const auto machine = reader.half(std::size_t{*header} + 4);
  const auto sectionCount = reader.half(std::size_t{*header} + 6);
  const auto optionalSize = reader.half(std::size_t{*header} + 20);
  const std::size_t optional = std::size_t{*header} + kFileHeaderSize;
  const auto magic = reader.half(optional);
  if (!machine || !sectionCount || !optionalSize || !magic) return std::nullopt;
  if (*magic != kMagic32 && *magic != kMagic64) return std::nullopt;

  const std::size_t directories = optional + (*magic == kMagic64 ? 112 : 96);
  const SectionTable sections{reader, optional + *optionalSize, *sectionCount};
  const bool hybrid =
      *magic == kMagic64 && isHybrid(reader, sections, directoryAt(reader, directories, kLoadConfigDirectory).address);
  // The one directory whose address is a place in the file.
  const auto [signature, signatureSize] = directoryAt(reader, directories, kSecurityDirectory);
  return PeFile{hybrid ? hybridMachine(*machine) : *machine,
                importsAt(reader, sections, directoryAt(reader, directories, kImportDirectory).address),
                signature && signatureSize && std::size_t{signature} + signatureSize <= file.size()};
}

bool canLoad(std::uint16_t process, std::uint16_t file) {
  if (process == kMachineArm64) return file == kMachineArm64 || file == kMachineArm64X;
  if (process == kMachineArm64Ec) return file == kMachineX64 || file == kMachineArm64Ec || file == kMachineArm64X;
  return process == file;
}

std::string machineName(std::uint16_t machine) {
  switch (machine) {
    case kMachineArm64:
      return "ARM64";
    case kMachineArm64Ec:
      return "ARM64EC";
    case kMachineArm64X:
      return "ARM64X";
    case kMachineX64:
      return "x64";
    case kMachineX86:
      return "x86 (32 bits)";
    default:
      return "0x" + hexNumber(machine, 4);
  }
}

std::string processName(std::uint16_t machine) { return machine == kMachineArm64Ec ? "x64" : machineName(machine); }

}  // namespace orvane::tool
