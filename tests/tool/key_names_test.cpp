#include "card/key_names.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolKeyNames, SayNumberAndPurpose) {
  struct Case {
    std::uint16_t signatureBits;
    std::uint16_t keyExchangeBits;
    const char* purpose;
    const char* name;
  };
  const Case cases[] = {
      {2048, 0, "signing", "key 2 of 3 (signing)"},
      {0, 4096, "encryption", "key 2 of 3 (encryption)"},
      {2048, 2048, "signing and encryption", "key 2 of 3 (signing and encryption)"},
      {0, 0, "", "key 2 of 3"},
  };
  for (const Case& row : cases) {
    const ContainerRecord record{1, "name", 1, row.signatureBits, row.keyExchangeBits};
    EXPECT_EQ(keyPurpose(record), row.purpose);
    EXPECT_EQ(keyName(record, 3), row.name);
  }
}

}  // namespace
}  // namespace orvane::tool
