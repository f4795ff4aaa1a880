#include "card/status_names.h"

#include <gtest/gtest.h>

#include <set>

#include "text/json.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

TEST(ToolStatusNames, TableHasEachCodeAndEachNameOnceWithAMeaning) {
  std::set<std::uint32_t> codes;
  std::set<std::string_view> names;
  for (const StatusText& row : statusTexts()) {
    EXPECT_TRUE(codes.insert(row.code).second) << row.name;
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_FALSE(row.meaning.empty()) << row.name;
    EXPECT_NE(row.meaning.back(), '.') << row.name;
  }
}

TEST(ToolStatusNames, LabelIsNameAndNumber) {
  struct Case {
    std::uint32_t status;
    const char* label;
  };
  const Case cases[] = {
      {0, "SCARD_S_SUCCESS (0)"},
      {87, "ERROR_INVALID_PARAMETER (87)"},
      {1306, "ERROR_REVISION_MISMATCH (1306)"},
      {0x8010006B, "SCARD_W_WRONG_CHV (0x8010006B)"},
      {0x8010000C, "SCARD_E_NO_SMARTCARD (0x8010000C)"},
      {0x80101234, "0x80101234"},
      {0x00ABCDEF, "0x00ABCDEF"},
      {65535, "65535"},
  };
  for (const Case& row : cases) EXPECT_EQ(statusLabel(row.status), row.label);
}

TEST(ToolStatusNames, AdviceForOneCallComesBeforeAdviceForAnyCall) {
  EXPECT_NE(adviceFor("CardAcquireContext", 0x8010000C), adviceFor("SCardConnect", 0x8010000C));
  EXPECT_EQ(adviceFor("SCardConnect", 0x8010000C), "Plug the token in and try again.");
  EXPECT_EQ(adviceFor("CardSignData", 0x80101234), "");
  // Whatever keeps a library from being loaded has advice of its own.
  for (const std::uint32_t status : {126U, 127U, 193U, 577U, 1114U, 1260U, 4551U}) {
    EXPECT_NE(adviceFor("LoadLibrary", status), "") << status;
    EXPECT_NE(statusMeaning(status), "") << status;
  }
}

TEST(ToolStatusNames, ExitCodesGroupTheStatuses) {
  struct Case {
    std::uint32_t status;
    ExitCode exitCode;
  };
  const Case cases[] = {
      {0x8010000C, ExitCode::kNoCard},    {0x8010001D, ExitCode::kNoCard},
      {0x80100069, ExitCode::kNoCard},    {2, ExitCode::kNotFound},
      {0x80100023, ExitCode::kNotFound},  {0x80100024, ExitCode::kNotFound},
      {0x80100030, ExitCode::kNotFound},  {86, ExitCode::kWrongPin},
      {0x8010006B, ExitCode::kWrongPin},  {0x8010006C, ExitCode::kPinBlocked},
      {0x8010006F, ExitCode::kPinNeeded}, {87, ExitCode::kRefused},
      {0x80100004, ExitCode::kRefused},   {0x80100022, ExitCode::kRefused},
      {0x80101234, ExitCode::kRefused},
  };
  for (const Case& row : cases) EXPECT_EQ(exitCodeOf(row.status), row.exitCode) << statusLabel(row.status);
}

TEST(ToolError, FailedCallSaysWhatHappenedAndWhatToDo) {
  const ToolError error("CardAuthenticateEx", 0x8010006B);
  EXPECT_STREQ(error.what(), "the PIN is wrong [CardAuthenticateEx: SCARD_W_WRONG_CHV (0x8010006B)]");
  EXPECT_EQ(error.exitCode(), ExitCode::kWrongPin);
  EXPECT_EQ(error.status(), 0x8010006BU);
  EXPECT_EQ(error.attempts(), std::nullopt);
  EXPECT_FALSE(error.advice().empty());
}

TEST(ToolError, OneStatusMeansDifferentThingsInDifferentCalls) {
  struct Case {
    const char* call;
    std::uint32_t status;
    const char* message;
  };
  const Case cases[] = {
      {"CardAuthenticateEx", 0x80100004,
       "the PIN is too short or too long [CardAuthenticateEx: SCARD_E_INVALID_PARAMETER (0x80100004)]"},
      {"CardSignData", 0x80100004, "the token refused to sign [CardSignData: SCARD_E_INVALID_PARAMETER (0x80100004)]"},
      {"CardEnumFiles", 0x80100004, "a parameter was refused [CardEnumFiles: SCARD_E_INVALID_PARAMETER (0x80100004)]"},
      {"CardGetContainerInfo", 0x80100030,
       "the token has no such key, or it is not one for this "
       "[CardGetContainerInfo: SCARD_E_NO_KEY_CONTAINER (0x80100030)]"},
      {"CardRSADecrypt", 0x80100022,
       "OAEP is not offered: the token's firmware is older than 2.0.0, or the minidriver has not asked for it yet "
       "[CardRSADecrypt: SCARD_E_UNSUPPORTED_FEATURE (0x80100022)]"},
  };
  for (const Case& row : cases) EXPECT_STREQ(ToolError(row.call, row.status).what(), row.message);
  EXPECT_NE(ToolError("CardAuthenticateEx", 0x80100004).advice().find("no attempt was used up"), std::string::npos);
}

TEST(ToolError, UnknownStatusIsItsNumber) {
  EXPECT_STREQ(ToolError("CardReadFile", 0x80101234).what(), "CardReadFile failed: 0x80101234");
}

TEST(ToolDocuments, ResultAndErrorHaveTheirWholeForm) {
  EXPECT_EQ(resultDocument("read", {{"size", 6}}).dump(), R"({"command":"read","ok":true,"result":{"size":6}})");
  ToolError error("CardReadFile", 0x80101234);
  error.withAttempts(3);
  EXPECT_EQ(
      errorDocument("read", error).dump(),
      R"({"command":"read","ok":false,"exitCode":9,"error":{"message":"CardReadFile failed: 0x80101234",)"
      R"("advice":null,"status":{"name":null,"code":2148536884,"label":"0x80101234"},"attemptsRemaining":3},"result":null})");
  EXPECT_EQ(errorDocument("", ToolError(ExitCode::kUsage, "what", "do")).dump(),
            R"({"command":"","ok":false,"exitCode":2,"error":{"message":"what","advice":"do","status":null,)"
            R"("attemptsRemaining":null},"result":null})");
  EXPECT_EQ(errorDocument("sign", PartialFailure(ToolError(ExitCode::kRefused, "what"), {{"done", 1}})).dump(),
            R"({"command":"sign","ok":false,"exitCode":9,"error":{"message":"what","advice":null,"status":null,)"
            R"("attemptsRemaining":null},"result":{"done":1}})");
}

}  // namespace
}  // namespace orvane::tool
