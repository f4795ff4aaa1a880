#include "core_test.h"

#include <memory>
#include <new>

#include "cache/process_state.h"

namespace orvane::test {
namespace {

void renewLinkedState() {
  ProcessState* const state = &processState();
  std::destroy_at(state);
  new (state) ProcessState;
}

}  // namespace

void CoreTest::SetUp() {
  DriverTest::SetUp();
  renewLinkedState();
}

void CoreTest::TearDown() {
  openMonitor();
  renewLinkedState();
  DriverTest::TearDown();
}

}  // namespace orvane::test
