#include "card/key_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "text/table.h"

namespace orvane::tool {
namespace {

const std::string kGuid = "CAE3CB6FF6535DB3EA6CEA5E3B84A54D";

CertificateFacts certificate(const char* subject, const char* issuer) {
  CertificateFacts facts;
  facts.subject = std::string("CN=") + subject;
  facts.subjectName = subject;
  facts.issuerName = issuer;
  facts.notBefore = "2026-11-20T10:00:00Z";
  facts.notAfter = "2036-11-20T10:00:00Z";
  facts.current = true;
  facts.sha1 = fromHex("A1B2C3D4E5F60718293A4B5C6D7E8F9001122334");
  return facts;
}

std::vector<ListedKey> keys() {
  CertificateFacts old =
      certificate("Nora Example of the very long department of long names", "Orvane test CA 2 of Works");
  old.current = false;
  return {{{0, kGuid, 3, 2048, 0}, certificate("Nora Example", "Orvane test CA"), ""},
          {{1, kGuid, 1, 0, 4096}, std::nullopt, "the token holds no certificate for it"},
          {{2, kGuid, 1, 3072, 3072}, old, ""},
          {{3, "", 0, 0, 0}, std::nullopt, "the container is not in use"}};
}

TEST(ToolKeyTable, FitsEightyColumnsAndBreaksNoDate) {
  EXPECT_EQ(keyTable(keys(), 0),
            "Key  Subject         Use             Valid           Issuer          Thumbprint\n"
            "---  --------------  --------------  --------------  --------------  ----------\n"
            " *1  Nora Example    signing         2026-11-20 to   Orvane test CA  a1b2c3d4\n"
            "                                     2036-11-20\n"
            "  2  (no             encryption\n"
            "     certificate)\n"
            "  3  Nora Example    signing and     2026-11-20 to   Orvane test CA  a1b2c3d4\n"
            "     of the very     encryption      2036-11-20,     2 of Works\n"
            "     long                            expired\n"
            "     department of\n"
            "     long names\n"
            "  4  (not in use)\n"
            "* the default key\n"
            "Key 2 of 4 (encryption): the token holds no certificate for it.\n");
  std::istringstream wide(keyTable(keys(), 300));
  std::size_t longest = 0;
  for (std::string line; std::getline(wide, line);) longest = std::max(longest, displayWidth(line));
  EXPECT_GT(longest, kTableWidth);
}

TEST(ToolKeyDetails, HoldContainerAndFile) {
  const std::string text = keyDetails(keys());
  for (const char* part :
       {"Key 1 of 4 (signing), the default key\n",
        "  Container:             0, named CAE3CB6FF6535DB3EA6CEA5E3B84A54D\n", "  Certificate's file:    ksc00\n",
        "  Thumbprint (SHA-1):    a1b2c3d4e5f60718293a4b5c6d7e8f9001122334\n", "Key 2 of 4 (encryption)\n",
        "  Certificate:         none: the token holds no certificate for it\n", "kxc01",
        "Key 3 of 4 (signing and encryption)\n", "Key 4 of 4\n  not in use\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part << " in\n" << text;
}

TEST(ToolKeysJson, CountsKeysFromOneAndContainersFromZero) {
  const Json json = keysJson(keys());
  EXPECT_EQ(json[1]["key"], 2);
  EXPECT_EQ(json[1]["index"], 1);
  EXPECT_EQ(json[1]["name"], "key 2 of 4 (encryption)");
  EXPECT_EQ(json[1]["certificateError"], "the token holds no certificate for it");
  EXPECT_TRUE(json[1]["certificate"].is_null());
  EXPECT_TRUE(json[0]["certificateError"].is_null());
}

TEST(ToolCardFileMeaning, NamesTheKeyOfACertificate) {
  std::vector<ContainerRecord> records;
  for (const ListedKey& key : keys()) records.push_back(key.record);
  struct Case {
    const char* file;
    const char* meaning;
  };
  const Case cases[] = {{"cardid", "card identifier"},
                        {"cardcf", "freshness numbers"},
                        {"cmapfile", "list of the keys"},
                        {"ksc00", "certificate of key 1 of 4 (signing)"},
                        {"kxc01", "certificate of key 2 of 4 (encryption)"},
                        {"kxc02", "certificate of key 3 of 4 (signing and encryption)"},
                        {"kxc1", "certificate of key 2 of 4 (encryption)"},
                        {"ksc9", ""},
                        {"ksc", ""},
                        {"ksc0x", ""},
                        {"other", ""}};
  for (const Case& row : cases) EXPECT_EQ(cardFileMeaning(row.file, records), row.meaning) << row.file;
}

TEST(ToolNoKeys, OnlyATokenThatIsOpenHoldsNone) {
  TokenFacts token;
  token.serial = "0012AB";
  token.access = TokenAccess::kOpen;
  EXPECT_EQ(noKeysText(token), "The token holds no keys.");
  token.access = TokenAccess::kRefused;
  token.error = 224;
  EXPECT_NE(noKeysText(token).find("whether it holds keys is unknown"), std::string::npos) << noKeysText(token);
  EXPECT_NE(noKeysText(token).find("224"), std::string::npos) << noKeysText(token);
  const ToolError failure = unopenedToken(token);
  EXPECT_EQ(failure.exitCode(), ExitCode::kRefused);
  EXPECT_NE(std::string(failure.what()).find("\"0012AB\""), std::string::npos) << failure.what();
  EXPECT_EQ(failure.advice(), kOpenTokenAdvice);
  EXPECT_EQ(tokenJson(token).dump(),
            R"({"serial":"0012AB","serialFrom":null,"statedSerial":null,"access":"refused","libraryError":224})");
  token.access = TokenAccess::kUnknown;
  EXPECT_EQ(noKeysText(token).find("holds no keys"), std::string::npos) << noKeysText(token);
  EXPECT_TRUE(tokenJson(token)["access"].is_null());
}

}  // namespace
}  // namespace orvane::tool
