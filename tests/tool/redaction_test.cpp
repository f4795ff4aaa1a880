#include "report/redaction.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

using Kind = Redaction::Kind;

TEST(ToolSerialsIn, FindsThemInEveryKindOfLine) {
  struct Case {
    const char* line;
    std::vector<std::string> serials;
  };
  const Case cases[] = {
      {"", {}},
      {"Using serial=0012AB for hScard=17", {"0012AB"}},
      {"15/11::10:03:25:123-> ->DEBUG ::=>resolved serial number :: 0012AB\r\n", {"0012AB"}},
      {"SLE serial via APDU: 77CC01", {"77CC01"}},
      {"OrvaneKey serial via APDU: 77CC01", {"77CC01"}},
      {"CMAP: Serial 0012AB missing from cache. Re-populating now...", {"0012AB"}},
      {"CMAP: Critical failure - could not populate cache for 0012AB", {"0012AB"}},
      {"CMAP: no containers for 0012AB, returning empty cmapfile", {"0012AB"}},
      {"CardSetProperty: CP_CARD_SERIAL_NO = 0012AB", {"0012AB"}},
      {"Init device failed for [0012AB]: 224", {"0012AB"}},
      {"=== CardSignData: serial=[0012AB] containerIndex=1", {"0012AB"}},
      {"Reader name for hScard: Brightfold Orvane 0012AB 00 00", {"0012AB"}},
      {"Reader name for hScard: Brightfold Orvane OrvaneDSC 00 00", {}},
      {"CMAP: container[0] sig=2048", {}},
      {"CMAP Output: [0] GUID=CAE3CB6FF6535DB3EA6CEA5E3B84A54D", {}},
      {"CardSignData: using container[2] credId=00", {}},
      {"device [1", {}},
      {"device [] and [A] and [B]\n[A]\n[C]", {"A", "B", "C"}},
  };
  for (const Case& row : cases) EXPECT_EQ(serialsIn(row.line), row.serials) << row.line;
}

TEST(ToolRedaction, NothingThatItWasToldIsLeft) {
  Redaction redaction;
  redaction.add(Kind::kSerial, "0012AB");
  redaction.add(Kind::kSerial, "77cc01");
  redaction.add(Kind::kSerial, "12");
  redaction.add(Kind::kName, "Nora Example (0012AB key 1)");
  redaction.add(Kind::kName, "nora@example.com");
  redaction.add(Kind::kName, "Nora Example (0012AB key 1)");
  redaction.add(Kind::kName, "");
  redaction.add(Kind::kUser, "nora");
  redaction.add(Kind::kComputer, "DESK-7");
  struct Case {
    const char* text;
    const char* expected;
  };
  const Case cases[] = {
      {"", ""},
      {"nothing of that kind", "nothing of that kind"},
      {"serial=[0012AB]", "serial=[[serial 1]]"},
      {"0012ab0012AB77CC01", "[serial 1][serial 1][serial 2]"},
      {"cardid 303031324142", "cardid [serial 1]"},
      {"12 of 1234", "[serial 3] of 1234"},
      {"the certificate of NORA EXAMPLE (0012AB key 1).", "the certificate of [name 1]."},
      {"Nora, nora@example.com; Noras", "[user], [name 2]; Noras"},
      {"\xC3\xA9nora nora", "\xC3\xA9nora [user]"},
      {"on desk-7.", "on [computer]."},
      {"C:\\Users\\nora\\AppData", "C:\\Users\\[user]\\AppData"},
      {"C:\\users\\J\xC3\xB6rg Other\\AppData", "C:\\users\\[user]\\AppData"},
      {"Z:/Users/other.one/x and C:\\Users\\third is", "Z:/Users/[user]/x and C:\\Users\\[user] is"},
      {"C:\\Users\\", "C:\\Users\\"},
      {"CP_PIN_CONTEXT_STRING = Sign the letter to Max\r\nnext", "CP_PIN_CONTEXT_STRING = [text]\r\nnext"},
      {"CP_PIN_CONTEXT_STRING = ", "CP_PIN_CONTEXT_STRING = "},
  };
  for (const Case& row : cases) EXPECT_EQ(redaction.apply(row.text), row.expected) << row.text;
}

TEST(ToolRedaction, DocumentsKeepTheirForm) {
  Redaction redaction;
  redaction.add(Kind::kUser, "state");
  const Json document = {{"state", "the state"}, {"list", {1, nullptr, "state", {{"deep", "a state"}}}}, {"ok", true}};
  EXPECT_EQ(redaction.applyToAll(document).dump(),
            R"({"state":"the [user]","list":[1,null,"[user]",{"deep":"a [user]"}],"ok":true})");
}

TEST(ToolRedaction, SwitchedOffItChangesNothing) {
  Redaction redaction(false);
  redaction.add(Kind::kSerial, "0012AB");
  EXPECT_EQ(redaction.apply("0012AB in C:\\Users\\nora\\x"), "0012AB in C:\\Users\\nora\\x");
  EXPECT_EQ(redaction.applyToAll(Json{{"serial", "0012AB"}}).dump(), R"({"serial":"0012AB"})");
}

}  // namespace
}  // namespace orvane::tool
