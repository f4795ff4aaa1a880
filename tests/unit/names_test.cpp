// Pure decisions on names: files and directories of the card, readers, serials, versions, letter case.
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "minidriver/file_names.h"
#include "minidriver/serial_resolution.h"
#include "support/dotted_version.h"
#include "support/driver_test.h"
#include "support/hex_text.h"
#include "support/text_compare.h"

namespace orvane::test {
namespace {

TEST(FileNames, TellTheFile) {
  const struct {
    std::string_view name;
    std::optional<CardFile> file;
  } rows[] = {
      {"cardid", CardFile::kCardId},
      {"CARDID", CardFile::kCardId},
      {"cardcf", CardFile::kCardCf},
      {"CardCF", CardFile::kCardCf},
      {"cmapfile", CardFile::kContainerMap},
      {"CMapFile", CardFile::kContainerMap},
      {"msroots", CardFile::kRootStore},
      {"MSRoots", CardFile::kRootStore},
      {"ksc", CardFile::kSignatureCertificate},
      {"ksc0", CardFile::kSignatureCertificate},
      {"kscrubbish", CardFile::kSignatureCertificate},
      {"kxc", CardFile::kKeyExchangeCertificate},
      {"kxc99", CardFile::kKeyExchangeCertificate},
      {"KSC0", std::nullopt},
      {"Kxc0", std::nullopt},
      {"ks", std::nullopt},
      {"", std::nullopt},
      {"cardi", std::nullopt},
      {"cardid ", std::nullopt},
      {"mscp", std::nullopt},
  };
  for (const auto& row : rows) EXPECT_EQ(cardFileOf(row.name), row.file) << row.name;
}

TEST(FileNames, TellTheDirectory) {
  for (const char* const name : {"mscp", "MSCP", "mScP"}) EXPECT_TRUE(isDirectoryMscp(name)) << name;
  for (const char* const name : {"", "msc", "mscp1", " mscp"}) EXPECT_FALSE(isDirectoryMscp(name)) << name;
}

// The number is read as the C library's atoi does, but never wraps around.
TEST(FileNames, TellTheContainer) {
  const struct {
    std::string_view name;
    std::size_t count;
    std::optional<std::size_t> index;
  } rows[] = {
      {"ksc0", 1, 0},
      {"ksc", 1, 0},
      {"ksc0", 0, std::nullopt},
      {"ksc", 0, std::nullopt},
      {"ksc1", 1, std::nullopt},
      {"ksc1", 2, 1},
      {"ksc10", 11, 10},
      {"ksc10", 10, std::nullopt},
      {"ksc01", 2, 1},
      {"ksc0000000000000000000001", 2, 1},
      {"kscabc", 1, 0},
      {"ksc1abc", 2, 1},
      {"ksc1 2", 2, 1},
      {"ksc 1", 2, 1},
      {"ksc\t\n\v\f\r 1", 2, 1},
      {"ksc+1", 2, 1},
      {"ksc-0", 1, 0},
      {"ksc-1", 2, std::nullopt},
      {"ksc--1", 2, 0},
      {"ksc+-1", 2, 0},
      {"ksc- 1", 2, 0},
      {"ksc2147483647", 2, std::nullopt},
      {"ksc2147483648", 2, std::nullopt},
      {"ksc4294967296", 2, std::nullopt},
      {"ksc4294967297", 2, std::nullopt},
      {"ksc18446744073709551616", 2, std::nullopt},
      {"ksc18446744073709551617", 2, std::nullopt},
      {"ksc99999999999999999999999999999999", 2, std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(containerIndexOf(row.name, row.count), row.index) << row.name << " " << row.count;
}

TEST(FileNames, AreMadeFromTheContainer) {
  EXPECT_EQ(certificateFileName("ksc", 0), "ksc0");
  EXPECT_EQ(certificateFileName("kxc", 10), "kxc10");
}

TEST(SerialResolution, ReaderIndex) {
  const struct {
    std::string_view name;
    std::optional<std::int32_t> index;
  } rows[] = {
      {"", std::nullopt},
      {"Reader", std::nullopt},
      {"1", std::nullopt},
      {"Reader 1", 1},
      {"Reader 00 12", 12},
      {" 3", 3},
      {"Reader ", std::nullopt},
      {"Reader 1 ", std::nullopt},
      {"Reader 1a", std::nullopt},
      {"Reader a1", std::nullopt},
      {"Reader -1", std::nullopt},
      {"Reader +1", std::nullopt},
      {"Reader\t1", std::nullopt},
      {"Reader 2147483647", 2147483647},
      {"Reader 0000000000000001", 1},
  };
  for (const auto& row : rows) EXPECT_EQ(readerIndexOf(row.name), row.index) << row.name;
  for (const char* const name : {"Reader 2147483648", "Reader 99999999999999999999"}) {
    EXPECT_THROW(readerIndexOf(name), std::out_of_range) << name;
  }
}

TEST(SerialResolution, SerialInTheReaderName) {
  const struct {
    std::string_view name;
    std::optional<std::string> serial;
  } rows[] = {
      {"", std::nullopt},
      {"A", std::nullopt},
      {"A B", std::nullopt},
      {"A 1", std::nullopt},
      {"A B C", std::nullopt},
      {"A B 0", "0"},
      {"A B x1y", "x1y"},
      {"A B 12 3", "12"},
      {"A B C 4", std::nullopt},
      {"A  5", "5"},
      {"  7", "7"},
      {"A B ", std::nullopt},
      {"A B  1", std::nullopt},
      {"A\tB\t1", std::nullopt},
  };
  for (const auto& row : rows) EXPECT_EQ(serialInReaderName(row.name), row.serial) << row.name;
}

TEST(SerialResolution, Commands) {
  for (const char* const name : {"OrvaneDSC", "a OrvaneDSC", "OrvaneDSC b", "xOrvaneDSCx"}) {
    EXPECT_EQ(serialCommandFor(name), SerialCommand::kSle) << name;
  }
  for (const char* const name : {"", "OrvaneDS", "OrvaneDsc", "ORVANEDSC", "Orvane DSC", "Smart Token"}) {
    EXPECT_EQ(serialCommandFor(name), SerialCommand::kOrvaneKey) << name;
  }
  const auto sle = serialCommandBytes(SerialCommand::kSle);
  EXPECT_EQ(Bytes(sle.begin(), sle.end()), (Bytes{0xFF, 0xFF, 0x00, 0xD5, 0x00, 0x00, 0x00}));
  const auto key = serialCommandBytes(SerialCommand::kOrvaneKey);
  EXPECT_EQ(Bytes(key.begin(), key.end()), (Bytes{0xFF, 0xFF, 0x00, 0xA2, 0x00}));
}

TEST(SerialResolution, Replies) {
  const struct {
    const char* name;
    Bytes reply;
    std::optional<std::string> sle;
    std::optional<std::string> key;
  } rows[] = {
      {"empty", {}, std::nullopt, std::nullopt},
      {"one byte", {0x90}, std::nullopt, std::nullopt},
      {"a status word alone", {0x90, 0x00}, std::nullopt, std::nullopt},
      {"one character", {'A', 0x90, 0x00}, "A", "A"},
      {"several", {'A', '1', 'b', 0x90, 0x00}, "A1b", "A1b"},
      {"another second byte", {'A', 0x90, 0x01}, std::nullopt, "A"},
      {"another first byte", {'A', 0x6A, 0x00}, std::nullopt, "A"},
      {"a failing status", {'A', 'B', 'C', 0x6A, 0x82}, std::nullopt, "ABC"},
      {"a status word in the middle",
       {'A', 0x90, 0x00, 'B', 0x90, 0x00},
       std::string("A\x90\0B", 4),
       std::string("A\x90\0B", 4)},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(serialInReply(SerialCommand::kSle, row.reply), row.sle) << row.name;
    EXPECT_EQ(serialInReply(SerialCommand::kOrvaneKey, row.reply), row.key) << row.name;
  }
}

TEST(DottedVersions, AreComparedComponentByComponent) {
  const struct {
    std::string_view left;
    std::string_view right;
    int order;
  } rows[] = {
      {"2.0.0", "2.0.0", 0},
      {"2.0", "2.0.0", 0},
      {"2", "2.0.0", 0},
      {"2.0.0.0", "2.0.0", 0},
      {"", "0.0", 0},
      {"", "2.0.0", -1},
      {"1.9.9", "2.0.0", -1},
      {"1.10", "1.9", 1},
      {"2.0.1", "2.0.0", 1},
      {"10.0.0", "2.0.0", 1},
      {"02.00", "2", 0},
      {"2.0.0.1", "2.0.0", 1},
      {"2..1", "2.0.1", 0},
      {".5", "0.5", 0},
      {"2.", "2", 0},
      {"1.99999", "2.0.0", -1},
      {"2.0.0-beta", "2.0.0", 0},
  };
  for (const auto& row : rows) {
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    EXPECT_EQ(sign(compareDottedVersions(row.left, row.right)), row.order) << row.left << " " << row.right;
    EXPECT_EQ(sign(compareDottedVersions(row.right, row.left)), -row.order) << row.right << " " << row.left;
  }
}

// Letters beyond A to Z are only equal to themselves, whatever the process's locale says.
TEST(TextCompare, IgnoresTheCaseOfAToZ) {
  const struct {
    std::string_view left;
    std::string_view right;
    bool isEqual;
  } rows[] = {
      {"", "", true},         {"", "a", false},        {"abc", "ABC", true},   {"aZ", "Az", true},
      {"abc", "abcd", false}, {"abc", "abd", false},   {"[", "{", false},      {"@", "`", false},
      {"a1_", "A1_", true},   {"\xE4", "\xC4", false}, {"\xE4", "\xE4", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(equalsIgnoreCase(row.left, row.right), row.isEqual) << row.left << " " << row.right;
    const std::wstring left(row.left.begin(), row.left.end());
    const std::wstring right(row.right.begin(), row.right.end());
    EXPECT_EQ(equalsIgnoreCase(std::wstring_view(left), std::wstring_view(right)), row.isEqual) << "wide " << row.left;
  }
  // The long s and the Kelvin sign, which some locales fold to s and k.
  EXPECT_FALSE(equalsIgnoreCase(std::wstring_view(L"s"), std::wstring_view(L"\x017F")));
  EXPECT_FALSE(equalsIgnoreCase(std::wstring_view(L"k"), std::wstring_view(L"\x212A")));
}

TEST(HexText, HasTwoUpperCaseDigitsAByte) {
  const Bytes bytes = {0x00, 0x09, 0x0A, 0x9F, 0xF0, 0xFF};
  EXPECT_EQ(hexText(bytes.data(), bytes.size()), "00090A9FF0FF");
  EXPECT_EQ(hexText(bytes.data(), 0), "");
  EXPECT_TRUE(hexText<std::wstring>(bytes.data(), bytes.size()) == L"00090A9FF0FF");
}

}  // namespace
}  // namespace orvane::test
