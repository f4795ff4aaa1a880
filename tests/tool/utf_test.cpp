#include "text/utf.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolUtf, WellFormedTextsConvertBothWays) {
  struct Case {
    std::wstring wide;
    std::string narrow;
  };
  const Case cases[] = {
      {L"", ""},
      {L"Token 1", "Token 1"},
      {{0x7F, 0x80}, "\x7F\xC2\x80"},
      {{0x7FF, 0x800}, "\xDF\xBF\xE0\xA0\x80"},
      {{0xD7FF, 0xE000, 0xFFFF}, "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
      {{0xD800, 0xDC00, 0xDBFF, 0xDFFF}, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(toUtf8(row.wide), row.narrow);
    EXPECT_TRUE(toWide(row.narrow) == row.wide) << row.narrow;
  }
}

TEST(ToolUtf, HalfPairsBecomeTheReplacementCharacter) {
  struct Case {
    std::wstring wide;
    std::string narrow;
  };
  const Case cases[] = {
      {{0xD800}, "\uFFFD"},
      {{0xDC00}, "\uFFFD"},
      {{0xD800, 'A'}, "\uFFFDA"},
      {{'A', 0xDFFF}, "A\uFFFD"},
  };
  for (const Case& row : cases) EXPECT_EQ(toUtf8(row.wide), row.narrow);
}

TEST(ToolUtf, BytesThatAreNoUtf8BecomeTheReplacementCharacter) {
  struct Case {
    std::string narrow;
    std::wstring wide;
  };
  const Case cases[] = {
      {"\x80", {0xFFFD}},                          // continuation without a start
      {"\xC0\x80", {0xFFFD, 0xFFFD}},              // overlong
      {"\xE0\x80\x80", {0xFFFD, 0xFFFD, 0xFFFD}},  // overlong
      {"\xED\xA0\x80", {0xFFFD, 0xFFFD, 0xFFFD}},  // a surrogate
      {"\xF4\x90\x80\x80", {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD}},
      {"\xC3", {0xFFFD}},  // cut off
      {"\xC3\x41", {0xFFFD, 'A'}},
  };
  for (const Case& row : cases) EXPECT_TRUE(toWide(row.narrow) == row.wide) << row.narrow;
}

}  // namespace
}  // namespace orvane::tool
