#include "text/suggestion.h"

#include <gtest/gtest.h>

namespace orvane::tool {
namespace {

TEST(ToolSuggestion, NearestIsWhatWasProbablyMeant) {
  const std::vector<std::string> commands = {"info",    "list",       "read",       "files",      "props",
                                             "pin",     "pin verify", "pin change", "pin forget", "sign",
                                             "decrypt", "doctor",     "log",        "session"};
  struct Case {
    const char* word;
    const char* meant;
  };
  const Case cases[] = {
      {"lsit", "list"},
      {"lists", "list"},
      {"INFOS", "info"},
      {"verify", "pin verify"},
      {"verfy", "pin verify"},
      {"pin verfy", "pin verify"},
      {"docter", "doctor"},
      {"doc", "doctor"},
      {"sess", "session"},
      {"decrpyt", "decrypt"},
      {"sgin", "sign"},
      {"certificates", ""},
      {"x", ""},
      {"", ""},
      {"log-in", ""},
      {"change", "pin change"},
  };
  for (const Case& row : cases) EXPECT_EQ(nearest(row.word, commands), row.meant) << row.word;
  EXPECT_EQ(nearest("--jsn", {"--help", "--json", "--trace"}), "--json");
  EXPECT_EQ(nearest("--verbose", {"--help", "--json", "--trace"}), "");
  EXPECT_EQ(nearest("list", {}), "");
}

TEST(ToolSuggestion, HelpIsAskedForInManyWays) {
  using Words = std::vector<std::string>;
  struct Case {
    Words given;
    Words understood;
  };
  const Case cases[] = {
      {{"/?"}, {"--help"}},
      {{"-?"}, {"--help"}},
      {{"/HELP"}, {"--help"}},
      {{"Help"}, {"--help"}},
      {{"log", "/?"}, {"log", "--help"}},
      {{"help", "pin", "verify"}, {"pin", "verify", "--help"}},
      {{"log", "help"}, {"log", "--help"}},
      {{"pin", "verify", "help"}, {"pin", "verify", "--help"}},
      {{"read", "help", "-o", "help"}, {"read", "help", "-o", "help"}},
      {{"info"}, {"info"}},
      {{}, {}},
  };
  for (const Case& row : cases) EXPECT_EQ(withHelpOption(row.given), row.understood);
}

}  // namespace
}  // namespace orvane::tool
