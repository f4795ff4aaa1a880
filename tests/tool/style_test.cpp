#include "text/style.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolStyle, PaintsOnlyWithColours) {
  struct Case {
    Tone tone;
    const char* text;
    const char* expected;
  };
  const Case cases[] = {
      {Tone::kPlain, "text", "text"},
      {Tone::kGood, "text", "\x1B[32mtext\x1B[0m"},
      {Tone::kWarning, "text", "\x1B[33mtext\x1B[0m"},
      {Tone::kBad, "text", "\x1B[31mtext\x1B[0m"},
      {Tone::kQuiet, "text", "\x1B[90mtext\x1B[0m"},
      {Tone::kStrong, "text", "\x1B[1mtext\x1B[0m"},
      {Tone::kBad, "", ""},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(Style(true).paint(row.tone, row.text), row.expected);
    EXPECT_EQ(Style(false).paint(row.tone, row.text), row.text);
  }
}

}  // namespace
}  // namespace orvane::tool
