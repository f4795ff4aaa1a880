// How the minidriver comes and goes in a process that does not care: loaded and freed many times with its monitor
// thread running, and processes that end without freeing it. A program of its own, without any hooks in the minidriver
// but for what it does with threads.
//
//   orvane_unload_tests --end NAME     one process that ends in this way; see kEnds
//   orvane_unload_tests --first NAME   one process whose first acquisition is this one; see kFirstAcquisitions
#include <windows.h>
// After the system's own header.
#include <gtest/gtest.h>
#include <tlhelp32.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "harness/import_table.h"
#include "harness/plain_record.h"
#include "harness/system_kind.h"
#include "platform/card_module.h"
#include "soak/process_usage.h"
#include "softtoken/softtoken_control.h"
#include "unload/exit_hook.h"
#include "unload/loader_lock.h"

namespace orvane::test {
namespace {

constexpr wchar_t kDriverName[] = L"OrvaneMinidriver.dll";
constexpr const char* kListFunction = "orvane_getConnectedDeviceList";
constexpr unsigned kLoads = 100;
constexpr const char* kEndEvent = "orvane-unload-tests-end";
constexpr DWORD kExitCode = 42;
constexpr DWORD kHookFailed = 43;
constexpr DWORD kLongMs = 120000;  // bounds a test that fails

std::filesystem::path programPath() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

LPVOID WINAPI allocate(SIZE_T size) { return std::malloc(size); }
LPVOID WINAPI reallocate(LPVOID block, SIZE_T size) { return std::realloc(block, size); }
void WINAPI release(LPVOID block) { std::free(block); }

CARD_DATA newRecord() { return plainRecord(allocate, reallocate, release); }

void defineToken() {
  softtoken_reset();
  softtoken_set_folder("");
  const SofttokenTokenDefinition token{"A1", "2.1.0", "1234", "12345678", 3, 3, 0, 0, kSofttokenKeep};
  softtoken_define_token(&token);
}

PFN_CARD_ACQUIRE_CONTEXT acquireContextOf(HMODULE driver) {
  return reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(
      reinterpret_cast<void*>(GetProcAddress(driver, "CardAcquireContext")));
}

// Loads the minidriver and acquires a context; a text says what went wrong, empty for nothing.
std::string loadAndAcquire(HMODULE& driver, CARD_DATA& record,
                           const std::filesystem::path& path = programPath().parent_path() / kDriverName) {
  driver = LoadLibraryW(path.c_str());
  if (driver == nullptr) return "cannot load the minidriver, error " + std::to_string(GetLastError());
  const auto acquire = acquireContextOf(driver);
  if (acquire == nullptr) return "no CardAcquireContext";
  const DWORD status = acquire(&record, 0);
  return status == SCARD_S_SUCCESS ? "" : "CardAcquireContext returned " + std::to_string(status);
}

// What the monitor thread does when the minidriver is freed, and whether the context is deleted before.
struct Load {
  const char* name;
  bool isMonitorPolling;  // it is in its first poll; otherwise it may be anywhere in its procedure
  bool isContextDeleted;
};
void PrintTo(const Load& load, std::ostream* stream) { *stream << load.name; }

class Loads : public ::testing::TestWithParam<Load> {};

// How many threads the minidriver has stopped from outside since this was last set to 0. Nothing is cleared up of such
// a thread, and whatever lock it holds stays held.
std::atomic<int> threadsStopped;

DWORD WINAPI countedSuspendThread(HANDLE thread) {
  ++threadsStopped;
  return SuspendThread(thread);
}

std::string loadAndFree(const Load& kind) {
  defineToken();
  threadsStopped = 0;
  if (kind.isMonitorPolling) softtoken_gate(kListFunction, 1);
  HMODULE driver = nullptr;
  CARD_DATA record = newRecord();
  const std::string fault = loadAndAcquire(driver, record);
  if (!fault.empty()) return fault;
  divertImports(driver, {divert("SuspendThread", countedSuspendThread)});
  if (kind.isMonitorPolling) {
    if (softtoken_wait_held(kListFunction, kLongMs) == 0) return "the monitor does not poll";
    softtoken_gate(kListFunction, 0);
  }
  if (kind.isContextDeleted && record.pfnCardDeleteContext(&record) != SCARD_S_SUCCESS) {
    return "CardDeleteContext failed";
  }
  FreeLibrary(driver);
  if (threadsStopped != 0) return "the monitor thread was stopped from outside";
  return GetModuleHandleW(kDriverName) == nullptr ? "" : "the module is still there";
}

TEST_P(Loads, LeaveNothingBehind) {
  for (unsigned i = 1; i <= kLoads; ++i) EXPECT_EQ(loadAndFree(GetParam()), "") << "load " << i;
}

INSTANTIATE_TEST_SUITE_P(Unload, Loads,
                         ::testing::Values(Load{"ContextDeletedWhileTheMonitorStarts", false, true},
                                           Load{"ContextLeftWhileTheMonitorStarts", false, false},
                                           Load{"ContextDeletedWhileTheMonitorPolls", true, true},
                                           Load{"ContextLeftWhileTheMonitorPolls", true, false}),
                         [](const auto& row) { return row.param.name; });

// Freeing waits for the library call that the monitor is in, and for nothing more.
TEST(Unload, WaitsForTheMonitorsLibraryCall) {
  defineToken();
  softtoken_gate(kListFunction, 1);
  HMODULE driver = nullptr;
  CARD_DATA record = newRecord();
  ASSERT_EQ(loadAndAcquire(driver, record), "");
  ASSERT_EQ(softtoken_wait_held(kListFunction, kLongMs), 1);
  threadsStopped = 0;
  divertImports(driver, {divert("SuspendThread", countedSuspendThread)});
  // Opens the gate while the module is on its way out, or, on a very slow machine, before. It has passed the loader's
  // lock before the freeing takes that.
  const HANDLE started = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  const HANDLE opener = CreateThread(
      nullptr, 0,
      [](LPVOID event) -> DWORD {
        SetEvent(event);
        Sleep(300);
        softtoken_gate(kListFunction, 0);
        return 0;
      },
      started, 0, nullptr);
  ASSERT_NE(opener, nullptr);
  ASSERT_EQ(WaitForSingleObject(started, kLongMs), WAIT_OBJECT_0);
  FreeLibrary(driver);
  EXPECT_EQ(GetModuleHandleW(kDriverName), nullptr);
  EXPECT_EQ(threadsStopped, 0);
  EXPECT_EQ(WaitForSingleObject(opener, kLongMs), WAIT_OBJECT_0);
  CloseHandle(opener);
  CloseHandle(started);
}

// Two copies of the minidriver know nothing of each other: each has its own monitor and its own caches.
TEST(Unload, TwoCopiesInOneProcess) {
  defineToken();
  const std::filesystem::path original = programPath().parent_path() / kDriverName;
  const std::filesystem::path copy = std::filesystem::temp_directory_path() / L"OrvaneMinidriverCopy.dll";
  std::filesystem::copy_file(original, copy, std::filesystem::copy_options::overwrite_existing);
  const std::filesystem::path paths[] = {original, copy};
  HMODULE drivers[2] = {};
  CARD_DATA records[2] = {newRecord(), newRecord()};
  std::string pin = "1234";
  for (unsigned i = 0; i < 2; ++i) {
    ASSERT_EQ(loadAndAcquire(drivers[i], records[i], paths[i]), "");
    EXPECT_EQ(records[i].pfnCardAuthenticateEx(&records[i], ROLE_USER, CARD_PIN_SILENT_CONTEXT, nullptr, 0, nullptr,
                                               nullptr, nullptr),
              static_cast<DWORD>(SCARD_W_CARD_NOT_AUTHENTICATED));
    EXPECT_EQ(records[i].pfnCardAuthenticateEx(&records[i], ROLE_USER, 0, reinterpret_cast<PBYTE>(pin.data()), 4,
                                               nullptr, nullptr, nullptr),
              0u);
  }
  EXPECT_NE(drivers[0], drivers[1]);
  EXPECT_NE(records[0].pfnCardReadFile, records[1].pfnCardReadFile);
  EXPECT_EQ(records[0].pfnCardDeleteContext(&records[0]), 0u);
  FreeLibrary(drivers[0]);
  EXPECT_EQ(GetModuleHandleW(kDriverName), nullptr);
  // The other one goes on.
  EXPECT_EQ(records[1].pfnCardAuthenticateEx(&records[1], ROLE_USER, CARD_PIN_SILENT_CONTEXT, nullptr, 0, nullptr,
                                             nullptr, nullptr),
            0u);
  FreeLibrary(drivers[1]);
  EXPECT_EQ(GetModuleHandleW(copy.filename().c_str()), nullptr);
  std::error_code failure;
  EXPECT_TRUE(std::filesystem::remove(copy, failure)) << failure.message();
}

// What the process holds after some more loads.
ProcessUsage usageAfterLoads() {
  for (unsigned i = 1; i <= kLoads; ++i) EXPECT_EQ(loadAndFree({"", false, true}), "") << "load " << i;
  softtoken_reset();
  return processUsage();
}

// A host may load and free the minidriver each time a card comes: nothing may grow by that. The system's pool has a
// thread more or less at any moment, for each of which Wine's heap sets groups of blocks aside. So what counts is the
// least growth of some rounds: what stays behind with each load shows in all of them.
TEST(Unload, LeavesNoMemory) {
  constexpr int kRounds = 5;
  settleHeap();
  ProcessUsage before = usageAfterLoads();
  const ProcessUsage first = before;
  std::int64_t leastGrowth = std::numeric_limits<std::int64_t>::max();
  for (int round = 0; round < kRounds; ++round) {
    const ProcessUsage after = usageAfterLoads();
    leastGrowth = std::min(leastGrowth, static_cast<std::int64_t>(after.heapBytes - before.heapBytes));
    before = after;
  }
  // The least that could stay behind is the work that the pool was given, some 250 bytes each time in Wine.
  EXPECT_LT(leastGrowth, static_cast<std::int64_t>(kLoads) * 100);
  EXPECT_LT(before.threads, first.threads + kLoads / 10);
  EXPECT_LT(before.handles, first.handles + kLoads / 10);
}

// Has the system's pool do something, and waits for it.
void doInThePool(PTP_WORK_CALLBACK something, void* argument) {
  const PTP_WORK work = CreateThreadpoolWork(something, argument, nullptr);
  ASSERT_NE(work, nullptr);
  SubmitThreadpoolWork(work);
  WaitForThreadpoolWorkCallbacks(work, FALSE);
  CloseThreadpoolWork(work);
}

// The pool that lends the monitor its thread has others for the host.
TEST(Unload, InAThreadOfThePool) {
  std::string fault = "not done";
  doInThePool(
      [](PTP_CALLBACK_INSTANCE, void* result, PTP_WORK) {
        *static_cast<std::string*>(result) = loadAndFree({"", false, true});
      },
      &fault);
  EXPECT_EQ(fault, "");
}

// Threads that start stand still at the gate, under the loader's lock; how many have passed it.
const HANDLE startGate = CreateEventA(nullptr, TRUE, FALSE, nullptr);
std::atomic<int> threadsStarted;

void startAtTheGate() {
  WaitForSingleObject(startGate, kLongMs);
  ++threadsStarted;
}

// Opens the gate once the minidriver waits for its thread, and then lets it wait for longer than it asked for.
std::atomic<DWORD> startBound;

DWORD WINAPI waitForTheStart(HANDLE handle, DWORD milliseconds) {
  startBound = milliseconds;
  SetEvent(startGate);
  return WaitForSingleObject(handle, kLongMs);
}

// Tells the process that started this one that the end has come as planned.
void announceEnd() {
  const HANDLE event = OpenEventA(EVENT_MODIFY_STATE, FALSE, kEndEvent);
  SetEvent(event);
}

// The record that the exit hook works on.
CARD_DATA hookedRecord;

void deleteContextAtTheEnd() {
  const DWORD status = hookedRecord.pfnCardDeleteContext(&hookedRecord);
  if (status == SCARD_S_SUCCESS && hookedRecord.pvVendorSpecific == nullptr) {
    announceEnd();
  } else {
    TerminateProcess(GetCurrentProcess(), kHookFailed);
  }
}

// The minidriver that the exit hook acquires a context from.
HMODULE hookedDriver;

void acquireAtTheEnd() {
  CARD_DATA record = newRecord();
  const auto acquire = acquireContextOf(hookedDriver);
  if (acquire != nullptr && acquire(&record, 0) == static_cast<DWORD>(SCARD_F_INTERNAL_ERROR)) {
    announceEnd();
  } else {
    TerminateProcess(GetCurrentProcess(), kHookFailed);
  }
}

std::set<DWORD> ownThreads() {
  std::set<DWORD> threads;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) threads.insert(entry.th32ThreadID);
  }
  CloseHandle(snapshot);
  return threads;
}

