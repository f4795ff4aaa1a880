// What the trial reads off the output of a test program that passes, fails or dies.
#include "test_output.h"

#include <gtest/gtest.h>

#include <ostream>

namespace orvane::trial {

void PrintTo(const Suite& suite, std::ostream* stream) { *stream << suite.name << " " << suite.tests.size(); }

namespace {

// A result in one line, as "failed Suite.Name 0.012 detail".
std::string lineOf(const Result& result) {
  const char* const states[] = {"passed", "failed", "not tried"};
  std::string line = std::string(states[static_cast<int>(result.state)]) + " " + result.suite + "." + result.name +
                     " " + std::to_string(static_cast<int>(result.seconds * 1000 + 0.5));
  return result.detail.empty() ? line : line + " " + result.detail;
}

using Lines = std::vector<std::string>;

Lines linesIn(std::string_view output, const Suite& suite, std::string_view end) {
  Lines lines;
  for (const Result& result : resultsIn(output, suite, "subject", end)) {
    EXPECT_EQ(result.subject, "subject");
    lines.push_back(lineOf(result));
  }
  return lines;
}

const Suite kSuite{"Group/Suite", {"First/0", "Second", "Third"}};

constexpr std::string_view kHead =
    "Running main() from somewhere\nNote: Google Test filter = Group/Suite.*\n[==========] Running 3 tests\n"
    "[----------] 3 tests from Group/Suite\n";

TEST(TrialTestOutput, ListsSuitesAndTheirTests) {
  const std::vector<Suite> suites = suitesIn(
      "Running main() from somewhere\r\nPlain.\r\n  One\r\n  Two\r\nGroup/Suite.  # TypeParam = int\r\n"
      "  First/0  # GetParam() = 4-byte object <00>\r\n");
  ASSERT_EQ(suites.size(), 2u);
  EXPECT_EQ(suites[0].name, "Plain");
  EXPECT_EQ(suites[0].tests, (Lines{"One", "Two"}));
  EXPECT_EQ(suites[1].name, "Group/Suite");
  EXPECT_EQ(suites[1].tests, (Lines{"First/0"}));
  EXPECT_TRUE(suitesIn("").empty());
  EXPECT_TRUE(suitesIn("  no list\nThe program cannot start.\n").empty());
}

TEST(TrialTestOutput, ReadsPassedFailedAndSkipped) {
  const std::string output = std::string(kHead) +
                             "[ RUN      ] Group/Suite.First/0\r\n"
                             "[       OK ] Group/Suite.First/0 (12 ms)\r\n"
                             "[ RUN      ] Group/Suite.Second\n"
                             "tests/a.cpp:3: Failure\n\nExpected: 1\n"
                             "[  FAILED  ] Group/Suite.Second, where GetParam() = 7 (3 ms)\n"
                             "[ RUN      ] Group/Suite.Third\n"
                             "no such thing here\n"
                             "[  SKIPPED ] Group/Suite.Third (0 ms)\n"
                             "[  FAILED  ] 1 test, listed below:\n[  FAILED  ] Group/Suite.Second\n";
  EXPECT_EQ(linesIn(output, kSuite, ""),
            (Lines{"passed Group/Suite.First/0 12", "failed Group/Suite.Second 3 tests/a.cpp:3: Failure\nExpected: 1\n",
                   "not tried Group/Suite.Third 0 no such thing here\n"}));
}

// The minidriver writes to standard output without a line end of its own.
TEST(TrialTestOutput, FindsAMarkerBehindOtherText) {
  const std::string output = std::string(kHead) +
                             "[ RUN      ] Group/Suite.First/0\n\nUnable to write log[       OK ] "
                             "Group/Suite.First/0 (1 ms)\nUnable to write log[ RUN      ] Group/Suite.Second\n"
                             "[       OK ] Group/Suite.Second (2 ms)\n[ RUN      ] Group/Suite.Third\n"
                             "[       OK ] Group/Suite.Third (3 ms)\n";
  EXPECT_EQ(linesIn(output, kSuite, ""),
            (Lines{"passed Group/Suite.First/0 1", "passed Group/Suite.Second 2", "passed Group/Suite.Third 3"}));
}

TEST(TrialTestOutput, TheTestThatRanWhenTheProgramDiedHasFailed) {
  const std::string output = std::string(kHead) +
                             "[ RUN      ] Group/Suite.First/0\n[       OK ] Group/Suite.First/0 (1 ms)\n"
                             "[ RUN      ] Group/Suite.Second\nsome text";
  EXPECT_EQ(linesIn(output, kSuite, "the program ended with 0xC0000005"),
            (Lines{"passed Group/Suite.First/0 1",
                   "failed Group/Suite.Second 0 some text\nthe program ended with 0xC0000005\n",
                   "not tried Group/Suite.Third 0 the program had ended before"}));
  EXPECT_EQ(linesIn(output, kSuite, "")[1],
            "failed Group/Suite.Second 0 some text\nthe program ended without a word\n");
}

TEST(TrialTestOutput, ADeathOutsideOfTheTestsIsAFailureOfItsOwn) {
  const Suite one{"Suite", {"Only"}};
  EXPECT_EQ(linesIn("[ RUN      ] Suite.Only\n[       OK ] Suite.Only (1 ms)\n", one, "the program ended with 3"),
            (Lines{"passed Suite.Only 1", "failed Suite.(the end of the program) 0 the program ended with 3"}));
  EXPECT_EQ(linesIn("", one, "the program cannot be started"),
            (Lines{"not tried Suite.Only 0 the program had ended before",
                   "failed Suite.(the end of the program) 0 the program cannot be started"}));
  // A program that says it did well and did nothing.
  EXPECT_EQ(linesIn("", one, ""), (Lines{"not tried Suite.Only 0 the program had ended before"}));
}

// All suites of one process in one line each, with "|" between two suites.
std::string inTurn(std::string_view output, const std::vector<Suite>& suites, std::string_view end) {
  std::string all;
  for (const std::vector<Result>& some : resultsInTurn(output, suites, end)) {
    all += all.empty() ? "" : "| ";
    for (const Result& result : some) all += result.subject.substr(0, 7) + ": " + lineOf(result) + " ";
  }
  return all;
}

TEST(TrialTestOutput, SeveralSuitesOfOneProcess) {
  const std::vector<Suite> suites = {{"Log", {"One", "Two"}}, {"LogFile", {"One"}}, {"Reader", {"One"}}};
  const std::string first = "[ RUN      ] Log.One\n[       OK ] Log.One (1 ms)\n[ RUN      ] Log.Two\n";
  const std::string second = first + "[       OK ] Log.Two (2 ms)\n[ RUN      ] LogFile.One\n";
  const std::string third = second + "[  FAILED  ] LogFile.One (3 ms)\n[ RUN      ] Reader.One\n";
  const std::string whole = third + "[       OK ] Reader.One (4 ms)\n";
  struct Row {
    const char* what;
    std::string output, end, results;
  };
  const Row rows[] = {
      {"to the end", whole, "",
       "The log: passed Log.One 1 The log: passed Log.Two 2 | The log: failed LogFile.One 3 "
       "| What a : passed Reader.One 4 "},
      {"an end that is no good belongs to the last suite", whole, "E",
       "The log: passed Log.One 1 The log: passed Log.Two 2 | The log: failed LogFile.One 3 "
       "| What a : passed Reader.One 4 What a : failed Reader.(the end of the program) 0 E "},
      {"died in the second suite: the third has not been tried", second, "E",
       "The log: passed Log.One 1 The log: passed Log.Two 2 | The log: failed LogFile.One 0 E\n "},
      {"died in the first", first, "E", "The log: passed Log.One 1 The log: failed Log.Two 0 E\n "},
      {"died before the first", "", "E",
       "The log: not tried Log.One 0 the program had ended before The log: not tried Log.Two 0 the program had ended "
       "before The log: failed Log.(the end of the program) 0 E "},
      {"ended without a word", third, "",
       "The log: passed Log.One 1 The log: passed Log.Two 2 | The log: failed LogFile.One 3 "
       "| What a : failed Reader.One 0 the program ended without a word\n "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(inTurn(row.output, suites, row.end), row.results);
  }
}

TEST(TrialTestOutput, SuitesHaveTheirSubjects) {
  EXPECT_EQ(subjectOf("ToolReader"), "The support tool, inside");
  EXPECT_EQ(subjectOf("Unload/Ends"), "Loading, unloading, the end of a process");
  EXPECT_EQ(subjectOf("Reader"), "What a program asks the minidriver for");
}

}  // namespace
}  // namespace orvane::trial
