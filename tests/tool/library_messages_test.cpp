#include "library_messages.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

using Lines = std::vector<std::string>;

TEST(ToolLibraryMessages, ThatTheLogCannotBeWrittenShowsOnceWithACount) {
  LibraryMessages messages;
  for (int i = 0; i < 100; ++i) EXPECT_EQ(messages.add("\nUnable to write log"), Lines());
  EXPECT_EQ(messages.summary(),
            Lines{"The minidriver printed \"Unable to write log\" (100 times): its log cannot be written; the link "
                  "\"Log\" of \"orvane-card doctor\" says more."});
  EXPECT_EQ(messages.summary(), Lines());
}

TEST(ToolLibraryMessages, OtherLinesShowAtOnceAndRepetitionsAreCounted) {
  LibraryMessages messages;
  EXPECT_EQ(messages.add("one\r\ntw"), Lines{"A library printed: one"});
  EXPECT_EQ(messages.add("o\none\n\none"), Lines{"A library printed: two"});
  EXPECT_EQ(messages.summary(), Lines{"A library printed 3 times in all: one"});

  LibraryMessages unfinished;
  EXPECT_EQ(unfinished.add("\nUnable to getLogBaseFolderPath\nno end"), Lines());
  EXPECT_EQ(
      unfinished.summary(),
      (Lines{"A library printed: no end",
             "The minidriver printed \"Unable to getLogBaseFolderPath\" (1 time): there is no temporary folder for "
             "its log; the link \"Log\" of \"orvane-card doctor\" says more."}));
  EXPECT_EQ(LibraryMessages().summary(), Lines());
}

TEST(ToolLibraryMessages, OfEndlesslyManyLinesNoMoreThanSomeAreRemembered) {
  LibraryMessages messages;
  for (int i = 0; i < 300; ++i) EXPECT_EQ(messages.add(std::to_string(i) + "\n").size(), 1U);
  EXPECT_EQ(messages.add("0\n299\n"), Lines{"A library printed: 299"});
}

}  // namespace
}  // namespace orvane::tool
