// The fixture for inner functions of the product, which are linked into the test program on every platform.
#ifndef ORVANE_TESTS_HARNESS_LINKED_TEST_H
#define ORVANE_TESTS_HARNESS_LINKED_TEST_H

#include <memory>
#include <utility>

#include "cache/container_entry.h"
#include "harness/driver_test.h"
#include "support/mutex.h"

namespace orvane::test {

// A list as ContainerListCache takes it.
inline std::shared_ptr<const ContainerList> shared(ContainerList list) {
  return std::make_shared<const ContainerList>(std::move(list));
}

// Locks a mutex, locks it again by the same thread and passes on what that throws; afterwards the mutex is free.
void lockTwice(Mutex& mutex);

// LinkedTest is DriverTest with the process-wide state of the linked objects made new for each test. Take it to call an
// inner function, to look at or to arrange what the process knows (processState()), or to have a state that no sequence
// of calls leads to. Natively the linked objects are the minidriver's; on Windows the loaded DLL has its own, so that
// whatever is called through a record of DriverTest does not see this state. Both write to the same log.
class LinkedTest : public DriverTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Binds bound_ to the token kSerial, for the linked entry points. Nothing is acquired: no token is connected and the
  // process knows nothing about it.
  void bind();

  CARD_DATA bound_{};
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_LINKED_TEST_H
