// The replaced operator new. What belongs to the token library is told by library_side.cpp.
#include "faults/failing_new.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace orvane::test {
namespace {

struct Switch {
  bool armed = false;
  bool suspended = false;
  bool failed = false;
  unsigned successesLeft = 0;
  bool isOnce = false;
};
thread_local Switch newSwitch;

bool shallFail() {
  Switch& state = newSwitch;
  if (!state.armed || state.suspended) return false;
  if (state.successesLeft == 0) {
    state.failed = true;
    state.armed = !state.isOnce;
    return true;
  }
  --state.successesLeft;
  return false;
}

// What was given back meanwhile; when there is no more room, blocks are freed as usual.
std::atomic<bool> freedMemoryStays{false};
std::atomic<std::size_t> keptCount{0};
std::array<void*, 1 << 18> keptBlocks;

// See WhenMemoryIsGivenBack; null while there is none, and while it runs.
thread_local void (*whenGivenBack)() = nullptr;

void giveBack(void* block) noexcept {
  if (whenGivenBack != nullptr) {
    void (*const function)() = std::exchange(whenGivenBack, nullptr);
    function();
    whenGivenBack = function;
  }
  if (block != nullptr && freedMemoryStays) {
    const std::size_t position = keptCount.fetch_add(1);
    if (position < keptBlocks.size()) {
      keptBlocks[position] = block;
      return;
    }
  }
  std::free(block);
}

}  // namespace

WhenMemoryIsGivenBack::WhenMemoryIsGivenBack(void (*function)()) { whenGivenBack = function; }
WhenMemoryIsGivenBack::~WhenMemoryIsGivenBack() { whenGivenBack = nullptr; }

FreedMemoryStays::FreedMemoryStays() { freedMemoryStays = true; }

FreedMemoryStays::~FreedMemoryStays() {
  freedMemoryStays = false;
  const std::size_t count = std::min(keptCount.exchange(0), keptBlocks.size());
  for (std::size_t i = 0; i < count; ++i) std::free(keptBlocks[i]);
}

void failNewAfter(unsigned successes) { newSwitch = {true, false, false, successes, false}; }

void failNewOnceAfter(unsigned successes) { newSwitch = {true, false, false, successes, true}; }

bool letNewSucceed() {
  newSwitch.armed = false;
  return newSwitch.failed;
}

NewSucceeds::NewSucceeds() { newSwitch.suspended = true; }
NewSucceeds::~NewSucceeds() { newSwitch.suspended = false; }
NewMayFail::NewMayFail() { newSwitch.suspended = false; }
NewMayFail::~NewMayFail() { newSwitch.suspended = true; }

}  // namespace orvane::test

void* operator new(std::size_t size) {
  if (orvane::test::shallFail()) throw std::bad_alloc();
  void* const block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return orvane::test::shallFail() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void operator delete(void* block) noexcept { orvane::test::giveBack(block); }
void operator delete(void* block, std::size_t) noexcept { orvane::test::giveBack(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { orvane::test::giveBack(block); }