// Gives the thread another priority, and has it act for somebody.
bool changeThread(HANDLE thread) {
  HANDLE own = nullptr, other = nullptr;
  return SetThreadPriority(thread, THREAD_PRIORITY_ABOVE_NORMAL) != FALSE &&
         OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE, &own) != FALSE &&
         DuplicateToken(own, SecurityImpersonation, &other) != FALSE && SetThreadToken(&thread, other) != FALSE;
}

bool isThreadAsItWas(HANDLE thread) {
  HANDLE token = nullptr;
  return GetThreadPriority(thread) == THREAD_PRIORITY_NORMAL &&
         OpenThreadToken(thread, TOKEN_QUERY, TRUE, &token) == FALSE && GetLastError() == ERROR_NO_TOKEN;
}

// The first acquisition of a process, in which the system has no thread to lend and must start one.
struct FirstAcquisition {
  const char* name;
  bool isAtTheEnd;       // it comes later, and announces the end itself
  std::string (*run)();  // tells what went wrong
};
void PrintTo(const FirstAcquisition& first, std::ostream* stream) { *stream << first.name; }

std::string freed(HMODULE driver) {
  FreeLibrary(driver);
  return GetModuleHandleW(kDriverName) == nullptr ? "" : "the module is still there";
}

const FirstAcquisition kFirstAcquisitions[] = {
    // A FreeLibrary that comes at once finds the thread at work.
    {"WaitsForTheMonitorToStart", false,
     []() -> std::string {
       const HMODULE driver = LoadLibraryW((programPath().parent_path() / kDriverName).c_str());
       if (driver == nullptr) return "cannot load the minidriver";
       // The monitor itself rests in the same way, but only after its first poll, at which it is held.
       softtoken_gate(kListFunction, 1);
       divertImports(driver, {divert("WaitForSingleObject", waitForTheStart)});
       CARD_DATA record = newRecord();
       const DWORD status = acquireContextOf(driver)(&record, 0);
       divertImports(driver, {divert("WaitForSingleObject", WaitForSingleObject)});
       if (status != SCARD_S_SUCCESS) return "CardAcquireContext returned " + std::to_string(status);
       if (threadsStarted < 1) return "no thread has started";
       if (startBound != 1000) return "it waits for " + std::to_string(startBound);
       setThreadHook(nullptr);
       softtoken_gate(kListFunction, 0);
       return freed(driver);
     }},
    // Whatever a token library does to the thread that asks it.
    {"GivesTheThreadBackAsItWas", false,
     []() -> std::string {
       setThreadHook(nullptr);
       softtoken_gate(kListFunction, 1);
       const std::set<DWORD> before = ownThreads();
       HMODULE driver = nullptr;
       CARD_DATA record = newRecord();
       const std::string fault = loadAndAcquire(driver, record);
       if (!fault.empty()) return fault;
       if (softtoken_wait_held(kListFunction, kLongMs) == 0) return "the monitor does not poll";
       std::vector<HANDLE> threads;
       for (const DWORD id : ownThreads()) {
         if (before.contains(id)) continue;
         threads.push_back(OpenThread(THREAD_ALL_ACCESS, FALSE, id));
         if (!changeThread(threads.back())) return "the thread cannot be changed";
       }
       softtoken_gate(kListFunction, 0);
       const std::string freeing = freed(driver);
       if (!freeing.empty()) return freeing;
       // The pool may have started others, to have them ready; they stay as they were made here.
       return std::any_of(threads.begin(), threads.end(), isThreadAsItWas) ? "" : "the thread is not as it was";
     }},
    // A caller who holds the loader's lock gets its context, after a bounded wait; a thread that never got to start is
    // no obstacle to freeing either.
    {"UnderTheLoadersLock", false,
     []() -> std::string {
       {
         const LoaderLock lock;
         if (!lock.isHeld()) return "the loader's lock cannot be had";
         HMODULE driver = nullptr;
         CARD_DATA record = newRecord();
         std::string fault = loadAndAcquire(driver, record);
         if (fault.empty() && record.pfnCardDeleteContext(&record) != SCARD_S_SUCCESS)
           return "CardDeleteContext failed";
         if (fault.empty()) fault = freed(driver);
         if (!fault.empty()) return fault;
         if (threadsStarted != 0) return "a thread has passed the lock";
         setThreadHook(nullptr);
       }
       // What the pool had still to do is done before this.
       doInThePool([](PTP_CALLBACK_INSTANCE, void*, PTP_WORK) {}, nullptr);
       return "";
     }},
    // The pool is gone by then: no monitor, and no exception that nobody catches.
    {"WhileTheProcessEnds", true,
     []() -> std::string {
       hookedDriver = LoadLibraryW((programPath().parent_path() / kDriverName).c_str());
       setThreadHook(nullptr);
       setExitHook(acquireAtTheEnd);
       return hookedDriver != nullptr ? "" : "cannot load the minidriver";
     }},
};

