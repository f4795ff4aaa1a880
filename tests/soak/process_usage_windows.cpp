#include <windows.h>
// After the system's own header.
#include <tlhelp32.h>

#include "harness/system_kind.h"
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

// The heap that the C runtime allocates from, the minidriver's included.
std::size_t allocatedBytes() {
  std::size_t bytes = 0;
  const HANDLE heap = GetProcessHeap();
  HeapLock(heap);
  PROCESS_HEAP_ENTRY entry{};
  while (HeapWalk(heap, &entry) != FALSE) {
    if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
  }
  HeapUnlock(heap);
  return bytes;
}

// Wine does not count them and answers 0; its numbers of handles are given out again, the lowest first, so the next one
// tells how many there are.
std::size_t openHandles() {
  DWORD count = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &count) != FALSE && count != 0) return count;
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  const auto number = reinterpret_cast<std::size_t>(event) / 4;
  CloseHandle(event);
  return number;
}

}  // namespace

ProcessUsage processUsage() { return {allocatedBytes(), openHandles(), threadsOfProcess()}; }

void settleHeap() {
  constexpr std::size_t kLargest = 1024;  // larger ones are never kept so
  constexpr int kEnough = 2500;
  for (std::size_t size = 8; size <= kLargest; size += 16) {
    for (int i = 0; i < kEnough; ++i) HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, size));
  }
}

bool areThreadsComingAndGoing() { return isRealWindows(); }

}  // namespace orvane::test
