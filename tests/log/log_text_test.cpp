// The pieces of messages, tags, and the functions that make and find the log's folders.
#include "log/log_text.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "harness/linked_test.h"
#include "log/log_file.h"
#include "log/process_name.h"

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

template <typename... Parts>
std::string joined(const Parts&... parts) {
  const LogPart list[] = {LogPart(parts)...};
  return joinText(list);
}

TEST(LogText, PiecesPrintAs) {
  const unsigned char bytes[] = {0x00, 0x0A, 0xFF};
  const char* const nullText = nullptr;
  const wchar_t* const nullWideText = nullptr;
  EXPECT_EQ(joinText({}), "");
  EXPECT_EQ(joined("a", std::string("b"), std::string_view("c")), "abc");
  EXPECT_EQ(joined(nullText, "|", nullWideText), "|");
  EXPECT_EQ(joined(L"wide", std::wstring(L" text"), std::wstring_view(L"!")), "wide text!");
  EXPECT_EQ(joined(std::wstring{L'a', wchar_t{0x2014}, wchar_t{0x141}}),
            "a\x14"
            "A");
  EXPECT_EQ(joined(hexBytes(bytes, 3), hexBytes(bytes, 0), hexBytes(nullptr, 0)), "000AFF");
  EXPECT_EQ(joined(hex8(0), hex8(0x80100069), hex8(0x12345678), hex8(0xFFFFFFFF)), "000000008010006912345678FFFFFFFF");
  EXPECT_EQ(joined(0, " ", -1, " ", 42u), "0 -1 42");
  EXPECT_EQ(joined(std::uint8_t{200}, " ", std::int8_t{-7}), "200 -7");
  EXPECT_EQ(joined(true, false), "10");
  EXPECT_EQ(joined(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(joined(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(joined(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(LogText, TagsHaveOneWidth) {
  EXPECT_EQ(logLevelTag(LogLevel::kException), "EXCEP ::=>");
  EXPECT_EQ(logLevelTag(LogLevel::kError), "ERROR ::=>");
  EXPECT_EQ(logLevelTag(LogLevel::kDebug), "DEBUG ::=>");
  EXPECT_EQ(logLevelTag(LogLevel::kInfo), "INFO  ::=>");
  for (const int level : {-1, 0, 5, 99}) EXPECT_EQ(logLevelTag(static_cast<LogLevel>(level)), "INFO  ::=>") << level;
}

TEST(LogText, LineAndFileName) {
  const SYSTEMTIME time{2026, 3, 0, 7, 8, 9, 1, 20};
  EXPECT_EQ(logLine(time, LogLevel::kInfo, "message"), "07/03::08:09:01:020-> ->INFO  ::=>message\n");
  EXPECT_EQ(logLine(time, LogLevel::kException, ""), "07/03::08:09:01:020-> ->EXCEP ::=>\n");
  EXPECT_EQ(logFileName(time), "2026-03-07.LOG");
  // No calendar has such numbers, but the record has room for them: they are written whole.
  const SYSTEMTIME greatest{65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535};
  EXPECT_EQ(logLine(greatest, LogLevel::kInfo, "m"), "65535/65535::65535:65535:65535:65535-> ->INFO  ::=>m\n");
  EXPECT_EQ(logFileName(greatest), "65535-65535-65535.LOG");
}

TEST(LogText, ProcessName) {
  EXPECT_EQ(processNameOf("lsass.exe"), "lsass");
  EXPECT_EQ(processNameOf("a.b.exe"), "a");
  EXPECT_EQ(processNameOf("plain"), "plain");
  EXPECT_EQ(processNameOf(".exe"), "");
  EXPECT_EQ(processNameOf(""), "");
}

class LogFolders : public LinkedTest {};

TEST_F(LogFolders, AreFoundAndMade) {
  const std::string folder = tempFolder() + "/new";
  EXPECT_FALSE(isFolderExists(folder.c_str()));
  EXPECT_TRUE(createFolder(folder.c_str()));
  EXPECT_TRUE(isFolderExists(folder.c_str()));
  EXPECT_FALSE(createFolder(folder.c_str())) << "it is there already";
  EXPECT_FALSE(createFolder((tempFolder() + "/missing/below").c_str()));
  EXPECT_FALSE(isFolderExists(""));
  std::ofstream(folder + "/file") << "text";
  EXPECT_FALSE(isFolderExists((folder + "/file").c_str()));
}

// The first character is never the end of a folder, the second may be.
TEST_F(LogFolders, BeginWithOneOfASingleCharacter) {
  const fs::path before = fs::current_path();
  fs::current_path(tempFolder());
  EXPECT_TRUE(createLogFolders("o/two/", ""));
  EXPECT_TRUE(fs::is_directory("o"));
  EXPECT_FALSE(fs::exists("o/two"));
  EXPECT_TRUE(createLogFolders("o/two/", ""));
  EXPECT_TRUE(fs::is_directory("o/two"));
  EXPECT_FALSE(createLogFolders("o/two/", ""));
  fs::current_path(before);
}

TEST_F(LogFolders, AreMadeOneACall) {
  const struct {
    const char* name;
    std::string base;
    std::string below;
  } rows[] = {{"below what is there", "", "/one/two/three/"},
              {"below what is partly there", "/one", "/two/three/"},
              {"nothing is below", "/one/two/three/", ""},
              {"separators side by side", "", "//one/two//three"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string base = tempFolder() + row.base;
    fs::remove_all(tempFolder() + "/one");
    for (const char* const made : {"/one", "/one/two", "/one/two/three"}) {
      SCOPED_TRACE(made);
      EXPECT_TRUE(createLogFolders(base, row.below));
      EXPECT_TRUE(fs::is_directory(tempFolder() + made));
      EXPECT_TRUE(fs::is_empty(tempFolder() + made));
    }
    EXPECT_FALSE(createLogFolders(base, row.below));
  }
}

}  // namespace
}  // namespace orvane::test
