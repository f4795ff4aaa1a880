// Counts by standing in the way: operator new of the program, and the C library's mutex, which the C++ library uses for
// its own.
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <valgrind/callgrind.h>

#include <cstdlib>
#include <new>

#include "counters.h"
#include "platform/host/host_control.h"

namespace orvane::bench {
namespace {

thread_local bool isCounting = false;
thread_local Counts counts;

void* countedAllocation(std::size_t size) noexcept {
  if (isCounting) {
    ++counts.heapAllocations;
    counts.heapBytes += size;
  }
  return std::malloc(size != 0 ? size : 1);
}

using LockFunction = int (*)(pthread_mutex_t*);
// Looked up before main, when there is one thread.
const auto realLock = reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));

}  // namespace

const bool kCanCount = true;

Counts countDuring(const std::function<void()>& run) {
  counts = {};
  const std::uint64_t reads = host::hostMachine().registryReads.load();
  isCounting = true;
  run();
  isCounting = false;
  Counts result = counts;
  result.registryReads = host::hostMachine().registryReads.load() - reads;
  return result;
}

std::uint64_t heapInUse() { return mallinfo2().uordblks; }

void countInstructions(const char* name, const std::function<void()>& run) {
  CALLGRIND_ZERO_STATS;
  CALLGRIND_TOGGLE_COLLECT;
  run();
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_DUMP_STATS_AT(name);
}

}  // namespace orvane::bench

void* operator new(std::size_t size) {
  if (void* const block = orvane::bench::countedAllocation(size)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return orvane::bench::countedAllocation(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (orvane::bench::isCounting) ++orvane::bench::counts.locks;
  // Libraries lock before this program's own constants are there.
  if (orvane::bench::realLock == nullptr) {
    return reinterpret_cast<orvane::bench::LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"))(mutex);
  }
  return orvane::bench::realLock(mutex);
}
