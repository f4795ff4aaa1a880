// The monitor's thread as such: how it is made, that it rests between two polls, and that its end is waited for.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "harness/driver_test.h"
#ifndef _WIN32
#include "cache/process_state.h"
#include "platform/host/host_control.h"
#endif

namespace orvane::test {
namespace {

class MonitorThread : public DriverTest {
 protected:
  std::string wholeLog() {
    std::ifstream file(logFile(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
};

// Its first line comes before all others of the thread.
TEST_F(MonitorThread, SaysThatItHasStartedBeforeAnythingElse) {
  open();
  pollMonitor();
  const std::string log = wholeLog();
  const std::size_t started = log.find("Device monitor thread started.");
  const std::size_t appeared = log.find("Device reconnected [");
  ASSERT_NE(started, std::string::npos);
  ASSERT_NE(appeared, std::string::npos);
  EXPECT_LT(started, appeared);
  EXPECT_EQ(takeMonitorStarts(), 1u);
  forget();
}

// The rest that is lived through, in the place of all others: the next poll comes by itself.
TEST_F(MonitorThread, PollsAgainWhenItsRestIsOver) {
  open();
  machine::setPausesEnd(false);
  pollMonitor();
}

#ifdef _WIN32

TEST_F(MonitorThread, IsLentByTheSystemForLong) {
  machine::takeThreadCreations();
  open();
  openContext();
  pollMonitor();
  EXPECT_EQ(machine::takeThreadCreations(), (Lines{"pool=default long=1", "its end is announced by the pool"}));
}

#else

Lines takeThreadEvents() {
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  return std::exchange(machine.threadEvents, {});
}

// A monitor that was stopped polls again when it is started again.
TEST_F(MonitorThread, GoesOnAfterAStop) {
  open();
  openMonitor();
  processState().monitor.stopDeviceMonitor();
  machine::takePauses();
  processState().monitor.startDeviceMonitor();
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (machine::takePauses().empty()) {
    ASSERT_LT(std::chrono::steady_clock::now(), end) << "it does not poll";
    std::this_thread::yield();
  }
  forget();
}

// A poll, a rest of a second, a poll, and so on; who unloads ends the rest and waits for the thread. By what was asked
// of the thread, not by the clock.
TEST_F(MonitorThread, RestsBetweenPollsAndIsWokenAndAwaitedAtTheEnd) {
  takeThreadEvents();
  open();
  EXPECT_EQ(takeThreadEvents(), Lines{"start"});
  pollMonitor();
  EXPECT_EQ(takeThreadEvents(), Lines{"pause 1000"});
  pollMonitor();
  EXPECT_EQ(takeThreadEvents(), Lines{"pause 1000"});
  closeAll();
  reloadDriver();
  Lines events = takeThreadEvents();
  // The poll that was held comes to its end, before or after it is asked to.
  EXPECT_GE(std::erase(events, "pause 1000"), 1u);
  EXPECT_EQ(events, (Lines{"wake", "join"}));
  forget();
}

#endif

}  // namespace
}  // namespace orvane::test
