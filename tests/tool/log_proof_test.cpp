#include <gtest/gtest.h>

#include "log/proof.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

const std::string kLogLine = "15/11::10:03:25:123-> ->ERROR ::=>text";

std::vector<LogLine> parsed(const std::vector<std::string>& texts) {
  std::vector<LogLine> lines;
  for (const std::string& text : texts) lines.push_back(parseLogLine(text));
  return lines;
}

TEST(ToolLogProof, NothingShowsBeforeTheFirstLineOfALog) {
  LogProof proof(false);
  EXPECT_EQ(proof.pass(parsed({"the end", "of a message"})).size(), 0U);
  EXPECT_EQ(proof.pass(parsed({kLogLine, "more of it"})), parsed({"the end", "of a message", kLogLine, "more of it"}));
  EXPECT_EQ(proof.pass(parsed({"anything"})).size(), 1U);
  proof.atEnd();
}

TEST(ToolLogProof, AFileWithoutSuchALineIsRefused) {
  struct Case {
    const char* what;
    std::vector<std::string> lines;
    const char* advice;
  };
  const Case cases[] = {
      {"a text", {"Dear support,", "it does not work."}, "A log is named like"},
      {"a log as PowerShell saves it",
       {std::string("\xFF\xFE"
                    "1\0005\0/\0",
                    8)},
       "It is saved as UTF-16"},
      {"an empty line", {""}, "A log is named like"},
  };
  for (const Case& row : cases) {
    LogProof proof(false);
    EXPECT_EQ(proof.pass(parsed(row.lines)).size(), 0U) << row.what;
    try {
      proof.atEnd();
      ADD_FAILURE() << row.what;
    } catch (const ToolError& error) {
      EXPECT_EQ(error.exitCode(), ExitCode::kUsage) << row.what;
      EXPECT_TRUE(error.advice().starts_with(row.advice)) << row.what;
    }
  }
  LogProof endless(false);
  const auto line = parsed({std::string(1 << 20, 'x')});
  for (int i = 0; i < 4; ++i) EXPECT_EQ(endless.pass(line).size(), 0U);
  EXPECT_THROW(endless.pass(line), ToolError);
}

TEST(ToolLogProof, EmptyAndKnownFilesPass) {
  LogProof(false).atEnd();
  LogProof known(true);
  EXPECT_EQ(known.pass(parsed({"old"})).size(), 1U);
  known.atEnd();
}

}  // namespace
}  // namespace orvane::tool
