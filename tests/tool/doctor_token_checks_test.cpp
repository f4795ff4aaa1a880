#include <gtest/gtest.h>

#include "doctor/checks.h"
#include "doctor/words.h"

namespace orvane::tool {
namespace {

TokenFacts goodToken() {
  TokenFacts facts;
  facts.serial = "0012AB";
  facts.origin = SerialOrigin::kToken;
  facts.access = TokenAccess::kOpen;
  facts.keys = 3;
  return facts;
}

TEST(ToolDoctorToken, SerialIsAlwaysShownAndDoubtsAreWarnings) {
  TokenFacts facts = goodToken();
  EXPECT_EQ(judgeToken(facts), ok("The token in use has the serial \"0012AB\", which it says itself. It is open."));
  facts.origin = SerialOrigin::kPosition;
  Finding finding = judgeToken(facts);
  EXPECT_EQ(finding.state, StepState::kWarning);
  EXPECT_EQ(finding.text, serialText(facts));
  EXPECT_NE(finding.advice.find("Take all other tokens out"), std::string::npos);
  facts.origin = SerialOrigin::kUnknown;
  facts.stated = "77CC01";
  EXPECT_EQ(judgeToken(facts).state, StepState::kWarning);
  EXPECT_NE(judgeToken(facts).text.find("\"77CC01\""), std::string::npos);
  facts.stated.clear();
  EXPECT_EQ(judgeToken(facts).state, StepState::kWarning);
  // Another minidriver.
  facts.serial.clear();
  EXPECT_EQ(judgeToken(facts), ok("The serial of the token is not known. It is open."));
}

TEST(ToolDoctorToken, NothingIsSaidAboutWhatATokenHoldsThatWasNotOpened) {
  TokenFacts facts = goodToken();
  facts.keys = 0;
  facts.access = TokenAccess::kRefused;
  facts.error = 224;
  EXPECT_EQ(judgeToken(facts),
            broken("The token in use has the serial \"0012AB\", which it says itself. The token library "
                   "could not open it, so whether it holds keys is unknown (error 224 of the library).",
                   kOpenTokenAdvice));
  facts.access = TokenAccess::kUnknown;
  const Finding finding = judgeToken(facts);
  EXPECT_EQ(finding.state, StepState::kBroken);
  EXPECT_TRUE(finding.text.ends_with("is not known, and so neither is whether it holds keys.")) << finding.text;
  EXPECT_TRUE(finding.advice.starts_with("Look at the link \"Log\" first")) << finding.advice;
  EXPECT_TRUE(finding.advice.ends_with("so do not have any renewed.")) << finding.advice;
}

TEST(ToolDoctorWords, StatusStandsBehindItsMeaning) {
  EXPECT_EQ(inWords(ToolError("CardReadFile", 0x80100069)),
            "the card was removed [CardReadFile: SCARD_W_REMOVED_CARD (0x80100069)]");
  EXPECT_EQ(inWords(ToolError("CardReadFile", 0x12345678)), "CardReadFile failed: 0x12345678");
  EXPECT_EQ(inWords(ToolError(ExitCode::kCheckFailed, "the data is bad")), "the data is bad");
  EXPECT_EQ(capitalised(""), "");
}

}  // namespace
}  // namespace orvane::tool
