#include "card/pin_rules.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace orvane::tool {
namespace {

TEST(ToolPinRules, WhatCannotBeAPinIsRefusedWithoutShowingIt) {
  struct Case {
    const char* what;
    std::string pin;
    const char* problem;  // empty: it can be a PIN
    const char* problemOfAnyLength;
  };
  const std::string tooShort = "the PIN is too short";
  const std::string tooLong = "the PIN is too long";
  const std::string blank = "the PIN begins or ends with a blank";
  const std::string control = "the PIN holds a tab or another control character";
  const std::string beyond = "the PIN holds a character beyond A to Z, digits and the signs of ASCII";
  const std::string zero = "the PIN is no plain text: there are zero bytes in it, as in UTF-16";
  const Case cases[] = {
      {"digits", "1234", "", ""},
      {"letters and signs", "aZ!~\"#%&", "", ""},
      {"a blank within", "pass phrase", "", ""},
      {"longest", std::string(63, '7'), "", ""},
      {"nothing", "", "the PIN is empty", "the PIN is empty"},
      {"three", "123", tooShort.c_str(), ""},
      {"sixty-four", std::string(64, '7'), tooLong.c_str(), ""},
      {"longest of any", std::string(256, '7'), tooLong.c_str(), ""},
      {"longer than any", std::string(257, '7'), tooLong.c_str(), tooLong.c_str()},
      {"what echo leaves before a pipe", "1234 ", blank.c_str(), blank.c_str()},
      {"a blank first", " 1234", blank.c_str(), blank.c_str()},
      {"only blanks", "    ", blank.c_str(), blank.c_str()},
      {"a tab", "1234\t", control.c_str(), control.c_str()},
      {"a carriage return within", "12\r34", control.c_str(), control.c_str()},
      {"a deletion", "1234\x7F", control.c_str(), control.c_str()},
      {"one letter as UTF-8", "p\xC3\xA4ss", beyond.c_str(), beyond.c_str()},
      {"the same in a code page", "p\xE4ss", beyond.c_str(), beyond.c_str()},
      {"a byte order mark at the end", "1234\xEF\xBB\xBF", beyond.c_str(), beyond.c_str()},
      {"UTF-16",
       std::string("\xFF\xFE"
                   "1\0002\0003\0004\0",
                   10),
       zero.c_str(), zero.c_str()},
  };
  const auto problemOf = [](const std::string& pin, PinLength length) {
    try {
      requirePossiblePin(pin, length);
    } catch (const ToolError& error) {
      EXPECT_EQ(error.exitCode(), ExitCode::kUsage);
      EXPECT_NE(error.advice().find("no attempt was used up"), std::string::npos);
      if (!pin.empty()) EXPECT_EQ((error.what() + error.advice()).find(pin), std::string::npos);
      return std::string(error.what());
    }
    return std::string();
  };
  for (const Case& row : cases) {
    EXPECT_EQ(problemOf(row.pin, PinLength::kOfTokens), row.problem) << row.what;
    EXPECT_EQ(problemOf(row.pin, PinLength::kAny), row.problemOfAnyLength) << row.what;
  }
}

TEST(ToolPinRules, AttemptsShowOnlyWhenTheyMeanSomething) {
  struct Case {
    std::optional<std::uint32_t> status;
    std::optional<std::uint32_t> attempts;
    const char* text;  // its beginning; empty: nothing
  };
  const Case cases[] = {
      {0x8010006B, 7, "Attempts left: 7"},
      {0x8010006B, 2, "Attempts left: 2"},
      {0x8010006B, 1, "One attempt is left: the next wrong PIN blocks the PIN."},
      {0x8010006B, 0, "No attempt is left: the PIN is blocked."},
      {0x8010006B, 8, "Attempts left: 8, or not known, because 8 also stands there when the token did not answer."},
      {0x8010006B, std::nullopt, "How many attempts are left is not known"},
      {0x8010006C, 0, ""},
      {0x80100004, 8, ""},
      {0x80100069, 3, ""},
      {std::nullopt, std::nullopt, ""},
  };
  for (const Case& row : cases) {
    const std::string text = attemptsText(row.status, row.attempts);
    EXPECT_EQ(text.substr(0, std::string(row.text).size()), row.text);
    EXPECT_EQ(text.empty(), std::string(row.text).empty());
  }
}

}  // namespace
}  // namespace orvane::tool
