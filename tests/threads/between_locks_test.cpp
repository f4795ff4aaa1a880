// What another thread does between two lock periods of a call. It is done here by the calling thread itself, right
// after each unlocking, so that no row depends on how threads are scheduled. Native only: there the unlocking of every
// mutex can be diverted (see tests/CMakeLists.txt).
#include <pthread.h>

#include <functional>
#include <tuple>
#include <utility>

#include "harness/driver_test.h"

namespace {

// What is done after every unlocking by the thread that set it; nothing while it runs.
thread_local std::function<void()> afterUnlock;

}  // namespace

extern "C" {
// The linker's names for a diverted function.
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);  // NOLINT(bugprone-reserved-identifier)
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);  // NOLINT(bugprone-reserved-identifier)

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const int result = __real_pthread_mutex_unlock(mutex);
  if (afterUnlock) {
    std::function<void()> action = std::exchange(afterUnlock, nullptr);
    action();
    afterUnlock = std::move(action);
  }
  return result;
}
}

namespace orvane::test {
namespace {

class BetweenLocks : public DriverTest {
 protected:
  // Verifies the right PIN while another context forgets it after the unlocking with this number, from 1. Returns the
  // status, and whether the call had so many.
  std::pair<DWORD, bool> verify(CARD_DATA& record, CARD_DATA& other, unsigned number) {
    PinBytes pin{kUserPin};
    bool isForgotten = false;
    afterUnlock = [&, left = number]() mutable {
      if (--left != 0) return;
      isForgotten = true;
      EXPECT_EQ(other.pfnCardDeauthenticateEx(&other, PIN_SET_ALL_ROLES, 0), 0u);
    };
    const DWORD status =
        record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr, nullptr);
    afterUnlock = nullptr;
    return {status, isForgotten};
  }
};

TEST_F(BetweenLocks, ARightPinThatIsForgottenMeanwhileIsNotRefused) {
  for (const bool isCached : {false, true}) {
    unsigned number = 0;
    for (bool isForgotten = true; isForgotten; ++number) {
      SCOPED_TRACE(::testing::Message() << "cached " << isCached << ", after unlocking " << number + 1);
      CARD_DATA& record = openFresh();
      CARD_DATA& other = openContext();
      if (isCached) authenticate(record);
      DWORD status = kPoison32;
      std::tie(status, isForgotten) = verify(record, other, number + 1);
      EXPECT_EQ(status, 0u);
      forget();
    }
    // The context's slot and the token's record at least.
    EXPECT_GE(number, 3u);
  }
}

}  // namespace
}  // namespace orvane::test
