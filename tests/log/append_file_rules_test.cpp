// What is decided about paths below a folder, without a file being touched.
#include "platform/append_file_rules.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {
namespace {

TEST(AppendFileRules, APathComesInParts) {
  const struct {
    std::string_view path;
    std::vector<std::string> parts;
    bool isFileName;
  } rows[] = {
      {"", {}, false},
      {"/", {}, false},
      {"///", {}, false},
      {"name", {"name"}, true},
      {"/Brightfold/lsass/2026-11-15.LOG", {"Brightfold", "lsass", "2026-11-15.LOG"}, true},
      {"/Brightfold//2026-11-15.LOG", {"Brightfold", "2026-11-15.LOG"}, true},
      {"/Brightfold/two words/", {"Brightfold", "two words"}, false},
      {"//a//", {"a"}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    std::string_view rest = row.path;
    std::vector<std::string> parts;
    for (std::string_view part = takePathPart(rest); !part.empty(); part = takePathPart(rest)) parts.emplace_back(part);
    EXPECT_EQ(parts, row.parts);
    EXPECT_TRUE(rest.empty());
    EXPECT_EQ(isFileName(row.path), row.isFileName);
  }
}

// Nothing is left behind the last part: that is how the last one is known.
TEST(AppendFileRules, TheLastPartLeavesNothing) {
  std::string_view rest = "/a/b/";
  EXPECT_EQ(takePathPart(rest), "a");
  EXPECT_EQ(rest, "b/");
  EXPECT_EQ(takePathPart(rest), "b");
  EXPECT_EQ(rest, "");
}

// The kernel knows one separator and takes every character for a part of the name. A separator at the end keeps blanks
// and dots before it, as in a path that is given to Windows as a whole.
TEST(AppendFileRules, TheKernelsForm) {
  const struct {
    std::string_view below;
    std::string_view name;
  } rows[] = {
      {"/Brightfold/lsass/2026-11-15.LOG", "Brightfold\\lsass\\2026-11-15.LOG"},
      {"/Brightfold//2026-11-15.LOG", "Brightfold\\2026-11-15.LOG"},
      {"/Brightfold/lsass/", "Brightfold\\lsass"},
      {"/Brightfold", "Brightfold"},
      {"/Brightfold/lsass/2026-11-15.", "Brightfold\\lsass\\2026-11-15"},
      {"/Brightfold/blank ", "Brightfold\\blank"},
      {"/Brightfold/blank /", "Brightfold\\blank "},
      {"/Brightfold/ ", "Brightfold"},
      {" . ", ""},
      {"/", ""},
      {"", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.below);
    EXPECT_EQ(windowsNameBelow(row.below), row.name);
  }
}

TEST(AppendFileRules, WhatTheKernelAnswers) {
  const struct {
    std::uint32_t status;
    BelowResult result;
  } rows[] = {
      {0x00000000, BelowResult::kDone},    {0xC000050B, BelowResult::kLedAway},  // a reparse point was met
      {0x00000108, BelowResult::kLedAway},                                       // another's oplock: not waited for
      {0xC0000022, BelowResult::kFailed},                                        // access denied
      {0xC0000034, BelowResult::kFailed},                                        // no such name
      {0xC0000035, BelowResult::kFailed},                                        // there is one already
      {0xC00000BA, BelowResult::kFailed},                                        // a folder
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.status);
    EXPECT_EQ(openResultOf(static_cast<std::int32_t>(row.status)), row.result);
  }
}

TEST(AppendFileRules, AFileThatIsOnlyHere) {
  EXPECT_TRUE(isOnlyHere(1, false));
  EXPECT_TRUE(isOnlyHere(0, false));
  EXPECT_FALSE(isOnlyHere(2, false));
  EXPECT_FALSE(isOnlyHere(1, true));
  EXPECT_FALSE(isOnlyHere(0, true));
}

}  // namespace
}  // namespace orvane::test
