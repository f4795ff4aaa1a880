#include "text/utf.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolUtf, WellFormedTextsAreConverted) {
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
  for (const Case& row : cases) EXPECT_EQ(toUtf8(row.wide), row.narrow);
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

TEST(ToolUtf, BytesAreTakenInPairsTheLowOneFirst) {
  EXPECT_EQ(toUtf8(Bytes{}), "");
  EXPECT_EQ(toUtf8(Bytes{'A', 0, 0, 0, 0x3D, 0xD8, 0x00, 0xDE}), std::string("A\0\xF0\x9F\x98\x80", 6));
  EXPECT_EQ(toUtf8(Bytes{'A', 0, 'B'}), "A");
}

}  // namespace
}  // namespace orvane::tool
