#include "card/card_type.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolAtrMatches, ComparesUnderTheMask) {
  const Bytes atr = {0x3B, 0x8E, 0x4C};
  struct Case {
    const char* what;
    CardType type;
    bool matches;
  };
  const Case cases[] = {
      {"equal, no mask", {"", {0x3B, 0x8E, 0x4C}, {}, ""}, true},
      {"different, no mask", {"", {0x3B, 0x8E, 0x4D}, {}, ""}, false},
      {"equal under a full mask", {"", {0x3B, 0x8E, 0x4C}, {0xFF, 0xFF, 0xFF}, ""}, true},
      {"differs in masked bits, stored masked", {"", {0x3B, 0x80, 0x4C}, {0xFF, 0xF0, 0xFF}, ""}, true},
      {"stored without the mask applied", {"", {0x3B, 0x8E, 0x4C}, {0xFF, 0xF0, 0xFF}, ""}, false},
      {"shorter", {"", {0x3B, 0x8E}, {}, ""}, false},
      {"longer", {"", {0x3B, 0x8E, 0x4C, 0x00}, {}, ""}, false},
      {"mask too short", {"", {0x3B, 0x8E, 0x4C}, {0xFF, 0xFF}, ""}, false},
      {"no ATR stored", {"", {}, {}, ""}, false},
  };
  for (const Case& row : cases) EXPECT_EQ(atrMatches(atr, row.type), row.matches) << row.what;
}

TEST(ToolCardType, TheMinidriversFileIsKnownByItsName) {
  for (const char* path : {"OrvaneMinidriver.dll", "C:\\a\\orvaneminidriver.DLL", "C:/a/OrvaneMinidriver.dll"})
    EXPECT_TRUE(isMinidriverFile(path)) << path;
  for (const char* path :
       {"", "other.dll", "C:\\OrvaneMinidriver.dll\\other.dll", "OrvaneMinidriver.dll2", "NotOrvaneMinidriver.dll"})
    EXPECT_FALSE(isMinidriverFile(path)) << path;
}

TEST(ToolAtrMatches, NoCardMatchesNothing) { EXPECT_FALSE(atrMatches({}, {"", {}, {}, ""})); }

}  // namespace
}  // namespace orvane::tool
