#include <gtest/gtest.h>

#include "text/table.h"

namespace orvane::tool {
namespace {

TEST(ToolTextTable, ColumnsAreAsWideAsTheirWidestCell) {
  TextTable table({">#", "Subject", "Use"});
  table.addRow({"0", "M\xC3\xBCller", "sign"});
  table.addRow({"10", "A longer name"});
  EXPECT_EQ(table.text(),
            " #  Subject        Use\n"
            "--  -------------  ----\n"
            " 0  M\xC3\xBCller         sign\n"
            "10  A longer name\n");
}

TEST(ToolTextTable, NarrowerThanItsCellsItBreaksThemBetweenWords) {
  TextTable table({">#", "~Subject", "~Valid", "Mark"});
  table.addRow({"1", "Nora Example of the long department", "2026-11-20 to 2036-11-20", "ABCD"});
  table.addRow({"2", "CN=\xC3\xA4\xC3\xA4withoutAnyBlankInIt", "", "EF"});
  EXPECT_EQ(table.text(38),
            "#  Subject        Valid           Mark\n"
            "-  -------------  --------------  ----\n"
            "1  Nora Example   2026-11-20 to   ABCD\n"
            "   of the long    2036-11-20\n"
            "   department\n"
            "2  CN=\xC3\xA4\xC3\xA4withoutA                  EF\n"
            "   nyBlankInIt\n");
  EXPECT_EQ(table.text(1000), table.text());
}

TEST(ToolTextTable, NeverBreaksADateNorAColumnThatIsNotMarked) {
  TextTable table({"Whole", "~Valid"});
  table.addRow({"as it is in one line", "2026-11-20 to 2036-11-20, expired"});
  EXPECT_EQ(table.text(10),
            "Whole                 Valid\n"
            "--------------------  -----------\n"
            "as it is in one line  2026-11-20\n"
            "                      to\n"
            "                      2036-11-20,\n"
            "                      expired\n");
}

TEST(ToolTextTable, WithoutRowsThereAreTheHeaders) { EXPECT_EQ(TextTable({"A", ">B"}).text(), "A  B\n-  -\n"); }

TEST(ToolShortened, CutsAtCodePointsAndMarksTheCut) {
  struct Case {
    const char* text;
    std::size_t width;
    const char* expected;
  };
  const Case cases[] = {
      {"", 3, ""},
      {"abc", 3, "abc"},
      {"abcd", 3, "ab\xE2\x80\xA6"},
      {"\xC3\xA4\xC3\xB6\xC3\xBC", 3, "\xC3\xA4\xC3\xB6\xC3\xBC"},
      {"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", 3, "\xC3\xA4\xC3\xB6\xE2\x80\xA6"},
      {"abc", 1, "\xE2\x80\xA6"},
  };
  for (const Case& row : cases) EXPECT_EQ(shortened(row.text, row.width), row.expected) << row.text;
}

TEST(ToolWrapped, BreaksBetweenWords) {
  struct Case {
    const char* text;
    std::size_t column;
    std::size_t width;
    const char* expected;
  };
  const Case cases[] = {
      {"", 2, 10, ""},
      {"one two three", 2, 0, "one two three"},
      {"one two three", 2, 15, "one two three"},
      {"one two three", 2, 14, "one two\n  three"},
      {"one two three", 0, 5, "one\ntwo\nthree"},
      {"one-two-three four", 2, 8, "one-two-three\n  four"},
      {"one  two", 0, 8, "one  two"},
      {" one", 0, 8, " one"},
      {"one ", 0, 8, "one "},
      {"\xC3\xA4\xC3\xA4 \xC3\xB6\xC3\xB6", 0, 5, "\xC3\xA4\xC3\xA4 \xC3\xB6\xC3\xB6"},
      {"one two", 20, 10, "one\n                    two"},
  };
  for (const Case& row : cases) EXPECT_EQ(wrapped(row.text, row.column, row.width), row.expected) << row.text;
}

TEST(ToolFieldList, ValuesStandInOneColumnAndContinueBelowThemselves) {
  EXPECT_EQ(fieldList({{"ATR", "3B"}, {"Readers", "one\ntwo"}, {"Empty", ""}}),
            "ATR:      3B\n"
            "Readers:  one\n"
            "          two\n"
            "Empty:\n");
}

}  // namespace
}  // namespace orvane::tool
