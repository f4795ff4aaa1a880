#include "child_process.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace orvane::trial {
namespace {

constexpr std::size_t kLongestOutput = 1U << 20U;

class OwnedHandle {
 public:
  explicit OwnedHandle(HANDLE handle) : handle_(handle) {}
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  ~OwnedHandle() {
    if (handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
  }
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

struct Meaning {
  DWORD code;
  const char* text;
};

const char* meaningOf(const Meaning* begin, const Meaning* end, DWORD code) {
  const Meaning* const found = std::find_if(begin, end, [code](const Meaning& row) { return row.code == code; });
  return found != end ? found->text : nullptr;
}

// What a process that was not allowed to go on ends with (NTSTATUS values).
const Meaning kExitCodes[] = {{0xC0000005, "access violation"},
                              {0xC0000008, "an invalid handle was closed"},
                              {0xC000001D, "illegal instruction"},
                              {0xC000007B, "a DLL is for another architecture"},
                              {0xC00000FD, "stack overflow"},
                              {0xC0000135, "a DLL that it needs is not there"},
                              {0xC0000139, "a DLL lacks a function that it needs"},
                              {0xC0000142, "a DLL refused to start"},
                              {0xC0000374, "the heap is damaged"},
                              {0xC0000409, "it ended itself: a check of the runtime failed"},
                              {0xC0000420, "an assertion failed"},
                              {0xC0000428, "a signature is refused"},
                              {0xC0E90002, "code integrity refuses a file"},
                              {0xE06D7363, "an exception of C++ that nobody caught"},
                              {3, "abort was called"}};

const Meaning kLoadErrors[] = {{2, "the file is not there"},
                               {5, "access is denied"},
                               {126, "it, or a DLL that it needs, is not there"},
                               {127, "a DLL lacks a function that it needs"},
                               {193, "the file is no program of this architecture, or damaged"},
                               {216, "the file is for another architecture"},
                               {225, "the virus scanner refuses it"},
                               {577, "Windows cannot verify its signature"},
                               {1114, "a DLL refused to start"},
                               {1260, "a policy of this machine blocks it"},
                               {4551, "an application-control policy, as Smart App Control, blocks it"}};

HANDLE inheritable(const wchar_t* name, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES attributes{};
  attributes.nLength = sizeof(attributes);
  attributes.bInheritHandle = TRUE;
  return CreateFileW(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &attributes, disposition, FILE_ATTRIBUTE_NORMAL,
                     nullptr);
}

// Everything in the job ends with its last handle, so also when this program is ended itself.
HANDLE newJob() {
  const HANDLE job = CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
  return job;
}

std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(stream), {});
  if (text.size() > kLongestOutput) text.resize(kLongestOutput);
  return text;
}

}  // namespace

std::string loadErrorText(DWORD error) {
  const char* const meaning = meaningOf(std::begin(kLoadErrors), std::end(kLoadErrors), error);
  return "error " + std::to_string(error) + (meaning != nullptr ? std::string(": ") + meaning : "");
}

std::string endingText(const Ending& ending) {
  if (ending.startError != 0) return "the program cannot be started, " + loadErrorText(ending.startError);
  if (ending.isOutOfTime) return "the program did not end in time";
  if (ending.exitCode <= 1) return "";
  char code[16];
  std::snprintf(code, sizeof(code), "0x%08lX", ending.exitCode);
  const char* const meaning = meaningOf(std::begin(kExitCodes), std::end(kExitCodes), ending.exitCode);
  return std::string("the program ended with ") + code + (meaning != nullptr ? std::string(": ") + meaning : "");
}

Ending runProgram(const std::filesystem::path& program, const std::wstring& arguments, unsigned limitSeconds,
                  const std::filesystem::path& outputFile) {
  Ending ending;
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const ULONGLONG begun = GetTickCount64();
  {
    const OwnedHandle input(inheritable(L"NUL", GENERIC_READ, OPEN_EXISTING));
    const OwnedHandle output(inheritable(outputFile.c_str(), GENERIC_WRITE, CREATE_ALWAYS));
    const OwnedHandle job(newJob());
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.get();
    startup.hStdOutput = output.get();
    startup.hStdError = output.get();
    std::wstring command = L"\"" + program.wstring() + L"\" " + arguments;
    PROCESS_INFORMATION started{};
    if (CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                       program.parent_path().c_str(), &startup, &started) == FALSE) {
      ending.startError = GetLastError();
      return ending;
    }
    const OwnedHandle process(started.hProcess);
    const OwnedHandle thread(started.hThread);
    AssignProcessToJobObject(job.get(), process.get());
    ResumeThread(thread.get());
    ending.isOutOfTime = WaitForSingleObject(process.get(), limitSeconds * 1000) != WAIT_OBJECT_0;
    TerminateJobObject(job.get(), 1);
    if (ending.isOutOfTime) {
      // For a system that lets nobody into jobs.
      TerminateProcess(process.get(), 1);
      WaitForSingleObject(process.get(), 10000);
    }
    GetExitCodeProcess(process.get(), &ending.exitCode);
  }
  ending.seconds = static_cast<double>(GetTickCount64() - begun) / 1000;
  ending.output = contentOf(outputFile);
  std::error_code ignored;
  std::filesystem::remove(outputFile, ignored);
  return ending;
}

}  // namespace orvane::trial
