#include "harness/call_test.h"

namespace orvane::test {

void CallTest::startAnew() { DriverTest::startAnew(tokenForCalls()); }

CARD_DATA& CallTest::openFor(Before before) {
  startAnew();
  CARD_DATA& record = openContext();
  bringAbout(record, before);
  takeAllocations();
  forget();
  return record;
}

void CallTest::expectUsable(bool isHandleForgotten) {
  failAllocationsAfter(std::nullopt);
  resourceManager = ResourceManager{};
  forget();
  CARD_DATA record = newRecord();
  EXPECT_EQ(acquire(record), 0u);
  for (const std::string& call : takeCalls()) {
    if (isHandleForgotten) EXPECT_EQ(call.find("[card "), std::string::npos) << call;
  }
  if (record.pvVendorSpecific == nullptr) return;
  record.hScard = kCardHandle;
  authenticatedState(record);
  // A signature takes every lock.
  signWithPreparedAnswer(record);
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
  forget();
}

}  // namespace orvane::test
