// How many bytes of a plaintext are taken, for the lengths that no cipher text of a test can have, too.
#include "minidriver/private_key/plaintext_length.h"

#include <gtest/gtest.h>

#include <limits>

namespace orvane::test {
namespace {

TEST(PlaintextSize, NeverExceedsTheCipherTextAndIsNeverNegative) {
  constexpr int kLeast = std::numeric_limits<int>::min();
  constexpr int kMost = std::numeric_limits<int>::max();
  const struct {
    int statedLength;
    std::uint32_t cipherTextLength;
    std::optional<std::size_t> size;
  } rows[] = {
      {0, 0, 0},
      {0, 256, 0},
      {1, 0, std::nullopt},
      {256, 256, 256},
      {257, 256, std::nullopt},
      {kMost, 0x7FFFFFFF, 0x7FFFFFFF},
      {-1, 0, std::nullopt},
      {-1, 256, std::nullopt},
      {kLeast, 0x7FFFFFFF, std::nullopt},
      {kLeast, 0x80000000, 0},
      {-1, 0xFFFFFFFE, std::nullopt},
      {-1, 0xFFFFFFFF, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.statedLength);
    EXPECT_EQ(plaintextSize(row.statedLength, row.cipherTextLength), row.size) << row.cipherTextLength;
  }
}

}  // namespace
}  // namespace orvane::test
