// Where the log lies, how it comes to be, and its bytes.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

#include "harness/driver_test.h"
#include "harness/log_reader.h"
#include "harness/stack_bytes.h"

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

class LogFileTest : public DriverTest {
 protected:
  void SetUp() override {
    DriverTest::SetUp();
    setLogLevel({LogLevelValue::Type::kNumber, 2, {}});
  }

  // At the level 2 this is exactly one log call that may write.
  void logOnce() {
    const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
    EXPECT_EQ(cardAcquireContext(nullptr, 0), 87u) << "the log never changes a status";
  }

  // What logOnce writes, with the fixed local time.
  static std::string line() { return "15/11::10:03:25:123-> ->ERROR ::=>CardAcquireContext: pCardData is NULL\n"; }

  // What there is of the log below the temporary folder: relative paths with "/", folders with one at the end.
  Lines content() const {
    Lines paths;
    const fs::path base = tempFolder();
    for (const auto& entry : fs::recursive_directory_iterator(base)) {
      const std::string path = entry.path().lexically_relative(base).generic_string();
      // The framework keeps what it captures in the temporary folder.
      if (path.starts_with("Brightfold")) paths.push_back(path + (entry.is_directory() ? "/" : ""));
    }
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  std::string processName() const { return fs::path(logFolder()).filename().string(); }
};

TEST_F(LogFileTest, HasTheseBytes) {
  setDebugLog(true);
  logOnce();
  EXPECT_EQ(fileBytes(logFile()),
            "15/11::10:03:25:123-> ->DEBUG ::=>CardAcquireContext :: LOG_FUNCTION_NAME = Entry\n"
            "15/11::10:03:25:123-> ->DEBUG ::=>dwFlags=0\n"
            "15/11::10:03:25:123-> ->ERROR ::=>CardAcquireContext: pCardData is NULL\n");
}

struct Moment {
  SYSTEMTIME time;
  const char* file;
  const char* prefix;
};

// Day before month in the line, the year only in the file's name; each number has its leading zeros.
TEST_F(LogFileTest, DateAndTimeAreTheLocalOnes) {
  const Moment moments[] = {
      {{2026, 1, 5, 2, 3, 4, 5, 6}, "2026-01-02.LOG", "02/01::03:04:05:006"},
      {{2026, 12, 4, 31, 23, 59, 59, 999}, "2026-12-31.LOG", "31/12::23:59:59:999"},
      {{2027, 1, 5, 1, 0, 0, 0, 0}, "2027-01-01.LOG", "01/01::00:00:00:000"},
      {{2028, 2, 2, 29, 12, 30, 0, 50}, "2028-02-29.LOG", "29/02::12:30:00:050"},
  };
  for (const Moment& moment : moments) {
    SCOPED_TRACE(moment.file);
    setLocalTime(moment.time);
    logOnce();
    EXPECT_EQ(fileBytes(fs::path(logFolder()) / moment.file),
              std::string(moment.prefix) + "-> ->ERROR ::=>CardAcquireContext: pCardData is NULL\n");
  }
}

TEST_F(LogFileTest, ANewDayHasItsOwnFile) {
  setLocalTime(SYSTEMTIME{2026, 11, 0, 15, 23, 59, 59, 999});
  logOnce();
  setLocalTime(SYSTEMTIME{2026, 11, 1, 16, 0, 0, 0, 0});
  logOnce();
  logOnce();
  const std::string text = "-> ->ERROR ::=>CardAcquireContext: pCardData is NULL\n";
  EXPECT_EQ(fileBytes(logFile()), "15/11::23:59:59:999" + text);
  const std::string early = "16/11::00:00:00:000" + text;
  EXPECT_EQ(fileBytes(fs::path(logFolder()) / "2026-11-16.LOG"), early + early);
}

TEST_F(LogFileTest, TheMachinesClockIsTakenOtherwise) {
  setLocalTime(std::nullopt);
  logOnce();
  EXPECT_EQ(takeLog(), Lines{"E CardAcquireContext: pCardData is NULL"}) << "the prefix has its form";
}

TEST_F(LogFileTest, IsAppendedTo) {
  std::ofstream(logFile(), std::ios::binary) << "an older line\n";
  logOnce();
  logOnce();
  EXPECT_EQ(fileBytes(logFile()), "an older line\n" + line() + line());
}

// One call makes one folder and writes nothing; the call that finds all folders writes.
TEST_F(LogFileTest, FoldersComeOneByOne) {
  const std::string process = "Brightfold/" + processName();
  fs::remove_all(fs::path(tempFolder()) / "Brightfold");
  ::testing::internal::CaptureStdout();
  logOnce();
  EXPECT_EQ(content(), Lines{"Brightfold/"});
  logOnce();
  EXPECT_EQ(content(), (Lines{"Brightfold/", process + "/"}));
  logOnce();
  EXPECT_EQ(content(), (Lines{"Brightfold/", process + "/", process + "/2026-11-15.LOG"}));
  EXPECT_EQ(fileBytes(logFile()), line());
  logOnce();
  EXPECT_EQ(fileBytes(logFile()), line() + line());
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_F(LogFileTest, TheProcessFolderAloneCostsOneCall) {
  fs::remove_all(logFolder());
  logOnce();
  EXPECT_TRUE(fs::is_directory(logFolder()));
  EXPECT_FALSE(fs::exists(logFile()));
  logOnce();
  EXPECT_EQ(fileBytes(logFile()), line());
}

// An entry that logs three times on a fresh machine: two lines make the folders, the third is written.
TEST_F(LogFileTest, TheFirstLinesOfAFreshMachineAreLost) {
  setDebugLog(true);
  fs::remove_all(fs::path(tempFolder()) / "Brightfold");
  logOnce();
  EXPECT_EQ(fileBytes(logFile()), line());
}

TEST_F(LogFileTest, AFileThatCannotBeOpenedIsSaidOnStandardOutput) {
  fs::create_directory(logFile());
  ::testing::internal::CaptureStdout();
  logOnce();
  logOnce();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\nUnable to write log\nUnable to write log");
  EXPECT_TRUE(fs::is_empty(logFile()));
}

TEST_F(LogFileTest, AFileInAFoldersPlaceIsNotTouched) {
  fs::remove_all(logFolder());
  std::ofstream(logFolder()) << "in the way";
  ::testing::internal::CaptureStdout();
  logOnce();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\nUnable to write log");
  EXPECT_EQ(fileBytes(logFolder()), "in the way");
}

// Whoever may write to a file can give it a second name where the log belongs.
TEST_F(LogFileTest, AFileThatHasAnotherNameElsewhereIsNotTouched) {
  const fs::path theirs = fs::path(tempFolder()) / "theirs";
  std::ofstream(theirs, std::ios::binary) << "theirs\n";
  fs::create_hard_link(theirs, logFile());
  ::testing::internal::CaptureStdout();
  logOnce();
  logOnce();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "") << "the lines are lost without a word";
  EXPECT_EQ(fileBytes(theirs), "theirs\n");
  // Nothing is remembered: with one name it is a log file like any other.
  fs::remove(theirs);
  logOnce();
  EXPECT_EQ(fileBytes(logFile()), "theirs\n" + line());
}

// Without a temporary folder the path begins at the root of the drive.
class LogWithoutTempFolder : public LogFileTest {
 protected:
  void SetUp() override {
    LogFileTest::SetUp();
    ASSERT_FALSE(fs::exists(root / "Brightfold")) << "the machine has such a folder; remove it";
    isFolderOurs = true;
    std::error_code error;
    isRootWritable = fs::create_directory(root / "orvane-probe", error);
    fs::remove(root / "orvane-probe", error);
  }
  void TearDown() override {
    std::error_code error;
    // Somebody's folder that was there before stays.
    if (isFolderOurs) fs::remove_all(root / "Brightfold", error);
    LogFileTest::TearDown();
  }

