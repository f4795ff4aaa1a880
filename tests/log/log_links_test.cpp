// Somebody who may create entries in the temporary folder plants links there, before a line is logged or while it is.
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "harness/driver_test.h"
#include "harness/log_reader.h"
#include "platform/host/host_control.h"

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

class LogLinksTest : public DriverTest {
 protected:
  void SetUp() override {
    DriverTest::SetUp();
    setLogLevel({LogLevelValue::Type::kNumber, 2, {}});
    base_ = tempFolder();
    process_ = fs::path(logFolder()).filename().string();
    // Whatever the log wants to find or make could be there, too.
    fs::create_directories(elsewhere() / "empty");
    for (const fs::path& folder : {elsewhere() / "full", elsewhere() / "full" / process_}) {
      fs::create_directories(folder);
      std::ofstream(folder / "2026-11-15.LOG") << "theirs\n";
    }
    std::ofstream(elsewhere() / "file") << "theirs\n";
  }
  void TearDown() override {
    host::hostMachine().atPoint = nullptr;
    DriverTest::TearDown();
  }

  fs::path elsewhere() const { return base_ / "elsewhere"; }
  fs::path aside() const { return base_ / "aside"; }
  fs::path brightfold() const { return base_ / "Brightfold"; }

  using Content = std::map<std::string, std::string>;
  // What there is in a folder, if it is one: files with their bytes, folders without.
  static Content contentOf(const fs::path& folder) {
    Content content;
    if (!fs::is_directory(folder)) return content;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const bool isFile = entry.is_regular_file();
      content[entry.path().lexically_relative(folder).string()] = isFile ? fileBytes(entry.path()) : "(folder)";
    }
    return content;
  }

  // At the level 2 this is exactly one log call that may write. It changes no status and says nothing.
  void logOnceQuietly() {
    const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(cardAcquireContext(nullptr, 0), 87u);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  }

  static std::string line() { return "15/11::10:03:25:123-> ->ERROR ::=>CardAcquireContext: pCardData is NULL\n"; }

  fs::path base_;
  std::string process_;
};

TEST_F(LogLinksTest, WhatIsReachedThroughALinkIsLeftAlone) {
  const fs::path places[] = {brightfold(), logFolder(), logFile()};
  for (const fs::path& place : places) {
    for (const char* const target : {"empty", "full", "file", "missing", "missing/deeper"}) {
      SCOPED_TRACE(place.filename().string() + " to " + target);
      fs::remove_all(brightfold());
      fs::create_directories(place.parent_path());
      fs::create_symlink(elsewhere() / target, place);
      const auto before = contentOf(elsewhere());
      // As many calls as would make both folders and then write.
      for (unsigned i = 0; i < 3; ++i) logOnceQuietly();
      EXPECT_EQ(contentOf(elsewhere()), before);
      EXPECT_TRUE(fs::is_symlink(place));
      // Nothing is remembered: without the link the next lines come.
      fs::remove(place);
      for (unsigned i = 0; i < 3; ++i) logOnceQuietly();
      EXPECT_TRUE(fileBytes(logFile()).ends_with(line()));
      EXPECT_EQ(contentOf(elsewhere()), before);
    }
  }
}

// A link to where the log would go anyway is a link all the same.
TEST_F(LogLinksTest, ALinkWithinTheLog) {
  fs::create_symlink(logFolder() + "/other", logFile());
  std::ofstream(logFolder() + "/other") << "before\n";
  logOnceQuietly();
  EXPECT_EQ(fileBytes(logFolder() + "/other"), "before\n");
}

// Only what is below the temporary folder counts.
TEST_F(LogLinksTest, TheTemporaryFolderMayBeALink) {
  fs::create_directories(base_ / "real" / "deeper");
  fs::create_symlink(base_ / "real", base_ / "link");
  for (const char* const folder : {"link", "link/deeper"}) {
    SCOPED_TRACE(folder);
    setTempFolder((base_ / folder).string());
    for (unsigned i = 0; i < 3; ++i) logOnceQuietly();
    EXPECT_EQ(fileBytes(base_ / folder / "Brightfold" / process_ / "2026-11-15.LOG"), line());
  }
}

// Each row waits for one point on the way to the file and does there what somebody else might at this very moment.
TEST_F(LogLinksTest, WhatIsSwappedInBetweenIsLeftAlone) {
  // Puts a link where a folder or file stands or does not.
  const auto swap = [this](const fs::path& place, const char* target) {
    if (fs::exists(place)) fs::rename(place, aside());
    fs::create_symlink(elsewhere() / target, place);
  };
  const auto moveIn = [this] {
    fs::create_directories(aside());
    fs::create_hard_link(logFile(), aside() / "another");
  };
  const std::string file = "2026-11-15.LOG";
  const Content written = {{process_, "(folder)"}, {process_ + "/" + file, line()}};
  const struct {
    const char* name;
    fs::path missing;  // what is not there before, with all that is in it
    std::string point;
    std::function<void()> act;
    Content aside;  // what our own folder has after the call, wherever it went
  } rows[] = {
      {"Brightfold, before all", {}, "open Brightfold", [&] { swap(brightfold(), "full"); }, {{process_, "(folder)"}}},
      {"Brightfold, once it is open", {}, "open " + process_, [&] { swap(brightfold(), "full"); }, written},
      {"the process folder", {}, "open " + process_, [&] { swap(logFolder(), "full"); }, {}},
      {"the process folder, once it is open", {}, "open " + file, [&] { swap(logFolder(), "full"); }, {{file, line()}}},
      {"the same, to one without a file", {}, "open " + file, [&] { swap(logFolder(), "empty"); }, {{file, line()}}},
      {"the file", {}, "open " + file, [&] { swap(logFile(), "file"); }, {}},
      {"the file, to nothing", {}, "open " + file, [&] { swap(logFile(), "missing"); }, {}},
      {"the open file gets another name", {}, "judge " + file, [&] { moveIn(); }, {{"another", ""}}},
      {"the open file is deleted", {}, "judge " + file, [&] { fs::remove(logFile()); }, {}},
      {"Brightfold, to be made", brightfold(), "make Brightfold", [&] { swap(brightfold(), "missing"); }, {}},
      {"the same, to one that is there", brightfold(), "make Brightfold", [&] { swap(brightfold(), "empty"); }, {}},
      {"the process folder, to be made", logFolder(), "make " + process_, [&] { swap(logFolder(), "missing"); }, {}},
      {"the same, in another Brightfold",
       logFolder(),
       "make " + process_,
       [&] { swap(brightfold(), "empty"); },
       {{process_, "(folder)"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(brightfold());
    fs::remove_all(aside());
    fs::create_directories(logFolder());
    if (!row.missing.empty()) fs::remove_all(row.missing);
    const auto before = contentOf(elsewhere());
    unsigned reached = 0;
    const std::function<void(const std::string&)> atPoint = [&](const std::string& point) {
      if (point == row.point && reached++ == 0) row.act();
    };
    host::hostMachine().atPoint = &atPoint;
    logOnceQuietly();
    host::hostMachine().atPoint = nullptr;
    EXPECT_NE(reached, 0u);
    EXPECT_EQ(contentOf(elsewhere()), before);
    EXPECT_EQ(contentOf(aside()), row.aside);
  }
}

}  // namespace
}  // namespace orvane::test
