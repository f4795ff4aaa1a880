// The fixture for inner functions of the product, which are linked into the test program on every platform.
#ifndef ORVANE_TESTS_SUPPORT_CORE_TEST_H
#define ORVANE_TESTS_SUPPORT_CORE_TEST_H

#include <memory>
#include <utility>

#include "cache/container_entry.h"
#include "driver_test.h"

namespace orvane::test {

// A list as ContainerListCache takes it.
inline std::shared_ptr<const ContainerList> shared(ContainerList list) {
  return std::make_shared<const ContainerList>(std::move(list));
}

// CoreTest is DriverTest with the process-wide state of the linked objects made new for each test. Natively that is the
// minidriver's; on Windows the loaded DLL has one of its own. Both write to the same log.
class CoreTest : public DriverTest {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_SUPPORT_CORE_TEST_H
