#include "redaction.h"

#include <gtest/gtest.h>

namespace orvane::trial {
namespace {

TEST(TrialRedaction, TakesFoldersOutWhateverTheirLetters) {
  Redaction redaction;
  redaction.replaceText("C:\\Users\\Ada", "(user's folder)");
  EXPECT_EQ(redaction.apply("in c:\\users\\ada\\Temp and C:\\USERS\\ADA"),
            "in (user's folder)\\Temp and (user's folder)");
}

TEST(TrialRedaction, TakesNamesOutAsWordsOnly) {
  Redaction redaction;
  redaction.replaceName("Ada", "(user)");
  EXPECT_EQ(redaction.apply("ADA: Adapter, \\Users\\ada\\, _ada_"), "(user): Adapter, \\Users\\(user)\\, _(user)_");
  EXPECT_EQ(redaction.apply("ada\xC3\xA4 ada1 1ada xada"), "ada\xC3\xA4 ada1 1ada xada");
}

TEST(TrialRedaction, LeavesOutWhatWouldSpoilEverything) {
  Redaction redaction;
  redaction.replaceText("", "x");
  redaction.replaceName("", "x");
  redaction.replaceName("me", "x");
  EXPECT_EQ(redaction.apply("tell me"), "tell me");
}

TEST(TrialRedaction, TheFirstRuleThatFitsWins) {
  Redaction redaction;
  redaction.replaceText("C:\\Users\\Ada\\Temp", "(temporary folder)");
  redaction.replaceText("C:\\Users\\Ada", "(user's folder)");
  redaction.replaceName("Ada", "(user)");
  EXPECT_EQ(redaction.apply("C:\\Users\\Ada\\Temp\\x C:\\Users\\Ada\\y Ada"),
            "(temporary folder)\\x (user's folder)\\y (user)");
}

}  // namespace
}  // namespace orvane::trial
