#include <gtest/gtest.h>

#include <set>

#include "doctor/report.h"

namespace orvane::tool {
namespace {

constexpr DoctorStep kSteps[] = {
    DoctorStep::kService, DoctorStep::kReader,    DoctorStep::kCard,  DoctorStep::kRegistration, DoctorStep::kDriver,
    DoctorStep::kLibrary, DoctorStep::kAcquire,   DoctorStep::kToken, DoctorStep::kFiles,        DoctorStep::kKeys,
    DoctorStep::kLog,     DoctorStep::kFreshness, DoctorStep::kStore, DoctorStep::kLogon};
static_assert(std::size(kSteps) == kDoctorStepCount);

DoctorReport healthy() {
  DoctorReport report;
  for (const DoctorStep step : kSteps) report.set(step, ok("Fine."));
  return report;
}

TEST(ToolDoctorReport, ChainHoldsWhereNothingIsBroken) {
  DoctorReport report;
  EXPECT_TRUE(report.set(DoctorStep::kReader, ok("a")));
  EXPECT_TRUE(report.set(DoctorStep::kReader, warning("a", "b")));
  EXPECT_FALSE(report.set(DoctorStep::kReader, broken("a", "b")));
  EXPECT_FALSE(report.set(DoctorStep::kReader, Finding{}));
  EXPECT_FALSE(report.at(DoctorStep::kCard).holds());
}

TEST(ToolDoctorReport, FirstBrokenLinkGivesTheExitCode) {
  constexpr int kCodes[] = {3, 3, 3, 4, 4, 4, 4, 11, 11, 11, 11, 11, 11, 11};
  for (std::size_t i = 0; i < std::size(kSteps); ++i) {
    DoctorReport report = healthy();
    EXPECT_EQ(report.exitCode(), ExitCode::kSuccess);
    EXPECT_EQ(report.verdict(), StepState::kOk);
    report.set(kSteps[i], warning("Odd.", "Look."));
    EXPECT_EQ(static_cast<int>(report.exitCode()), 12);
    EXPECT_EQ(report.verdict(), StepState::kWarning);
    report.set(kSteps[i], broken("Broken.", "Mend."));
    EXPECT_EQ(static_cast<int>(report.exitCode()), kCodes[i]) << doctorStepName(kSteps[i]);
    EXPECT_EQ(report.verdict(), StepState::kBroken);
  }
  DoctorReport report = healthy();
  report.set(DoctorStep::kReader, warning("Odd.", "Look."));
  report.set(DoctorStep::kLibrary, broken("Broken.", "Mend."));
  report.set(DoctorStep::kKeys, broken("Broken.", "Mend."));
  report.set(DoctorStep::kFreshness, Finding{});
  EXPECT_EQ(report.exitCode(), ExitCode::kDriver);
  EXPECT_EQ(report.summary(),
            "The chain is broken at \"Token library\"; begin there. In all: 2 links broken, 1 warning.");
}

TEST(ToolDoctorReport, SummarySaysUpToWhereTheChainHolds) {
  const std::string pin = " The PIN was not tried; \"orvane-card pin verify\" says whether it is right or blocked.";
  const std::string stored = "The chain holds: the certificates are in this user's store, where programs find them";
  const std::string unknown =
      " \"Certificate store\" could not be looked at, so whether programs show the certificates is not known: look "
      "there "
      "next, with certmgr.msc, below Personal.";
  DoctorReport report = healthy();
  EXPECT_EQ(report.summary(), stored + "." + pin);
  report.set(DoctorStep::kLog, warning("Odd.", "Look."));
  EXPECT_EQ(report.summary(), stored + ", with 1 warning, first at \"Log\"." + pin);
  report.set(DoctorStep::kStore, Finding{});
  EXPECT_EQ(report.summary(),
            "The chain holds up to \"Keys and certificates\", with 1 warning, first at \"Log\"." + unknown + pin);
  report.set(DoctorStep::kLog, ok("Fine."));
  EXPECT_EQ(report.summary(), "The chain holds up to \"Keys and certificates\"." + unknown + pin);
  report.set(DoctorStep::kKeys, warning("Expired.", "Renew."));
  EXPECT_EQ(
      report.summary(),
      "Nothing is broken. The chain holds up to \"Files of the card\"; \"Keys and certificates\" has to be looked at "
      "next. In all: 1 warning. \"Certificate store\" could not be looked at, so whether programs show the "
      "certificates is not known: look there then, with certmgr.msc, below Personal." +
          pin);
  report.set(DoctorStep::kStore, warning("Not trusted.", "Install."));
  EXPECT_EQ(
      report.summary(),
      "Nothing is broken. The chain holds up to \"Files of the card\"; \"Keys and certificates\" has to be looked at "
      "next. In all: 2 warnings." +
          pin);
  report.set(DoctorStep::kService, warning("Odd.", "Look."));
  EXPECT_EQ(report.summary(),
            "Nothing is broken, but \"Smart-card service\" has to be looked at. In all: 3 warnings." + pin);
  report.set(DoctorStep::kService, ok("Fine."));
  report.set(DoctorStep::kKeys, ok("Fine."));
  report.set(DoctorStep::kFreshness, warning("Odd.", "Look."));
  EXPECT_EQ(
      report.summary(),
      "Nothing is broken. The chain holds up to \"Keys and certificates\"; \"Freshness numbers\" has to be looked "
      "at next. In all: 2 warnings." +
          pin);
  report.set(DoctorStep::kKeys, warning("Expired.", "Renew."));
  report.set(DoctorStep::kFreshness, broken("Broken.", "Mend."));
  EXPECT_EQ(report.summary(),
            "The chain is broken at \"Freshness numbers\"; begin there. In all: 1 link broken, 2 warnings.");
}

TEST(ToolDoctorReport, NamesAreDifferent) {
  std::set<std::string_view> names;
  std::set<std::string_view> titles;
  for (const DoctorStep step : kSteps) {
    EXPECT_TRUE(names.insert(doctorStepName(step)).second) << doctorStepName(step);
    EXPECT_TRUE(titles.insert(doctorStepTitle(step)).second) << doctorStepTitle(step);
  }
}

TEST(ToolDoctorReport, TextShowsEveryLink) {
  DoctorReport report = healthy();
  report.set(DoctorStep::kCard, warning("Another card.", "Look."));
  report.set(DoctorStep::kRegistration, broken("No entry.", "Install."));
  report.set(DoctorStep::kDriver, Finding{});
  EXPECT_EQ(report.text(0, kDoctorStepCount, Style(false), 0),
            "ok           Smart-card service     Fine.\n"
            "ok           Card reader            Fine.\n"
            "warning      Card in the reader     Another card.\n"
            "             What to do: Look.\n"
            "broken       Registration           No entry.\n"
            "             What to do: Install.\n"
            "not reached  Minidriver file\n"
            "ok           Token library          Fine.\n"
            "ok           Minidriver starts      Fine.\n"
            "ok           Token                  Fine.\n"
            "ok           Files of the card      Fine.\n"
            "ok           Keys and certificates  Fine.\n"
            "ok           Log                    Fine.\n"
            "ok           Freshness numbers      Fine.\n"
            "ok           Certificate store      Fine.\n"
            "ok           Logon process          Fine.\n");
  EXPECT_TRUE(report.text(0, kDoctorStepCount, Style(true), 0)
                  .starts_with("\x1B[32mok           \x1B[0m\x1B[1mSmart-card service     \x1B[0mFine.\n"
                               "\x1B[32mok           \x1B[0m\x1B[1mCard reader            \x1B[0mFine.\n"
                               "\x1B[33mwarning      \x1B[0m\x1B[1mCard in the reader     \x1B[0mAnother card.\n"
                               "             What to do: Look.\n"
                               "\x1B[31mbroken       \x1B[0m"));
}

TEST(ToolDoctorReport, TextKeepsToTheWidth) {
  DoctorReport report;
  report.set(DoctorStep::kService, broken("One two three four.", "Five six seven eight nine."));
  EXPECT_TRUE(report.text(0, kDoctorStepCount, Style(false), 46)
                  .starts_with("broken       Smart-card service     One two\n"
                               "                                    three\n"
                               "                                    four.\n"
                               "             What to do: Five six seven eight\n"
                               "             nine.\n"
                               "not reached  Card reader\n"));
}

TEST(ToolDoctorReport, JsonShowsEveryLink) {
  DoctorReport report;
  report.set(DoctorStep::kService, ok("Fine."));
  report.set(DoctorStep::kReader, broken("None.", "Plug."));
  const Json json = report.json();
  EXPECT_EQ(json["verdict"], "broken");
  ASSERT_EQ(json["steps"].size(), kDoctorStepCount);
  EXPECT_EQ(json["steps"][0].dump(),
            R"({"step":"service","title":"Smart-card service","state":"ok","finding":"Fine.","advice":null})");
  EXPECT_EQ(json["steps"][1].dump(),
            R"({"step":"reader","title":"Card reader","state":"broken","finding":"None.","advice":"Plug."})");
  EXPECT_EQ(json["steps"][2].dump(), R"({"step":"card","title":"Card in the reader","state":"not reached",)"
                                     R"("finding":null,"advice":null})");
}

TEST(ToolDoctorReport, ShowsSomeLinksAndNoCommandsToTheTerminal) {
  DoctorReport report;
  report.set(DoctorStep::kReader, broken("A reader \"\x1B[2J\xC2\x9B\".", "Take\tit out."));
  EXPECT_EQ(report.text(1, 3, Style(false), 0),
            "broken       Card reader            A reader \".[2J.\".\n"
            "             What to do: Take.it out.\n"
            "not reached  Card in the reader\n");
  EXPECT_EQ(report.text(1, 1, Style(false), 0), "");
}

}  // namespace
}  // namespace orvane::tool
