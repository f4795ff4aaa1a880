#include "card/properties.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

Bytes words(std::initializer_list<std::uint32_t> values) {
  Bytes data;
  for (const std::uint32_t value : values) {
    for (int shift = 0; shift < 32; shift += 8) data.push_back(static_cast<std::uint8_t>(value >> shift));
  }
  return data;
}

struct Case {
  const char* what;
  Form form;
  Bytes data;
  const char* json;
  const char* text;
};

TEST(ToolProperties, AreDecodedByTheirForm) {
  const Case cases[] = {
      {"bytes", Form::kBytes, {0x41, 0x42}, R"("4142")", "4142"},
      {"true", Form::kBoolean, words({1}), "true", "true"},
      {"false", Form::kBoolean, words({0}), "false", "false"},
      {"number", Form::kNumber, words({3}), "3", "3"},
      {"text with its terminator", Form::kText, {'A', 0, '1', 0, 0, 0}, R"("A1")", "A1"},
      {"empty text", Form::kText, {}, R"("")", ""},
      {"PIN set", Form::kPinSet, words({6}), R"({"value":6,"means":["user","administrator"]})",
       "6 (user, administrator)"},
      {"PIN set with other bits", Form::kPinSet, words({0x12}), R"({"value":18,"means":["user","unknown bits 16"]})",
       "18 (user, unknown bits 16)"},
      {"empty PIN set", Form::kPinSet, words({0}), R"({"value":0,"means":[]})", "0 (none)"},
      {"cache mode", Form::kCacheMode, words({2}), R"({"value":2,"means":"session only"})", "2 (session only)"},
      {"unknown cache mode", Form::kCacheMode, words({0}), R"({"value":0,"means":null})", "0"},
      {"PIN strength", Form::kPinStrength, words({1}), R"({"value":1,"means":["plain text"]})", "1 (plain text)"},
      {"key import", Form::kKeyImport, words({0}), R"({"value":0,"means":[]})", "0 (none)"},
      {"paddings", Form::kPaddings, words({10}), R"({"value":10,"means":["PKCS #1","OAEP"]})", "10 (PKCS #1, OAEP)"},
      {"algorithms", Form::kAlgorithms, words({0xA400, 0x2400, 1}),
       R"([{"value":41984,"means":"CALG_RSA_KEYX"},{"value":9216,"means":"CALG_RSA_SIGN"},{"value":1,"means":null}])",
       "41984 (CALG_RSA_KEYX), 9216 (CALG_RSA_SIGN), 1"},
      {"free space", Form::kFreeSpace, words({1, 12288, 0, 6}),
       R"({"dwVersion":1,"dwBytesAvailable":12288,"dwKeyContainersAvailable":0,"dwMaxKeyContainers":6})",
       "dwVersion 1, dwBytesAvailable 12288, dwKeyContainersAvailable 0, dwMaxKeyContainers 6"},
      {"key sizes", Form::kKeySizes, words({1, 2048, 2048, 4096, 2048}),
       R"({"dwVersion":1,"dwMinimumBitlen":2048,"dwDefaultBitlen":2048,"dwMaximumBitlen":4096,)"
       R"("dwIncrementalBitlen":2048})",
       "dwVersion 1, dwMinimumBitlen 2048, dwDefaultBitlen 2048, dwMaximumBitlen 4096, dwIncrementalBitlen 2048"},
      {"capabilities", Form::kCapabilities, words({1, 1, 0}),
       R"({"dwVersion":1,"fCertificateCompression":1,"fKeyGen":0})",
       "dwVersion 1, fCertificateCompression 1, fKeyGen 0"},
      {"PIN information", Form::kPinInfo, words({6, 0, 4, 1, 2, 6, 0, 0, 0}),
       R"({"dwVersion":6,"PinType":{"value":0,"means":"alphanumeric"},"PinPurpose":{"value":4,"means":"administrator"},)"
       R"("dwChangePermission":{"value":1,"means":["everyone"]},"dwUnblockPermission":{"value":2,"means":["user"]},)"
       R"("PinCachePolicy":{"dwVersion":6,"type":{"value":0,"means":"normal"},"dwPinCachePolicyInfo":0},"dwFlags":0})",
       "dwVersion 6, PinType 0 (alphanumeric), PinPurpose 4 (administrator), dwChangePermission 1 (everyone), "
       "dwUnblockPermission 2 (user), PinCachePolicy dwVersion 6, type 0 (normal), dwPinCachePolicyInfo 0, dwFlags 0"},
  };
  for (const Case& row : cases) {
    const Json value = decodeProperty(row.form, row.data);
    EXPECT_EQ(value.dump(), row.json) << row.what;
    EXPECT_EQ(propertyText(value), row.text) << row.what;
  }
}

TEST(ToolProperties, DataOfTheWrongSizeIsShownAsItIs) {
  struct Malformed {
    Form form;
    std::size_t size;
  };
  const Malformed cases[] = {{Form::kBoolean, 3},   {Form::kNumber, 5},        {Form::kText, 3},
                             {Form::kPinSet, 0},    {Form::kAlgorithms, 6},    {Form::kFreeSpace, 15},
                             {Form::kKeySizes, 21}, {Form::kCapabilities, 11}, {Form::kPinInfo, 35}};
  for (const Malformed& row : cases) {
    const Json expected = {{"malformed", std::string(row.size * 2, '0')}};
    EXPECT_EQ(decodeProperty(row.form, Bytes(row.size)), expected) << static_cast<int>(row.form);
  }
}

TEST(ToolProperties, EveryQueryWithFlagsSaysWhatTheyMean) {
  for (const PropertyQuery& query : cardPropertyQueries()) {
    EXPECT_FALSE(query.name.empty());
    EXPECT_EQ(query.flags == 0, query.flagsMeaning.empty());
  }
}

}  // namespace
}  // namespace orvane::tool
