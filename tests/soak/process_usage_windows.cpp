#include <windows.h>
// After the system's own header.
#include <psapi.h>
#include <tlhelp32.h>

#include "soak/process_usage.h"

namespace orvane::test {
namespace {

std::size_t threadsOfProcess() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  std::size_t count = 0;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

}  // namespace

ProcessUsage processUsage() {
  PROCESS_MEMORY_COUNTERS_EX memory{};
  memory.cb = sizeof(memory);
  K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory), sizeof(memory));
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  return {memory.PrivateUsage, handles, threadsOfProcess()};
}

}  // namespace orvane::test
