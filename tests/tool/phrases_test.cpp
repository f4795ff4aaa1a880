#include "text/phrases.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolPhrases, NamesInSentences) {
  EXPECT_EQ(inQuotes("a"), "\"a\"");
  EXPECT_EQ(inQuotes(""), "\"\"");
  EXPECT_EQ(listed({}), "");
  EXPECT_EQ(listed({"a"}), "a");
  EXPECT_EQ(listed({"a", "b", "c"}), "a, b, c");
}

}  // namespace
}  // namespace orvane::tool
