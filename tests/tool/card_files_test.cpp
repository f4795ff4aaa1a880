#include "card/card_files.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace orvane::tool {
namespace {

// A record of "cmapfile".
Bytes mapRecord(std::string_view guid, std::uint8_t flags, std::uint16_t signatureBits, std::uint16_t exchangeBits) {
  Bytes record(86);
  for (std::size_t i = 0; i < guid.size(); ++i) record[i * 2] = static_cast<std::uint8_t>(guid[i]);
  record[80] = flags;
  record[82] = static_cast<std::uint8_t>(signatureBits);
  record[83] = static_cast<std::uint8_t>(signatureBits >> 8);
  record[84] = static_cast<std::uint8_t>(exchangeBits);
  record[85] = static_cast<std::uint8_t>(exchangeBits >> 8);
  return record;
}

TEST(ToolCardPath, TakesTheUsualPlaceWithoutADirectory) {
  struct Case {
    const char* text;
    CardPath path;
  };
  const Case cases[] = {
      {"cardid", {"", "cardid"}},      {"CARDCF", {"", "CARDCF"}},          {"cmapfile", {"mscp", "cmapfile"}},
      {"ksc00", {"mscp", "ksc00"}},    {"mscp/cardcf", {"mscp", "cardcf"}}, {"mscp\\cardcf", {"mscp", "cardcf"}},
      {"/cmapfile", {"", "cmapfile"}}, {"other/x", {"other", "x"}},
  };
  for (const Case& row : cases) EXPECT_EQ(parseCardPath(row.text), row.path) << row.text;
  EXPECT_THROW(parseCardPath(""), ToolError);
  EXPECT_THROW(parseCardPath("mscp/"), ToolError);
}

TEST(ToolCardPath, CertificateFilesHaveTwoDigits) {
  EXPECT_EQ(certificateFile(0, true), (CardPath{"mscp", "ksc00"}));
  EXPECT_EQ(certificateFile(7, false), (CardPath{"mscp", "kxc07"}));
  EXPECT_EQ(certificateFile(12, false), (CardPath{"mscp", "kxc12"}));
}

TEST(ToolCardPath, CertificateFilesAreKnownByName) {
  for (const char* name : {"ksc00", "kxc12"}) EXPECT_TRUE(isCertificateFile(name)) << name;
  for (const char* name : {"cardcf", "cmapfile", "ks", ""}) EXPECT_FALSE(isCertificateFile(name)) << name;
}

TEST(ToolFreshness, IsSixBytesLittleEndian) {
  EXPECT_EQ(decodeFreshness(Bytes{1, 2, 0x34, 0x12, 0xFF, 0xFF}), (Freshness{1, 2, 0x1234, 0xFFFF}));
  EXPECT_THROW(decodeFreshness(Bytes(5)), ToolError);
  EXPECT_THROW(decodeFreshness(Bytes(7)), ToolError);
}

TEST(ToolContainerMap, EveryRecordKeepsItsIndexUsedOrNot) {
  Bytes map = mapRecord("", 0, 0, 0);
  for (const Bytes& record : {mapRecord("0123456789ABCDEF", 3, 2048, 0), mapRecord("A", 1, 4096, 4096)})
    map.insert(map.end(), record.begin(), record.end());
  const std::vector<ContainerRecord> expected = {
      {0, "", 0, 0, 0}, {1, "0123456789ABCDEF", 3, 2048, 0}, {2, "A", 1, 4096, 4096}};
  const std::vector<ContainerRecord> records = decodeContainerMap(map);
  EXPECT_EQ(records, expected);
  EXPECT_FALSE(records[0].valid());
  EXPECT_TRUE(records[1].valid() && records[1].isDefault());
  EXPECT_TRUE(records[2].valid() && !records[2].isDefault());
}

TEST(ToolContainerMap, NameWithoutTerminatorEndsWithItsField) {
  const std::string guid(40, 'G');
  EXPECT_EQ(decodeContainerMap(mapRecord(guid, 1, 0, 0))[0].guid, guid);
}

TEST(ToolContainerMap, EmptyFileHasNoContainersAndAPartialRecordIsDamage) {
  EXPECT_TRUE(decodeContainerMap({}).empty());
  EXPECT_THROW(decodeContainerMap(Bytes(85)), ToolError);
  EXPECT_THROW(decodeContainerMap(Bytes(87)), ToolError);
}

TEST(ToolKeyUse, FollowsTheKeySizes) {
  EXPECT_EQ(keyUse({0, "", 1, 2048, 0}), "sign");
  EXPECT_EQ(keyUse({0, "", 1, 0, 2048}), "exchange");
  EXPECT_EQ(keyUse({0, "", 1, 2048, 2048}), "sign+exchange");
  EXPECT_EQ(keyUse({0, "", 0, 0, 0}), "-");
}

TEST(ToolPublicKey, IsReadFromItsBlobAndTurnedRound) {
  const Bytes blob = {6, 2, 0, 0, 0x00, 0xA4, 0, 0, 'R', 'S', 'A', '1', 16, 0, 0, 0, 1, 0, 1, 0, 0x01, 0xC5};
  EXPECT_EQ(decodePublicKey(blob), (PublicKey{0xA400, 16, 65537, {0xC5, 0x01}}));
}

TEST(ToolPublicKey, AnythingElseIsDamage) {
  const Bytes good = {6, 2, 0, 0, 0x00, 0xA4, 0, 0, 'R', 'S', 'A', '1', 0, 0, 0, 0, 1, 0, 1, 0};
  EXPECT_EQ(decodePublicKey(good), (PublicKey{0xA400, 0, 65537, {}}));
  Bytes wrongType = good;
  wrongType[0] = 7;
  Bytes privateKey = good;
  privateKey[11] = '2';
  for (const Bytes& blob : {wrongType, privateKey, Bytes(good.begin(), good.end() - 1), Bytes{}})
    EXPECT_THROW(decodePublicKey(blob), ToolError);
}

TEST(ToolNameList, EndsAtTheEmptyName) {
  const std::string list("cardcf\0cmapfile\0\0more\0", 22);
  const Bytes data(list.begin(), list.end());
  EXPECT_EQ(decodeNameList(data), (std::vector<std::string>{"cardcf", "cmapfile"}));
  EXPECT_TRUE(decodeNameList(Bytes{0}).empty());
  EXPECT_TRUE(decodeNameList({}).empty());
}

TEST(ToolAccessCondition, HasItsPublishedName) {
  EXPECT_EQ(accessConditionName(0), "InvalidAc");
  EXPECT_EQ(accessConditionName(1), "EveryoneReadUserWriteAc");
  EXPECT_EQ(accessConditionName(3), "EveryoneReadAdminWriteAc");
  EXPECT_EQ(accessConditionName(6), "AdminReadWriteAc");
  EXPECT_EQ(accessConditionName(7), "7");
}

TEST(ToolIsoTime, CountsFrom1601) {
  struct Case {
    std::uint64_t fileTime;
    const char* text;
  };
  const Case cases[] = {
      {0, "1601-01-01T00:00:00Z"},
      {116'444'736'000'000'000, "1970-01-01T00:00:00Z"},
      {125'963'423'999'999'999, "2000-02-29T23:59:59Z"},
      {133'536'384'000'000'000, "2024-02-29T00:00:00Z"},
      {159'017'903'990'000'000, "2104-11-28T11:59:59Z"},
  };
  for (const Case& row : cases) EXPECT_EQ(isoTime(row.fileTime), row.text) << row.fileTime;
}

}  // namespace
}  // namespace orvane::tool
