// The linker puts these around operator new and delete of everything that is linked into the program (--wrap), which
// works under all sanitizers; what the C++ library's own shared object allocates is not seen.
#include "together/counted_memory.h"

#include <malloc.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <new>

#include "faults/failing_new.h"

namespace orvane::test {
namespace {

// Blocks of the minidriver. No lock: one would order the threads, and hide races from the thread sanitizer. A block has
// a place in one of so many rows, found by its address.
constexpr std::size_t kRows = 1 << 13;
constexpr std::size_t kPlaces = 16;
std::array<std::array<std::atomic<std::uintptr_t>, kPlaces>, kRows> blocks;
std::atomic<std::uint64_t> withoutPlace{0};

std::array<std::atomic<std::uintptr_t>, kPlaces>& rowOf(std::uintptr_t block) {
  return blocks[((block >> 4) * 0x9E3779B97F4A7C15u) >> 51];
}
static_assert(std::size_t{1} << (64 - 51) == kRows);

void remember(void* pointer) {
  const auto block = reinterpret_cast<std::uintptr_t>(pointer);
  for (std::atomic<std::uintptr_t>& place : rowOf(block)) {
    std::uintptr_t empty = 0;
    if (place.compare_exchange_strong(empty, block, std::memory_order_relaxed)) return;
  }
  withoutPlace.fetch_add(1, std::memory_order_relaxed);
}

void forget(void* pointer) {
  const auto block = reinterpret_cast<std::uintptr_t>(pointer);
  if (block == 0) return;
  for (std::atomic<std::uintptr_t>& place : rowOf(block)) {
    std::uintptr_t same = block;
    if (place.load(std::memory_order_relaxed) == block &&
        place.compare_exchange_strong(same, 0, std::memory_order_relaxed)) {
      return;
    }
  }
}

struct Thread {
  // A thread that says nothing is the minidriver's.
  bool isInside = true;
  bool isSuspended = false;
  bool isArmed = false;
  bool isOnce = false;
  bool hasFailed = false;
  unsigned successesLeft = 0;
};
thread_local Thread thread;

bool isOurs() { return thread.isInside && !thread.isSuspended; }

bool shallFail() {
  if (!isOurs() || !thread.isArmed) return false;
  if (thread.successesLeft != 0) {
    --thread.successesLeft;
    return false;
  }
  thread.hasFailed = true;
  thread.isArmed = !thread.isOnce;
  return true;
}

}  // namespace

// The wrappers around the library's border (faults/library_side.cpp) speak to these.
NewSucceeds::NewSucceeds() { thread.isSuspended = true; }
NewSucceeds::~NewSucceeds() { thread.isSuspended = false; }
NewMayFail::NewMayFail() { thread.isSuspended = false; }
NewMayFail::~NewMayFail() { thread.isSuspended = true; }

void CountedMemory::startOutside() { thread.isInside = false; }

void CountedMemory::enter(const std::optional<MemoryFault>& fault) {
  thread = {};
  if (!fault) return;
  thread.isArmed = true;
  thread.isOnce = fault->isOnce;
  thread.successesLeft = fault->successes;
}

bool CountedMemory::leave() {
  thread.isInside = false;
  thread.isArmed = false;
  return thread.hasFailed;
}

void CountedMemory::setInCallback(bool isInCallback) { thread.isSuspended = isInCallback; }

std::optional<std::vector<std::size_t>> CountedMemory::blocksInUse() {
  std::vector<std::size_t> sizes;
  if (withoutPlace != 0) return std::nullopt;
  for (const auto& row : blocks) {
    for (const std::atomic<std::uintptr_t>& place : row) {
      const std::uintptr_t block = place.load();
      if (block != 0) sizes.push_back(malloc_usable_size(reinterpret_cast<void*>(block)));
    }
  }
  return sizes;
}

void CountedMemory::forgetAll() {
  for (auto& row : blocks) {
    for (std::atomic<std::uintptr_t>& place : row) place = 0;
  }
  withoutPlace = 0;
}

}  // namespace orvane::test

// Names that begin with two underscores are the linker's.
#define ORVANE_TESTS_WRAPPER(name) __wrap_##name
#define ORVANE_TESTS_WRAPPED(name) __real_##name

extern "C" {

void* ORVANE_TESTS_WRAPPED(_Znwm)(std::size_t size);
void* ORVANE_TESTS_WRAPPED(_ZnwmRKSt9nothrow_t)(std::size_t size, const std::nothrow_t& tag) noexcept;
void ORVANE_TESTS_WRAPPED(_ZdlPv)(void* block) noexcept;
void ORVANE_TESTS_WRAPPED(_ZdlPvm)(void* block, std::size_t size) noexcept;

void* ORVANE_TESTS_WRAPPER(_Znwm)(std::size_t size);
void* ORVANE_TESTS_WRAPPER(_ZnwmRKSt9nothrow_t)(std::size_t size, const std::nothrow_t& tag) noexcept;
void ORVANE_TESTS_WRAPPER(_ZdlPv)(void* block) noexcept;
void ORVANE_TESTS_WRAPPER(_ZdlPvm)(void* block, std::size_t size) noexcept;

void* ORVANE_TESTS_WRAPPER(_Znwm)(std::size_t size) {
  if (orvane::test::shallFail()) throw std::bad_alloc();
  void* const block = ORVANE_TESTS_WRAPPED(_Znwm)(size);
  if (orvane::test::isOurs()) orvane::test::remember(block);
  return block;
}

void* ORVANE_TESTS_WRAPPER(_ZnwmRKSt9nothrow_t)(std::size_t size, const std::nothrow_t& tag) noexcept {
  if (orvane::test::shallFail()) return nullptr;
  void* const block = ORVANE_TESTS_WRAPPED(_ZnwmRKSt9nothrow_t)(size, tag);
  if (block != nullptr && orvane::test::isOurs()) orvane::test::remember(block);
  return block;
}

// First forgotten, then freed: in between nobody else gets the same address.
void ORVANE_TESTS_WRAPPER(_ZdlPv)(void* block) noexcept {
  orvane::test::forget(block);
  ORVANE_TESTS_WRAPPED(_ZdlPv)(block);
}

void ORVANE_TESTS_WRAPPER(_ZdlPvm)(void* block, std::size_t size) noexcept {
  orvane::test::forget(block);
  ORVANE_TESTS_WRAPPED(_ZdlPvm)(block, size);
}

}  // extern "C"
