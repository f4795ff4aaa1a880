#include <gtest/gtest.h>

#include "doctor/checks.h"
#include "doctor/words.h"

namespace orvane::tool {
namespace {

constexpr std::uint32_t kNoService = 0x8010001D;
constexpr std::uint32_t kServiceStopped = 0x8010001E;

TEST(ToolDoctorService, EachWayNotToAnswerHasItsRow) {
  struct Case {
    const char* what;
    std::uint32_t status;  // 0: the service answered
    ServiceState state;
    bool isRemote;
    const char* part;
    const char* advice;
  };
  const Case cases[] = {
      {"answers", 0, ServiceState::kUnknown, false, "The smart-card service runs.", ""},
      {"answers in a remote session", 0, ServiceState::kUnknown, true, "runs. This is a remote session: ", ""},
      {"no reader ever", kNoService, ServiceState::kStopped, false, "no reader has been attached", "Plug the token in"},
      {"last reader gone", kServiceStopped, ServiceState::kStopped, false, "the last reader was unplugged",
       "Plug the token in"},
      {"stopped, state unknown", kServiceStopped, ServiceState::kUnknown, false, "the last reader was unplugged",
       "sc.exe start SCardSvr"},
      {"disabled", kNoService, ServiceState::kDisabled, false, "The service is disabled", "start= demand"},
      {"disabled while it ran", kServiceStopped, ServiceState::kDisabled, false, "The service is disabled",
       "start= demand"},
      {"hangs", kNoService, ServiceState::kRunning, false, "The service runs all the same", "sc.exe stop SCardSvr"},
      {"remote session", kNoService, ServiceState::kStopped, true,
       "This is a remote session: ", "in the remote-desktop program"},
      {"no such service", kNoService, ServiceState::kMissing, false, "SCARD_E_NO_SERVICE (0x8010001D)",
       "Plug the token in"},
      {"cannot be asked", kNoService, ServiceState::kUnknown, false, "SCARD_E_NO_SERVICE (0x8010001D)",
       "Plug the token in"},
  };
  for (const Case& row : cases) {
    SmartCardServiceFacts facts;
    if (row.status) facts.error = ToolError("SCardEstablishContext", row.status);
    facts.state = row.state;
    facts.isRemote = row.isRemote;
    const Finding finding = judgeService(facts);
    EXPECT_EQ(finding.state, row.status ? StepState::kBroken : StepState::kOk) << row.what;
    EXPECT_NE(finding.text.find(row.part), std::string::npos) << row.what << ": " << finding.text;
    EXPECT_TRUE(finding.text.ends_with('.')) << row.what << ": " << finding.text;
    EXPECT_NE(finding.advice.find(row.advice), std::string::npos) << row.what << ": " << finding.advice;
    EXPECT_EQ(finding.advice.empty(), row.status == 0) << row.what;
    // The status is what somebody looks for elsewhere.
    if (row.status)
      EXPECT_TRUE(finding.text.starts_with(capitalised(inWords(*facts.error)))) << row.what << ": " << finding.text;
  }
}

}  // namespace
}  // namespace orvane::tool