DWORD WINAPI exitThread(LPVOID) {
  announceEnd();
  ExitProcess(kExitCode);
  return 0;
}

// Holds the library lock for as long as its gate is closed.
DWORD WINAPI authenticate(LPVOID) {
  BYTE pin[] = {'1', '2', '3', '4'};
  hookedRecord.pfnCardAuthenticateEx(&hookedRecord, ROLE_USER, 0, pin, sizeof(pin), nullptr, nullptr, nullptr);
  return 0;
}

// The longest wait that the minidriver has asked for.
std::atomic<DWORD> longestWait;

// Sees at once whether what is waited for has come.
DWORD WINAPI waitShortly(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
  longestWait = std::max(longestWait.load(), milliseconds);
  return WaitForMultipleObjects(count, handles, all, 0);
}

// The ways in which a process with a loaded minidriver and an open context ends; each is to give kExitCode.
struct End {
  const char* name;
  bool isMonitorPolling;  // it is in its first poll and does not come back; otherwise it may be anywhere
  int (*run)();
};
void PrintTo(const End& end, std::ostream* stream) { *stream << end.name; }

const End kEnds[] = {
    {"ReturnFromMain", false,
     [] {
       announceEnd();
       return static_cast<int>(kExitCode);
     }},
    {"ExitProcess", false,
     [] {
       announceEnd();
       ExitProcess(kExitCode);
       return 0;
     }},
    {"ExitFromAnotherThread", false,
     [] {
       const HANDLE thread = CreateThread(nullptr, 0, exitThread, nullptr, 0, nullptr);
       WaitForSingleObject(thread, INFINITE);
       return 0;
     }},
    // What is still on its way of the monitor's thread must not cost the exit code.
    {"ReturnFromMainOnceFreed", false,
     [] {
       FreeLibrary(GetModuleHandleW(kDriverName));
       if (GetModuleHandleW(kDriverName) != nullptr) return 1;
       announceEnd();
       return static_cast<int>(kExitCode);
     }},
    {"ExitWhileTheMonitorIsInTheLibrary", true,
     [] {
       announceEnd();
       return static_cast<int>(kExitCode);
     }},
    // A library that never comes back does not keep the module: its thread is made to stand still, after 15 seconds,
    // which the minidriver asks for and is not given here.
    {"FreeWhileTheLibraryNeverComesBack", true,
     [] {
       const HMODULE driver = GetModuleHandleW(kDriverName);
       divertImports(driver,
                     {divert("WaitForMultipleObjects", waitShortly), divert("SuspendThread", countedSuspendThread)});
       FreeLibrary(driver);
       if (GetModuleHandleW(kDriverName) != nullptr || longestWait != 15000 || threadsStopped != 1) return 1;
       announceEnd();
       return static_cast<int>(kExitCode);
     }},
    {"ExitWhileACallIsInTheLibrary", false,
     [] {
       softtoken_gate("orvane_validatePassword", 1);
       CreateThread(nullptr, 0, authenticate, nullptr, 0, nullptr);
       if (softtoken_wait_held("orvane_validatePassword", kLongMs) == 0) return 1;
       announceEnd();
       return static_cast<int>(kExitCode);
     }},
    // The monitor waits in the library: an emulated Arm system dies when a process ends while another thread computes.
    {"DeleteContextAfterTheMinidriverWasTold", true,
     [] {
       setExitHook(deleteContextAtTheEnd);
       return static_cast<int>(kExitCode);
     }},
};

