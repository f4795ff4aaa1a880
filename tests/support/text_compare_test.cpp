// Small tools for texts: letter case, dotted versions, hexadecimal digits.
#include "support/text_compare.h"

#include <string>
#include <string_view>

#include "harness/driver_test.h"
#include "support/dotted_version.h"
#include "support/hex_text.h"

namespace orvane::test {
namespace {

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
      {" 2.0.0", "2.0.0", -1},
      {" 2.0.0", "0", 0},
      {"v2", "0", 0},
      {"2.", "2", 0},
      {"1.99999", "2.0.0", -1},
      {"2.0.0-beta", "2.0.0", 0},
      {"2b.0", "2", 0},
      {"1.9", "1.8", 1},
      {"3000000000", "2000000000", 1},
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
