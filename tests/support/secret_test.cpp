// Texts that are overwritten before their memory is given back.
#include "support/secret.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
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
  moved = std::move(same);
  EXPECT_EQ(valueOf(moved), "second");
}

// Texts up to the capacity stand in the object, longer ones on the heap; nothing of that shows.
TEST(Secret, ShortAndLongTextsTakeEachOthersPlace) {
  const std::size_t sizes[] = {
      0, 1, SecretText::kInlineCapacity - 1, SecretText::kInlineCapacity, SecretText::kInlineCapacity + 1, 300};
  for (const std::size_t first : sizes) {
    for (const std::size_t second : sizes) {
      SCOPED_TRACE(std::to_string(first) + ", then " + std::to_string(second));
      const std::string firstText(first, 'f');
      const std::string secondText(second, 's');
      SecretText target(firstText.data(), first);
      SecretText source(secondText.data(), second);
      target = source;
      EXPECT_EQ(valueOf(target), secondText);
      EXPECT_EQ(valueOf(source), secondText);
      target = SecretText(firstText.data(), first);
      EXPECT_EQ(valueOf(target), firstText);
      target = std::move(source);
      EXPECT_EQ(valueOf(target), secondText);
      SecretText moved(std::move(target));
      EXPECT_EQ(valueOf(moved), secondText);
      moved.clear();
      EXPECT_EQ(valueOf(moved), "");
    }
  }
}

// The bytes in the object go with the text, whichever way it goes.
TEST(Secret, NothingStaysInTheObject) {
  const auto holds = [](const SecretText& secret, const char* text) {
    const auto* const bytes = reinterpret_cast<const char*>(&secret);
    return std::string_view(bytes, sizeof(secret)).find(text) != std::string_view::npos;
  };
  SecretText secret("Tr7-secret", 10);
  ASSERT_TRUE(holds(secret, "Tr7-secret"));
  secret.clear();
  EXPECT_FALSE(holds(secret, "r7-secret"));
  secret = SecretText("Tr7-secret", 10);
  const SecretText moved = std::move(secret);
  EXPECT_FALSE(holds(secret, "r7-secret"));
  EXPECT_EQ(valueOf(secret), "");
  secret = SecretText("Tr7-secret", 10);
  secret = SecretText("x", 1);
  EXPECT_FALSE(holds(secret, "-secret"));
  alignas(SecretText) unsigned char place[sizeof(SecretText)];
  auto* const destroyed = new (place) SecretText("Tr7-secret", 10);
  destroyed->~SecretText();
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(place), sizeof(place)).find("7-secret"),
            std::string_view::npos);
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
