// What only the pretended machine can show: paths beyond Windows' own limits, a process without a name, the number of
// registry reads, and appending as the system promises it.
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "harness/linked_test.h"
#include "harness/log_reader.h"
#include "log/log.h"
#include "log/log_file.h"
#include "platform/host/host_control.h"

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

// As long as it lives, no write to a file of this process succeeds.
class NoFileGrows {
 public:
  NoFileGrows() {
    getrlimit(RLIMIT_FSIZE, &limit_);
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
  }
  NoFileGrows(const NoFileGrows&) = delete;
  NoFileGrows& operator=(const NoFileGrows&) = delete;
  ~NoFileGrows() {
    setrlimit(RLIMIT_FSIZE, &limit_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit limit_{};
  void (*handler_)(int) = nullptr;
};

class LogHostTest : public LinkedTest {
 protected:
  void TearDown() override {
    setProcessName("hosttest.exe");
    setThrowing(std::nullopt);
    setNextTimes({});
    LinkedTest::TearDown();
  }

  // The one stand-in that throws from now on.
  static void setThrowing(const std::optional<std::string>& function) {
    host::HostMachine& machine = host::hostMachine();
    const std::lock_guard lock(machine.mutex);
    machine.throwing = function;
  }
  // What the clock says at its next readings.
  static void setNextTimes(const std::vector<SYSTEMTIME>& times) {
    host::HostMachine& machine = host::hostMachine();
    const std::lock_guard lock(machine.mutex);
    machine.nextTimes = times;
    machine.nextTimesRead = 0;
  }

  static void setProcessName(const std::optional<std::string>& name) {
    host::HostMachine& machine = host::hostMachine();
    const std::lock_guard lock(machine.mutex);
    machine.processName = name;
  }
  static std::uint64_t registryReads() {
    host::HostMachine& machine = host::hostMachine();
    const std::lock_guard lock(machine.mutex);
    return machine.registryReads;
  }

  // A folder below the test's own whose path with a separator at the end has this length.
  std::string folderOfLength(std::size_t length) const {
    std::string path = tempFolder();
    while (path.size() + 1 < length) {
      // Parts of at most 100 characters; none may be empty.
      const std::size_t rest = length - path.size() - 2;
      const std::size_t part = rest > 101 ? 100 : rest;
      path += "/" + std::string(part, 'p');
    }
    fs::create_directories(path);
    EXPECT_EQ(path.size() + 1, length);
    return path;
  }
};

TEST_F(LogHostTest, TheProcessNameEndsAtItsFirstDot) {
  const struct {
    std::optional<std::string> name;
    std::string folder;
  } rows[] = {{"lsass.exe", "lsass"},         {"a.b.exe", "a"}, {"plain", "plain"}, {"x", "x"},
              {"two words.exe", "two words"}, {".exe", ""},     {std::nullopt, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name.value_or("(none)"));
    setProcessName(row.name);
    // The name is asked for once, when the minidriver is loaded.
    reloadDriver();
    const fs::path base = fs::path(tempFolder()) / "Brightfold";
    fs::remove_all(base);
    fs::create_directories(row.folder.empty() ? base : base / row.folder);
    logError("line");
    const fs::path folder = row.folder.empty() ? base : base / row.folder;
    EXPECT_EQ(fileBytes(folder / "2026-11-15.LOG"), "15/11::10:03:25:123-> ->ERROR ::=>line\n");
  }
}

// The path has at most 1023 characters and is cut without a word.
TEST_F(LogHostTest, LongPathsAreCut) {
  constexpr std::size_t kFolders = sizeof("/Brightfold/hosttest/") - 1;
  constexpr std::size_t kName = sizeof("2026-11-15.LOG") - 1;
  const struct {
    const char* name;
    std::size_t fileNameLength;
  } rows[] = {{"the whole name just fits", kName}, {"one character is missing", kName - 1}, {"one is left", 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string folder = folderOfLength(1023 - row.fileNameLength - kFolders);
    setTempFolder(folder);
    fs::create_directories(folder + "/Brightfold/hosttest");
    logError("line");
    const std::string name = std::string("2026-11-15.LOG").substr(0, row.fileNameLength);
    EXPECT_EQ(fileBytes(folder + "/Brightfold/hosttest/" + name), "15/11::10:03:25:123-> ->ERROR ::=>line\n");
  }
}

TEST_F(LogHostTest, ATemporaryFolderBeyondTheBufferIsNone) {
  char buffer[1024];
  for (const std::size_t length : {1022u, 1023u}) {
    setTempFolder(folderOfLength(length));
    EXPECT_EQ(getLogBaseFolderPath(buffer, sizeof(buffer)), 0);
    EXPECT_EQ(std::string(buffer).size(), length);
  }
  setTempFolder(folderOfLength(1024));
  EXPECT_EQ(getLogBaseFolderPath(buffer, sizeof(buffer)), -1);
  EXPECT_EQ(std::string(buffer), "");
  setTempFolder(std::nullopt);
  EXPECT_EQ(getLogBaseFolderPath(buffer, sizeof(buffer)), -1);
  EXPECT_EQ(std::string(buffer), "");
  setTempFolder(tempFolder());
  char untouched = 'x';
  EXPECT_EQ(getLogBaseFolderPath(&untouched, 0), -1);
  EXPECT_EQ(untouched, 'x');
  EXPECT_EQ(getLogBaseFolderPath(&untouched, 1), -1);
  EXPECT_EQ(untouched, '\0');
}

// A line that cannot be written is lost; nothing else happens, and the next one is tried again.
TEST_F(LogHostTest, ADiskThatIsFull) {
  ::testing::internal::CaptureStdout();
  {
    const NoFileGrows full;
    logError("lost");
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(fileBytes(logFile()), "") << "it was opened, and no more";
  EXPECT_TRUE(fs::exists(logFile()));
  logError("written");
  EXPECT_EQ(takeLog(), (Lines{"E written"}));
}

// A path that does not fit names another folder, which is made all the same; no line can be written there.
TEST_F(LogHostTest, APathBeyondTheBufferIsCut) {
  const std::string temporary = folderOfLength(1015);
  const std::string folder = (temporary + "//Brightfold/hosttest/").substr(0, 1023);
  setTempFolder(temporary);
  EXPECT_FALSE(fs::exists(folder));
  logError("makes the folder");
  EXPECT_TRUE(fs::is_directory(folder));
  logError("cannot be written");
  EXPECT_TRUE(fs::is_empty(folder));
  // One character too many: what is left names the folder itself, which must not become a file.
  const std::string shorter = folderOfLength(1003);
  setTempFolder(shorter);
  for (unsigned i = 0; i < 3; ++i) logError("line");
  EXPECT_TRUE(fs::is_directory(shorter + "//Brightfold/hosttest"));
  EXPECT_TRUE(fs::is_empty(shorter + "//Brightfold/hosttest"));
  setTempFolder(tempFolder());
}

// An exception in one of the three is said on standard error, and the answer is that of a failure.
TEST_F(LogHostTest, WhatThrowsIsSaidOnStandardError) {
  char buffer[] = "before";
  const std::string folder = tempFolder();
  const struct {
    const char* name;
    const char* throwing;
    std::function<void()> call;
    std::string said;
  } rows[] = {
      {"the temporary folder", "GetTempPathA", [&] { EXPECT_EQ(getLogBaseFolderPath(buffer, sizeof(buffer)), -1); },
       "Exception in getLogBaseFolderPath(): GetTempPathA"},
      {"whether a folder exists", "GetFileAttributesA", [&] { EXPECT_FALSE(isFolderExists(folder.c_str())); },
       "Exception in isFolderExists(): GetFileAttributesA"},
      {"a new folder", "CreateDirectoryA", [&] { EXPECT_FALSE(createFolder((folder + "/new").c_str())); },
       "Exception in createFolder(): CreateDirectoryA"},
      {"each new folder on the way", "CreateDirectoryA", [] { EXPECT_FALSE(createLogFolders("one/two/", "")); },
       "Exception in createFolder(): CreateDirectoryA"
       "Exception in createFolder(): CreateDirectoryA"
       "Exception in createFolder(): CreateDirectoryA"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    setThrowing(row.throwing);
    row.call();
    setThrowing(std::nullopt);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), row.said);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  }
  EXPECT_EQ(std::string(buffer), "");
  EXPECT_TRUE(isFolderExists(folder.c_str())) << "only the throwing call fails";
}

// Midnight comes between two readings of the clock: a line has one of them alone.
TEST_F(LogHostTest, TheClockIsReadOnceForALine) {
  const SYSTEMTIME late{2026, 11, 0, 15, 23, 59, 59, 999};
  const SYSTEMTIME early{2026, 11, 1, 16, 0, 0, 0, 0};
  const std::string nextFile = logFolder() + "/2026-11-16.LOG";
  setNextTimes({late, early, early, early});
  logError("late");
  EXPECT_EQ(fileBytes(logFile()), "15/11::23:59:59:999-> ->ERROR ::=>late\n");
  EXPECT_FALSE(fs::exists(nextFile));
  logError("early");
  EXPECT_EQ(fileBytes(nextFile), "16/11::00:00:00:000-> ->ERROR ::=>early\n");
  // The way round by the folders, when the file cannot be opened, has the same day.
  fs::remove(logFile());
  fs::remove(nextFile);
  fs::create_directory(logFile());
  setNextTimes({late, early, early, early});
  ::testing::internal::CaptureStdout();
  logError("lost");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\nUnable to write log");
  EXPECT_FALSE(fs::exists(nextFile));
}

TEST_F(LogHostTest, TheRegistryIsReadOnceForEachCall) {
  const std::uint64_t before = registryReads();
  logDebug("a");
  logError("b");
  logDebug(std::string("c"));
  setDebugLog(false);
  logDebug("d");
  logError("e");
  EXPECT_EQ(registryReads() - before, 5u);
}

// Lines of many threads stay whole, and none is lost.
TEST_F(LogHostTest, LinesOfSeveralThreadsStayWhole) {
  constexpr int kThreads = 8;
  constexpr int kLines = 200;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < kLines; ++i) logDebug("thread ", thread, " line ", i, std::string(100, 'x'));
    });
  }
  for (std::thread& thread : threads) thread.join();
  Lines lines = takeLog();
  Lines expected;
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int i = 0; i < kLines; ++i) {
      expected.push_back("D thread " + std::to_string(thread) + " line " + std::to_string(i) + std::string(100, 'x'));
    }
  }
  std::sort(lines.begin(), lines.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(lines, expected);
}

}  // namespace
}  // namespace orvane::test
