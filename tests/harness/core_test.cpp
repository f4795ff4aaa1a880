#include "core_test.h"

#include <memory>
#include <new>
#include <utility>

#include "cache/process_state.h"
#include "minidriver/frame/provider_context.h"

namespace orvane::test {
namespace {

void renewLinkedState() {
  ProcessState* const state = &processState();
  std::destroy_at(state);
  new (state) ProcessState;
}

}  // namespace

void lockTwice(Mutex& mutex) {
  // Through pointers, so that the compiler does not refuse what is tested here.
  void (Mutex::*const lock)() = &Mutex::lock;
  void (Mutex::*const unlock)() = &Mutex::unlock;
  (mutex.*lock)();
  try {
    (mutex.*lock)();
  } catch (...) {
    (mutex.*unlock)();
    throw;
  }
}

void CoreTest::SetUp() {
  DriverTest::SetUp();
  renewLinkedState();
}

void CoreTest::TearDown() {
  openMonitor();
  renewLinkedState();
  DriverTest::TearDown();
}

void BoundCoreTest::SetUp() {
  CoreTest::SetUp();
  record_ = newRecord();
  ContextRef context(new ProviderContext(&record_));
  context->serialNumber = kSerial;
  publishContext(record_, std::move(context));
  forget();
}

void BoundCoreTest::TearDown() {
  takeContext(record_);
  CoreTest::TearDown();
}

}  // namespace orvane::test
