#include "card/token_facts.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolTokenFacts, OriginFollowsTheMinidriversWay) {
  const SerialAnswer none{};
  const SerialAnswer refused{true, std::nullopt};
  const SerialAnswer told{true, "77CC01"};
  struct Case {
    const char* what;
    const char* serial;
    const char* readerName;
    SerialAnswer answer;
    SerialOrigin origin;
  };
  const Case cases[] = {
      {"in the name", "0012AB", "Brightfold Orvane 0012AB 00 00", none, SerialOrigin::kReaderName},
      {"a number that is no serial", "0", "Brightfold Token 0", none, SerialOrigin::kReaderName},
      {"another one in the name", "77CC01", "Brightfold Orvane 0012AB 00 00", told, SerialOrigin::kUnknown},
      {"told by the token", "77CC01", "Brightfold Orvane OrvaneDSC 00 00", told, SerialOrigin::kToken},
      {"refused by the token", "0012AB", "Brightfold Orvane OrvaneDSC 00 00", refused, SerialOrigin::kPosition},
      {"another one told by the token", "0012AB", "Brightfold Orvane OrvaneDSC", told, SerialOrigin::kUnknown},
      {"the token was not reached", "0012AB", "Brightfold Orvane OrvaneDSC", none, SerialOrigin::kUnknown},
      {"a reader without a name", "0012AB", "", told, SerialOrigin::kUnknown},
      {"no serial", "", "Brightfold Orvane OrvaneDSC", refused, SerialOrigin::kUnknown},
  };
  for (const Case& row : cases)
    EXPECT_EQ(serialOriginOf(row.serial, row.readerName, row.answer), row.origin) << row.what;
}

TEST(ToolTokenFacts, TheLastRefusalOfThatTokenCounts) {
  EXPECT_EQ(openFailureIn({}, "AB"), std::nullopt);
  // The second try, which follows when there are no keys, decides.
  EXPECT_EQ(openFailureIn({"Init device failed for [AB]: 224"}, "AB"), std::nullopt);
  EXPECT_EQ(openFailureIn({"PACE refresh failed for [A]: 1", "PACE refresh failed for [ABC]: 2"}, "AB"), std::nullopt);
  EXPECT_EQ(openFailureIn({"PACE refresh failed for [AB]: many", "PACE refresh failed for [AB]: "}, "AB"),
            std::nullopt);
  EXPECT_EQ(openFailureIn({"Init device failed for [AB]: 224", "PACE refresh failed for [AB]: 7",
                           "PACE refresh failed for [AB]: -5", "PACE refresh failed for [A]: 1"},
                          "AB"),
            (OpenFailure{-5, "PACE refresh failed for [AB]: -5"}));
}

TEST(ToolTokenFacts, ProbeIsTheLineAboutThePinProperty) {
  EXPECT_TRUE(isProbe("CP_CARD_PIN_INFO: buffer too small, required = 36, cbData = 0"));
  EXPECT_FALSE(isProbe("=== CardGetProperty: CP_CARD_PIN_INFO serial=[0012AB] dwFlags=1"));
}

TEST(ToolTokenFacts, SerialAndItsOriginAreSaid) {
  TokenFacts facts;
  EXPECT_EQ(serialText(facts), "The serial of the token is not known.");
  facts.serial = "0012AB";
  EXPECT_EQ(serialText(facts), "The token in use has the serial \"0012AB\"; how it was found is not known.");
  facts.origin = SerialOrigin::kReaderName;
  EXPECT_EQ(serialText(facts), "The token in use has the serial \"0012AB\", which stands in the reader's name.");
  facts.origin = SerialOrigin::kToken;
  EXPECT_EQ(serialText(facts), "The token in use has the serial \"0012AB\", which it says itself.");
  facts.origin = SerialOrigin::kPosition;
  EXPECT_EQ(
      serialText(facts),
      "The token in use has the serial \"0012AB\", but only its place among the connected tokens says so: the one "
      "in the reader does not tell its serial.");
  facts.origin = SerialOrigin::kUnknown;
  facts.stated = "77CC01";
  EXPECT_EQ(serialText(facts),
            "The token in use has the serial \"0012AB\", but the one in the reader says that it is \"77CC01\".");
}

TEST(ToolTokenFacts, WhatWasNotOpenedIsNeverSaidToBeEmpty) {
  TokenFacts facts;
  EXPECT_EQ(accessText(facts),
            "No keys are seen, but whether the token library could open it is not known, and so neither is whether it "
            "holds keys.");
  facts.access = TokenAccess::kRefused;
  facts.error = 224;
  EXPECT_EQ(accessText(facts),
            "The token library could not open it, so whether it holds keys is unknown (error 224 of the library).");
  facts.access = TokenAccess::kOpen;
  EXPECT_EQ(accessText(facts), "");
}

}  // namespace
}  // namespace orvane::tool