  const fs::path root = fs::current_path().root_path();
  bool isRootWritable = false;
  bool isFolderOurs = false;
};

TEST_F(LogWithoutTempFolder, WritesAtTheRootOfTheDrive) {
  std::ofstream(fs::path(tempFolder()) / "file") << "no folder";
  const struct {
    const char* name;
    std::optional<std::string> folder;
  } rows[] = {{"there is none", std::nullopt},
              {"it does not exist", tempFolder() + "/missing"},
              {"it is a file", tempFolder() + "/file"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(root / "Brightfold");
    // The framework wants a temporary folder, too.
    ::testing::internal::CaptureStdout();
    setTempFolder(row.folder);
    for (unsigned line = 0; line < 3; ++line) {
      dirtyTheStack();
      logOnce();
    }
    setTempFolder(tempFolder());
    const std::string noFolder = "\nUnable to getLogBaseFolderPath";
    const std::string call = noFolder + (isRootWritable ? "" : "\nUnable to write log");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), call + call + call);
    const fs::path file = root / "Brightfold" / processName() / "2026-11-15.LOG";
    EXPECT_EQ(fileBytes(file), isRootWritable ? line() : "");
    EXPECT_FALSE(fs::exists(logFile()));
  }
}

#ifndef _WIN32

// Windows makes whole paths of them.
TEST_F(LogWithoutTempFolder, ShortNamesAreNamesLikeOthers) {
  const struct {
    const char* name;
    std::string folder;
    std::string output;
  } rows[] = {{"the root itself", "", ""},
              {"does not exist in the current folder", "missing", "\nUnable to getLogBaseFolderPath"}};
  // What a mistake leaves there goes with the test.
  const fs::path current = fs::current_path();
  fs::current_path(tempFolder());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(root / "Brightfold");
    ::testing::internal::CaptureStdout();
    setTempFolder(row.folder);
    for (unsigned line = 0; line < 3; ++line) logOnce();
    setTempFolder(tempFolder());
    const std::string call = row.output + (isRootWritable ? "" : "\nUnable to write log");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), call + call + call);
    EXPECT_EQ(fileBytes(root / "Brightfold" / processName() / "2026-11-15.LOG"), isRootWritable ? line() : "");
    EXPECT_FALSE(fs::exists("m"));
    EXPECT_FALSE(fs::exists("missing"));
  }
  fs::current_path(current);
}

#endif

}  // namespace
}  // namespace orvane::test
