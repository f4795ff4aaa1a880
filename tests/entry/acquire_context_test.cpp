// CardAcquireContext from the first check to the finished record.
#include <cstring>

#include "support/driver_test.h"

namespace orvane::test {
namespace {

class AcquireContext : public DriverTest {};

TEST_F(AcquireContext, BindsTheOnlyToken) {
  defineToken("A1", {makeKey(0x11, 1), makeKey(0x22, 2, 4096)});
  CARD_DATA record = newRecord();
  EXPECT_EQ(acquire(record), 0u);
  EXPECT_EQ(takeLog(), (Lines{
                           "D CardAcquireContext :: LOG_FUNCTION_NAME = Entry",
                           "D dwFlags=0",
                           "D Global library init (skip HID scan)",
                           "D Monitor thread started (startDeviceMonitor).",
                           "D resolved serial number :: A1",
                           "D Using serial=A1 for hScard=0",
                           "D Initialising device [A1]",
                           "D older key count 0",
                           "D new key count 2",
                           "D >>> GLOBAL CACHE BUMPED: ver=0 pins=0 cont=0 file=0",
                           "D guidAscii (credential id ) :: " + guidOf(0x11),
                           "D key usage :: 1",
                           "D guidAscii (credential id ) :: " + guidOf(0x22),
                           "D key usage :: 2",
                           "D CardAcquireContext completed successfully",
                       }));
  EXPECT_EQ(takeMonitorStarts(), 1u);
  EXPECT_EQ(takeCalls(), (Lines{
                             "orvane_init(0, null, 2)",
                             "orvane_getConnectedDeviceList(false, null)",
                             "orvane_initDevice(\"A1\", false, null)",
                             "orvane_clearExternalSmartcardHandle()",
                             "orvane_getKeyPairList(\"A1\", null)",
                         }));
  EXPECT_EQ(takeTransmissions(), Lines{});
  EXPECT_EQ(takeAllocations(), std::vector<std::size_t>{});
}

}  // namespace
}  // namespace orvane::test
