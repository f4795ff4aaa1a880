#include <gtest/gtest.h>

#include "log/files.h"

namespace orvane::tool {
namespace {

TEST(ToolLogFiles, DateStandsInTheName) {
  struct Case {
    const char* name;
    std::optional<std::string> date;
  };
  const Case cases[] = {
      {"2026-11-15.LOG", "2026-11-15"},
      {"2026-11-15.log", "2026-11-15"},
      {"2026-11-15.LOG.bak", std::nullopt},
      {"2026-11-15.TXT", std::nullopt},
      {"2026-1-15.LOG", std::nullopt},
      {"2026/11/15.LOG", std::nullopt},
      {"abcd-11-15.LOG", std::nullopt},
      {"..", std::nullopt},
      {"", std::nullopt},
  };
  for (const Case& row : cases) EXPECT_EQ(logDateOf(row.name), row.date) << row.name;
}

TEST(ToolLogFiles, NewestThatFitsIsChosen) {
  const std::vector<LogFile> files = {
      {"chrome", "2026-11-14", "a", 0, 900},
      {"lsass", "2026-11-15", "b", 0, 500},
      {"chrome", "2026-11-15", "c", 0, 400},
      {"lsass", "2026-11-13", "d", 0, 999},
  };
  struct Case {
    std::optional<std::string> process;
    std::optional<std::string> date;
    const char* path;  // null: none
  };
  const Case cases[] = {
      {std::nullopt, std::nullopt, "b"}, {"chrome", std::nullopt, "c"},         {"CHROME.EXE", std::nullopt, "c"},
      {std::nullopt, "2026-11-13", "d"}, {"chrome", "2026-11-14", "a"},         {"chrome", "2026-11-13", nullptr},
      {"other", std::nullopt, nullptr},  {std::nullopt, "2026-11-16", nullptr}, {"chrom", std::nullopt, nullptr},
  };
  for (const Case& row : cases) {
    const LogFile* file = chooseLogFile(files, row.process, row.date);
    EXPECT_EQ(file ? file->path : "none", row.path ? row.path : "none")
        << row.process.value_or("any") << " " << row.date.value_or("any");
  }
  EXPECT_EQ(chooseLogFile({}, std::nullopt, std::nullopt), nullptr);
}

}  // namespace
}  // namespace orvane::tool
