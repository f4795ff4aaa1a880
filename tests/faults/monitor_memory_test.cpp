// A poll of the monitor that runs out of memory half way, at its first, second, ... allocation: the next poll goes on
// there. What was done is not done twice, nothing is left out, and a token that came back in between is a new one.
#include "cache/process_state.h"
#include "faults/failing_new.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class MonitorMemory : public LinkedTest {
 protected:
  // The process knows a PIN and a list of this token, as after an acquisition and a verification.
  static void know(const char* serial) {
    processState().deviceCache.storeValidatedPassword(serial, SecretText(kUserPin, sizeof(kUserPin) - 1));
    processState().containerListCache.replace(serial, shared({}));
  }
  static bool isPinKnown(const char* serial) { return processState().deviceCache.pinState(serial).isCached; }
  static bool isListKnown(const char* serial) { return processState().containerListCache.find(serial) != nullptr; }
  static unsigned bumps(const char* serial) { return processState().deviceCache.freshness(serial).files; }

  void pollFinds(DeviceMonitor::KnownDevices& known, const char* serials) {
    const std::string text(serials);
    queueResult("orvane_getConnectedDeviceList", 0, kSofttokenKeep, kSofttokenKeep, Bytes(text.begin(), text.end()));
    DeviceMonitor::pollDevices(known);
  }
};

TEST_F(MonitorMemory, TheNextPollGoesOn) {
  // Lines need memory, too; what counts here is what the process knows.
  setDebugLog(false);
  bool hasFailed = true;
  for (unsigned allocations = 0; hasFailed; ++allocations) {
    SCOPED_TRACE(allocations);
    DeviceMonitor::KnownDevices known;
    pollFinds(known, "A\nB\n");
    know("A");
    know("B");
    // A and B have gone, C is new; then A is back.
    const std::string text("C\n");
    queueResult("orvane_getConnectedDeviceList", 0, kSofttokenKeep, kSofttokenKeep, Bytes(text.begin(), text.end()));
    failNewAfter(allocations);
    try {
      DeviceMonitor::pollDevices(known);
    } catch (const std::bad_alloc&) {
      // Goes on below.
    }
    hasFailed = letNewSucceed();
    pollFinds(known, "A\nC\n");
    EXPECT_EQ(known.present, (std::set<std::string>{"A", "C"}));
    EXPECT_EQ(known.leaving, std::set<std::string>{});
    // Nobody saw A go, or it has gone wholly and come back.
    EXPECT_EQ(isListKnown("A"), isPinKnown("A"));
    EXPECT_EQ(bumps("A"), 1u);
    EXPECT_FALSE(processState().deviceCache.hasRecord("B"));
    EXPECT_FALSE(isListKnown("B"));
    EXPECT_EQ(bumps("C"), 1u);
    pollFinds(known, "");
    EXPECT_FALSE(processState().deviceCache.hasRecord("A") || isListKnown("A"));
    forget();
  }
}

}  // namespace
}  // namespace orvane::test
