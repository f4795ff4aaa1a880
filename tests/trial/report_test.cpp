// The two reports of the trial.
#include "report.h"

#include <gtest/gtest.h>

namespace orvane::trial {
namespace {

const Head kHeadOfReport{"1.2.3", "2026-11-21 23:45", 61.4, {{"Windows", "10.0.26100.1"}, {"Processor", "ARM64"}}};

const std::vector<Result> kResults = {
    {"Starting", "Trial", "Loads a.dll", State::kPassed, 0.25, ""},
    {"The log", "LogFile", "Writes", State::kFailed, 1.5, "a < b & \"c\"\n\x01\xC3\xA4\n"},
    {"Starting", "Trial", "Looks", State::kNotTried, 0, "no reader"},
};

TEST(TrialReport, TheTextIsReadTopDown) {
  EXPECT_EQ(summaryText(kHeadOfReport, kResults),
            "Trial of the Orvane minidriver 1.2.3\n"
            "2026-11-21 23:45, 61 seconds\n"
            "\n"
            "SOMETHING FAILED: 1 passed, 1 failed, 1 could not be tried\n"
            "\n"
            "This machine\n"
            "  Windows                       10.0.26100.1\n"
            "  Processor                     ARM64\n"
            "\n"
            "What                                                  passed  failed  not tried\n"
            "  Starting                                                 1       0          1\n"
            "  The log                                                  0       1          0\n"
            "\n"
            "Failed\n"
            "  - LogFile.Writes\n"
            "      a < b & \"c\"\n"
            "      \x01\xC3\xA4\n"
            "\n"
            "Could not be tried\n"
            "  - Trial.Looks\n"
            "      no reader\n"
            "\n"
            "In this folder: junit.xml has every single result, facts\\ what was collected about the machine.\n"
            "Please send the whole folder to the people who gave you this kit, also when nothing failed.\n");
}

TEST(TrialReport, LongDetailsAreCut) {
  std::string detail;
  for (int i = 0; i < 20; ++i) detail += "line " + std::to_string(i) + "\n";
  const std::string text = summaryText(kHeadOfReport, {{"S", "Suite", "Test", State::kFailed, 0, detail}});
  EXPECT_NE(text.find("      line 11\n      ... (all of it: junit.xml)\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("line 12"), std::string::npos);
}

TEST(TrialReport, NothingFailed) {
  const std::string text = summaryText(kHeadOfReport, {kResults[0], kResults[2]});
  EXPECT_NE(text.find("\nNOTHING FAILED: 1 passed, 0 failed, 1 could not be tried\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("\nFailed\n"), std::string::npos);
}

TEST(TrialReport, JUnitHasASuiteForEachSubject) {
  EXPECT_EQ(junitText(kResults),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<testsuites>\n"
            "<testsuite name=\"Starting\" tests=\"2\" failures=\"0\" skipped=\"1\">\n"
            "<testcase classname=\"Trial\" name=\"Loads a.dll\" time=\"0.250\"/>\n"
            "<testcase classname=\"Trial\" name=\"Looks\" time=\"0.000\"><skipped message=\"no reader\"/></testcase>\n"
            "</testsuite>\n"
            "<testsuite name=\"The log\" tests=\"1\" failures=\"1\" skipped=\"0\">\n"
            "<testcase classname=\"LogFile\" name=\"Writes\" time=\"1.500\">"
            "<failure message=\"a &lt; b &amp; &quot;c&quot;&#10;???&#10;\"/></testcase>\n"
            "</testsuite>\n"
            "</testsuites>\n");
}

}  // namespace
}  // namespace orvane::trial
