// Single polls of the monitor, made by the test itself: what the library throws there.
#include "cache/device_monitor.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class MonitorPoll : public LinkedTest {};

// The tokens of the poll before are gone, and nothing is said: whatever the library throws, its memory's lack included.
TEST_F(MonitorPoll, TakesEveryExceptionForAnEmptyList) {
  for (const SofttokenReactionKind kind : {kSofttokenThrow, kSofttokenThrowRuntimeError, kSofttokenThrowBadAlloc,
                                           kSofttokenThrowBadArrayNewLength, kSofttokenThrowNullText}) {
    SCOPED_TRACE(kind);
    DeviceMonitor::KnownDevices known{{"A"}, {}};
    queueThrow("orvane_getConnectedDeviceList", kind, "text");
    DeviceMonitor::pollDevices(known);
    EXPECT_EQ(known.present, std::set<std::string>{});
    EXPECT_EQ(known.leaving, std::set<std::string>{});
    EXPECT_EQ(takeLog(), (Lines{"D Device disconnected [A] -> clearing per-device state",
                                "D Cache state after disconnect: ver=0 pins=0 cont=0 files=0"}));
    EXPECT_EQ(takeCalls(), Lines{"orvane_getConnectedDeviceList(false, null)"});
  }
}

}  // namespace
}  // namespace orvane::test
