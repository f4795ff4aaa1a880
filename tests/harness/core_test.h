// The fixture for inner functions of the product, which are linked into the test program on every platform.
#ifndef ORVANE_TESTS_HARNESS_CORE_TEST_H
#define ORVANE_TESTS_HARNESS_CORE_TEST_H

#include <memory>
#include <utility>

#include "cache/container_entry.h"
#include "driver_test.h"
#include "support/mutex.h"

namespace orvane::test {

// A list as ContainerListCache takes it.
inline std::shared_ptr<const ContainerList> shared(ContainerList list) {
  return std::make_shared<const ContainerList>(std::move(list));
}

// Locks a mutex, locks it again by the same thread and passes on what that throws; afterwards the mutex is free.
void lockTwice(Mutex& mutex);

// CoreTest is DriverTest with the process-wide state of the linked objects made new for each test. Natively that is the
// minidriver's; on Windows the loaded DLL has one of its own. Both write to the same log.
class CoreTest : public DriverTest {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// BoundCoreTest is CoreTest with a record whose context is bound to the token 0012AB, for the linked entry points.
// Nothing is acquired: no token is connected and the process knows nothing about it.
class BoundCoreTest : public CoreTest {
 protected:
  static constexpr char kSerial[] = "0012AB";

  void SetUp() override;
  void TearDown() override;

  CARD_DATA record_{};
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_CORE_TEST_H