std::filesystem::path ownTempFolder() {
  static const std::filesystem::path folder = std::filesystem::temp_directory_path() / L"orvane-unload-tests";
  return folder;
}

int acquireFirst(const char* name) {
  const auto* const first = std::find_if(std::begin(kFirstAcquisitions), std::end(kFirstAcquisitions),
                                         [&](const auto& row) { return std::strcmp(row.name, name) == 0; });
  if (first == std::end(kFirstAcquisitions)) return 2;
  defineToken();
  setThreadHook(startAtTheGate);
  // A failure is logged.
  std::filesystem::create_directory(ownTempFolder());
  SetEnvironmentVariableW(L"TMP", ownTempFolder().c_str());
  const std::string fault = first->run();
  if (!fault.empty()) {
    std::printf("%s\n", fault.c_str());
    return 1;
  }
  if (!first->isAtTheEnd) announceEnd();
  return static_cast<int>(kExitCode);
}

int endAs(const char* name) {
  const auto* const end = std::find_if(std::begin(kEnds), std::end(kEnds),
                                       [&](const End& row) { return std::strcmp(row.name, name) == 0; });
  if (end == std::end(kEnds)) return 2;
  defineToken();
  if (end->isMonitorPolling) softtoken_gate(kListFunction, 1);
  HMODULE driver = nullptr;
  hookedRecord = newRecord();
  const std::string fault = loadAndAcquire(driver, hookedRecord);
  if (!fault.empty()) {
    std::printf("%s\n", fault.c_str());
    return 3;
  }
  if (end->isMonitorPolling && softtoken_wait_held(kListFunction, kLongMs) == 0) return 1;
  return end->run();
}

