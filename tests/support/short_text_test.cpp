// Text put together in place: what is cut off, and how numbers are filled up.
#include "support/short_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

namespace orvane::test {
namespace {

TEST(ShortText, IsCutAtItsCapacity) {
  const struct {
    std::string_view first;
    std::string_view second;
    std::string_view text;
  } rows[] = {
      {"", "", ""},         {"", "ab", "ab"},      {"ab", "c", "abc"},
      {"ab", "cd", "abcd"}, {"ab", "cde", "abcd"}, {"abcde", "f", "abcd"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ShortText<4>().append(row.first).append(row.second).view(), row.text) << row.first << "|" << row.second;
  }
}

TEST(ShortText, NumbersAreFilledUp) {
  const struct {
    std::uint64_t number;
    std::size_t width;
    std::string_view text;
  } rows[] = {
      {0, 0, ""},
      {0, 1, "0"},
      {0, 3, "000"},
      {7, 1, "7"},
      {7, 2, "07"},
      {10, 1, "10"},
      {123, 2, "123"},
      {UINT64_MAX, 1, "18446744073709551615"},
      {1, 20, "00000000000000000001"},
      {1, 21, "00000000000000000001"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ShortText<24>().appendNumber(row.number, row.width).view(), row.text) << row.number << " " << row.width;
  }
  EXPECT_EQ(ShortText<2>().appendNumber(123).view(), "12");
}

TEST(ShortText, CutLeavesTheFront) {
  const struct {
    std::size_t size;
    std::string_view text;
  } rows[] = {{0, ""}, {2, "ab"}, {3, "abc"}, {4, "abc"}};
  for (const auto& row : rows) {
    auto text = ShortText<8>().append("abc");
    text.cut(row.size);
    EXPECT_EQ(text.view(), row.text) << row.size;
    EXPECT_EQ(text.size(), row.text.size());
  }
}

}  // namespace
}  // namespace orvane::test
