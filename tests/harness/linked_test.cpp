#include "harness/linked_test.h"

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

void LinkedTest::SetUp() {
  DriverTest::SetUp();
  renewLinkedState();
}

void LinkedTest::TearDown() {
  takeContext(bound_);
  openMonitor();
  renewLinkedState();
  DriverTest::TearDown();
}

void LinkedTest::bind() {
  bound_ = newRecord();
  ContextRef context(new ProviderContext(&bound_));
  context->serialNumber = kSerial;
  publishContext(bound_, std::move(context));
  forget();
}

}  // namespace orvane::test
