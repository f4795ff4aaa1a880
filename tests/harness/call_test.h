// The fixture for what holds for every call of allCalls(), above all when something below it fails.
#ifndef ORVANE_TESTS_HARNESS_CALL_TEST_H
#define ORVANE_TESTS_HARNESS_CALL_TEST_H

#include <functional>

#include "harness/all_calls.h"
#include "harness/driver_test.h"

namespace orvane::test {

// CallTest is DriverTest with what the calls of allCalls() expect, and with a look at what a failure may have left
// behind. Take it when the row of a table names a call ("CardSignData signs") instead of making one itself: for faults,
// several threads, long use.
class CallTest : public DriverTest {
 protected:
  // DriverTest::startAnew with the token of tokenForCalls.
  void startAnew();
  // startAnew, and a context as `before` wants it, with kCardHandle.
  CARD_DATA& openFor(Before before);

  // Runs one call after openFor(call.before): what it returned, and whether it wrote to the caller's memory.
  struct Result {
    DWORD status = 0;
    bool isUntouched = false;
  };
  template <typename Arm, typename Disarm>
  Result run(const EntryCall& call, const Arm& arm, const Disarm& disarm) {
    CARD_DATA& record = openFor(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    arm();
    const DWORD status = prepared();
    disarm();
    return {status, outputs.isUntouched()};
  }

  // Nothing is left behind: no card handle is set (unless the library refused to forget it), and a new context can be
  // acquired, asked, used with a PIN for a signature, and deleted, which takes every lock there is.
  void expectUsable(bool isHandleForgotten = true);
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_CALL_TEST_H
