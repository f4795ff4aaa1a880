#include "doctor/pe_file.h"

namespace orvane::tool {
namespace {

// Offsets of the published format.
constexpr std::size_t kHeaderOffsetAt = 0x3C;
constexpr std::size_t kFileHeaderSize = 24;  // with the signature before it
constexpr std::size_t kSectionSize = 40;
constexpr std::size_t kImportDescriptorSize = 20;
constexpr std::size_t kImportDirectory = 1;
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
  const auto directoryCount = reader.word(directories - 4);
  const auto importTable = reader.word(directories + kImportDirectory * 8);
  const SectionTable sections{reader, optional + *optionalSize, *sectionCount};
  const bool hasImports = directoryCount && *directoryCount > kImportDirectory && importTable;
  return PeFile{*machine, importsAt(reader, sections, hasImports ? *importTable : 0)};
}

std::string machineName(std::uint16_t machine) {
  switch (machine) {
    case kMachineArm64:
      return "ARM64";
    case kMachineX64:
      return "x64";
    case kMachineX86:
      return "x86 (32 bits)";
    default:
      return "0x" + hexNumber(machine, 4);
  }
}

}  // namespace orvane::tool
