// Texts that are overwritten before their memory is given back.
#include "support/secret.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace orvane::test {
namespace {

std::string valueOf(const SecretText& secret) {
  EXPECT_EQ(std::strlen(secret.c_str()), secret.size());
  return {secret.c_str(), secret.size()};
}

TEST(Secret, HoldsExactlyTheBytesAndANul) {
  const char bytes[] = {'1', '2', '3', '4', '5'};
  const SecretText secret(bytes, 3);
  EXPECT_EQ(valueOf(secret), "123");
  EXPECT_FALSE(secret.empty());
  EXPECT_EQ(valueOf(SecretText(nullptr, 0)), "");
  EXPECT_EQ(valueOf(SecretText()), "");
  EXPECT_TRUE(SecretText().empty());
  const SecretText withNul("a\0b", 3);
  EXPECT_EQ(withNul.size(), 3u);
  EXPECT_EQ(std::memcmp(withNul.c_str(), "a\0b", 4), 0);
}

TEST(Secret, CopiesAreIndependent) {
  SecretText original("first", 5);
  SecretText copy = original;
  original.clear();
  EXPECT_EQ(valueOf(original), "");
  EXPECT_EQ(valueOf(copy), "first");
  original = copy;
  copy = SecretText("second", 6);
  EXPECT_EQ(valueOf(original), "first");
  EXPECT_EQ(valueOf(copy), "second");
  SecretText moved = std::move(copy);
  EXPECT_EQ(valueOf(moved), "second");
  SecretText& same = moved;
  moved = same;
  EXPECT_EQ(valueOf(moved), "second");
}

TEST(Secret, WipeOverwritesAllBytes) {
  unsigned char bytes[17];
  std::memset(bytes, 0xAA, sizeof(bytes));
  wipe(bytes, 16);
  EXPECT_TRUE(std::all_of(bytes, bytes + 16, [](unsigned char byte) { return byte == 0; }));
  EXPECT_EQ(bytes[16], 0xAA);
  wipe(bytes, 0);
  wipe(nullptr, 0);
  EXPECT_EQ(bytes[16], 0xAA);
}

}  // namespace
}  // namespace orvane::test