class Ends : public ::testing::TestWithParam<End> {};

// Wine 10 on Arm dies when it ends a thread that is not in a system call (its user_mode_abort_thread takes the stack
// from the wrong place), as the end of a process with a monitor can do. So in an emulated Arm system it is only asked
// that the process reaches its end and is gone then.
bool isExitCodeJudged() {
#if defined(__aarch64__) || defined(_M_ARM64)
  return isRealWindows();
#else
  return true;
#endif
}

// Runs this program anew and expects that it announces its end.
void expectEnd(const std::string& option, const std::string& name) {
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, kEndEvent);
  ASSERT_NE(event, nullptr);
  ResetEvent(event);
  const std::string arguments = option + " " + name;
  std::wstring command = L"\"" + programPath().wstring() + L"\" ";
  command.append(arguments.begin(), arguments.end());
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  ASSERT_NE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process),
            FALSE);
  const DWORD waited = WaitForSingleObject(process.hProcess, kLongMs);
  EXPECT_EQ(waited, WAIT_OBJECT_0) << "the process does not end";
  if (waited != WAIT_OBJECT_0) TerminateProcess(process.hProcess, 1);
  DWORD exitCode = 0;
  EXPECT_NE(GetExitCodeProcess(process.hProcess, &exitCode), FALSE);
  EXPECT_NE(exitCode, kHookFailed);
  if (isExitCodeJudged()) EXPECT_EQ(exitCode, kExitCode);
  EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0) << "the end was not reached";
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  CloseHandle(event);
}

TEST_P(Ends, WithoutHangOrCrash) { expectEnd("--end", GetParam().name); }

INSTANTIATE_TEST_SUITE_P(Unload, Ends, ::testing::ValuesIn(kEnds), [](const auto& row) { return row.param.name; });

class FirstAcquisitions : public ::testing::TestWithParam<FirstAcquisition> {};

TEST_P(FirstAcquisitions, StartTheMonitor) {
  expectEnd("--first", GetParam().name);
  std::error_code failure;
  std::filesystem::remove_all(ownTempFolder(), failure);
  EXPECT_FALSE(failure) << failure.message();
}

INSTANTIATE_TEST_SUITE_P(Unload, FirstAcquisitions, ::testing::ValuesIn(kFirstAcquisitions),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace orvane::test

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--end") == 0) return orvane::test::endAs(argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--first") == 0) return orvane::test::acquireFirst(argv[2]);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
