// How Windows' kernel is asked for the log's folders and file, and what becomes of its answers. The system that these
// tests run in has no reparse points of its own, so the answer that names one is pretended.
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "harness/linked_test.h"
#include "harness/log_reader.h"
#include "log/log.h"
#include "platform/windows_api.h"

// After the system's main header, on which it relies.
#include <winternl.h>

// The entry of this program's import table, over which every call goes.
extern "C" decltype(&NtCreateFile) __imp_NtCreateFile;

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

constexpr ULONG kDontReparse = 0x1000;
constexpr auto kReparsePointEncountered = static_cast<NTSTATUS>(0xC000050B);
constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);

struct Question {
  bool hasFolder;
  ULONG attributes;
  std::wstring name;
  bool isForFolder;
};

// What was asked, and the answer if the kernel is not to give its own.
std::vector<Question> asked;
std::optional<NTSTATUS> pretended;
decltype(&NtCreateFile) kernelsOwn = nullptr;

NTSTATUS NTAPI askedCreateFile(PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES object, PIO_STATUS_BLOCK status,
                               PLARGE_INTEGER size, ULONG attributes, ULONG share, ULONG disposition, ULONG options,
                               PVOID extended, ULONG extendedLength) {
  const UNICODE_STRING& name = *object->ObjectName;
  asked.push_back({object->RootDirectory != nullptr, object->Attributes,
                   std::wstring(name.Buffer, name.Length / sizeof(WCHAR)), (options & FILE_DIRECTORY_FILE) != 0});
  if (pretended) return *pretended;
  return kernelsOwn(handle, access, object, status, size, attributes, share, disposition, options, extended,
                    extendedLength);
}

class LogWindowsTest : public LinkedTest {
 protected:
  void SetUp() override {
    LinkedTest::SetUp();
    asked.clear();
    pretended.reset();
    kernelsOwn = __imp_NtCreateFile;
    divertTo(askedCreateFile);
  }
  void TearDown() override {
    divertTo(kernelsOwn);
    LinkedTest::TearDown();
  }

  static void divertTo(decltype(&NtCreateFile) function) {
    DWORD protection = 0;
    ASSERT_NE(VirtualProtect(&__imp_NtCreateFile, sizeof(__imp_NtCreateFile), PAGE_READWRITE, &protection), FALSE);
    __imp_NtCreateFile = function;
    VirtualProtect(&__imp_NtCreateFile, sizeof(__imp_NtCreateFile), protection, &protection);
  }

  // Every question since the last call, as "file NAME" or "folder NAME"; what is after the last "\" of a file's name is
  // left out. Each must begin at an opened folder and forbid links.
  static std::vector<std::wstring> takeQuestions() {
    std::vector<std::wstring> questions;
    for (const Question& question : asked) {
      EXPECT_TRUE(question.hasFolder);
      EXPECT_EQ(question.attributes, OBJ_CASE_INSENSITIVE | kDontReparse);
      questions.push_back(question.isForFolder ? L"folder " + question.name
                                               : L"file " + question.name.substr(0, question.name.rfind(L'\\')));
    }
    asked.clear();
    return questions;
  }

  std::wstring folderName() const { return L"Brightfold\\" + fs::path(logFolder()).filename().wstring(); }
};

using Questions = std::vector<std::wstring>;

TEST_F(LogWindowsTest, OneQuestionForALine) {
  logError("line");
  EXPECT_EQ(takeQuestions(), (Questions{L"file " + folderName()}));
  EXPECT_EQ(takeLog(), Lines{"E line"});
}

TEST_F(LogWindowsTest, EveryFolderIsMadeWithTheSameCare) {
  fs::remove_all(fs::path(tempFolder()) / "Brightfold");
  const Questions first = {L"file " + folderName(), L"folder Brightfold"};
  const Questions second = {L"file " + folderName(), L"folder Brightfold", L"folder " + folderName()};
  logError("makes one folder");
  EXPECT_EQ(takeQuestions(), first);
  logError("makes the other");
  EXPECT_EQ(takeQuestions(), second);
  logError("line");
  EXPECT_EQ(takeQuestions(), (Questions{L"file " + folderName()}));
  EXPECT_EQ(takeLog(), Lines{"E line"});
}

// Where the kernel meets a link, the line is lost at once: no folder is asked for, and nothing is said.
TEST_F(LogWindowsTest, ALinkEndsIt) {
  pretended = kReparsePointEncountered;
  ::testing::internal::CaptureStdout();
  logError("lost");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(takeQuestions(), (Questions{L"file " + folderName()}));
  pretended.reset();
  logError("line");
  EXPECT_EQ(takeLog(), Lines{"E line"});
}

TEST_F(LogWindowsTest, AnyOtherFailureIsSaid) {
  pretended = kAccessDenied;
  ::testing::internal::CaptureStdout();
  logError("lost");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\nUnable to write log");
  EXPECT_EQ(takeQuestions(), (Questions{L"file " + folderName(), L"folder Brightfold", L"folder " + folderName(),
                                        L"folder " + folderName(), L"file " + folderName()}));
}

}  // namespace
}  // namespace orvane::test
