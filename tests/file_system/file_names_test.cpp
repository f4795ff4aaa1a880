// Which file of the card a name stands for.
#include "minidriver/file_system/file_names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string_view>

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
  EXPECT_EQ(certificateFileName("ksc", 0).view(), "ksc0");
  EXPECT_EQ(certificateFileName("kxc", 10).view(), "kxc10");
  EXPECT_EQ(certificateFileName("kxc", SIZE_MAX).view(), "kxc18446744073709551615");
}

}  // namespace
}  // namespace orvane::test
