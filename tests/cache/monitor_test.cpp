// The thread that watches the tokens, poll by poll.
#include <algorithm>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "cache/device_monitor.h"
#include "harness/driver_test.h"
#include "harness/machine.h"

namespace orvane::test {
namespace {

// Once a second: what users wait for after they put a token in, and what an idle machine is asked to do.
static_assert(DeviceMonitor::kPollPeriodMilliseconds == 1000);

constexpr const char* kListFunction = "orvane_getConnectedDeviceList";

class Monitor : public DriverTest {
 protected:
  // What the next poll sees instead of the token library's own list.
  void queueDevices(const std::string& serials) {
    queueResult(kListFunction, 0, kSofttokenKeep, kSofttokenKeep, Bytes(serials.begin(), serials.end()));
  }
  // The lines of one poll.
  Lines poll() {
    forget();
    pollMonitor();
    return takeLog();
  }
  Lines pollDevices(const std::string& serials) {
    queueDevices(serials);
    return poll();
  }
  // Starts the monitor without binding to a token.
  void startMonitor() {
    queueDevices("");
    CARD_DATA record = newRecord();
    ASSERT_EQ(acquire(record), code(SCARD_E_NO_SMARTCARD));
    forget();
  }

  static Lines disconnected(const std::string& serial, const std::string& counters) {
    return {"D Device disconnected [" + serial + "] -> clearing per-device state",
            "D Cache state after disconnect: " + counters};
  }
  // `version` and `pins` are counted on by each appearance.
  static Lines appeared(const std::string& serial, unsigned version, unsigned pins) {
    const std::string counters = "ver=" + std::to_string(version) + " pins=" + std::to_string(pins) + " cont=0 file";
    return {"D Device reconnected [" + serial + "] -> bumping freshness", "D device reconnect false [" + serial + "]",
            "D >>> GLOBAL CACHE BUMPED: " + counters + "=0", "D Cache state after reconnect: " + counters + "s=0"};
  }
};

TEST_F(Monitor, SeesATokenThatWasThereBefore) {
  CARD_DATA& record = open();
  EXPECT_EQ(cardCf(record), (Bytes{0, 0, 1, 0, 1, 0}));
  EXPECT_EQ(poll(), appeared(kSerial, 1, 1));
  EXPECT_EQ(cardCf(record), (Bytes{1, 1, 2, 0, 2, 0}));
  EXPECT_EQ(poll(), Lines{}) << "the token is known";
  EXPECT_EQ(cardCf(record), (Bytes{1, 1, 2, 0, 2, 0}));
}

// Nothing is half done: the record is as it was, no lock is held, and the next acquisition tries again.
TEST_F(Monitor, CannotBeStarted) {
  defineToken({.keys = {makeKey(1, 3)}});
  CARD_DATA record = newRecord();
  const CARD_DATA before = record;
  machine::setThreadsFail(true);
  const DWORD status = acquire(record);
  machine::setThreadsFail(false);
  EXPECT_EQ(status, code(SCARD_F_INTERNAL_ERROR));
  EXPECT_EQ(bytesOf(record), bytesOf(before));
  Lines log = takeLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.back().rfind("E CardAcquireContext: unhandled exception: WorkerThread: ", 0), 0u) << log.back();
  log.pop_back();
  EXPECT_EQ(log, (Lines{"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=0",
                        "D Global library init (skip HID scan)"}));
  EXPECT_EQ(takeCalls(), (Lines{"orvane_init(0, null, 2)"}));
  EXPECT_EQ(acquire(record), 0u);
  const Lines lines = takeLog();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "D Monitor thread started (startDeviceMonitor)."), 1);
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
}

TEST_F(Monitor, AsksTheLibraryForTheListAlone) {
  open();
  pollMonitor();
  forget();
  pollMonitor();
  std::string text(1000, '\0');
  text.resize(softtoken_calls(kSofttokenOtherThreads, softtoken_thread(), text.data(), text.size()) - 1);
  EXPECT_EQ(text, "orvane_getConnectedDeviceList(false, null)\n") << "the one in which the monitor is held now";
}

TEST_F(Monitor, ForgetsATokenThatIsGone) {
  CARD_DATA& record = open();
  authenticate(record);
  EXPECT_EQ(poll(), appeared(kSerial, 1, 1));
  softtoken_set_connected(kSerial, 0);
  EXPECT_EQ(poll(), disconnected(kSerial, "ver=1 pins=1 cont=0 files=0"));
  EXPECT_EQ(cardCf(record), (Bytes{1, 1, 0, 0, 0, 0})) << "no record is left";
  EXPECT_EQ(cachedPin(record), "");
  EXPECT_EQ(cardCf(record), (Bytes{1, 1, 0, 0, 0, 0})) << "reading makes none";
  EXPECT_EQ(poll(), Lines{});
  softtoken_set_connected(kSerial, 1);
  EXPECT_EQ(poll(), appeared(kSerial, 2, 2));
  EXPECT_EQ(cardCf(record), (Bytes{2, 1, 1, 0, 1, 0})) << "the new record counts from 0";
}

// A container list that was kept for the token goes with it.
TEST_F(Monitor, ForgetsTheContainersOfATokenThatIsGone) {
  CARD_DATA& record = open();
  EXPECT_EQ(poll(), appeared(kSerial, 1, 1));
  const OrvaneKeyPair second = makeKey(2, 3);
  softtoken_add_key(kSerial, &second);
  openContext();
  EXPECT_EQ(pollDevices(""), disconnected(kSerial, "ver=1 pins=1 cont=0 files=0"));
  PIN_ID pinId = 0;
  DWORD length = 0;
  EXPECT_EQ(record.pfnCardGetContainerProperty(&record, 1, CCP_PIN_IDENTIFIER, reinterpret_cast<PBYTE>(&pinId),
                                               sizeof(pinId), &length, 0),
            code(SCARD_E_NO_KEY_CONTAINER))
      << "only the list of all contexts had the second container";
}

struct Poll {
  const char* name;
  std::string devices;
  Lines log;
};

TEST_F(Monitor, HandlesEachPollInOrder) {
  startMonitor();
  const std::string v3 = "ver=3 pins=3 cont=0 files=0";
  const std::string v6 = "ver=6 pins=6 cont=0 files=0";
  const Poll polls[] = {
      {"nothing is there", "", {}},
      {"two appear, in ascending order, one named twice", "B\nA\nB\n",
       concat(appeared("A", 1, 1), appeared("B", 2, 2))},
      {"the same two", "A\nB\n", {}},
      {"in another order and more often", "B\nB\nA\nA\nA\n", {}},
      {"one more; the shorter of two first", "AA\nA\nB\n", appeared("AA", 3, 3)},
      {"two go, in ascending order", "AA\n", concat(disconnected("A", v3), disconnected("B", v3))},
      {"first those that go, then those that come", "0\na\nB\n",
       concat(concat(disconnected("AA", v3), appeared("0", 4, 4)), concat(appeared("B", 5, 5), appeared("a", 6, 6)))},
      {"all go", "", concat(concat(disconnected("0", v6), disconnected("B", v6)), disconnected("a", v6))},
      {"nothing is there any more", "", {}},
      {"one is back", "A\n", appeared("A", 7, 7)},
  };
  for (const Poll& step : polls) {
    SCOPED_TRACE(step.name);
    EXPECT_EQ(pollDevices(step.devices), step.log);
  }
}

// The list of known tokens is empty after a call that throws; the thread goes on.
TEST_F(Monitor, TakesAnExceptionForAnEmptyList) {
  startMonitor();
  EXPECT_EQ(pollDevices("A\n"), appeared("A", 1, 1));
  queueThrow(kListFunction);
  EXPECT_EQ(poll(), disconnected("A", "ver=1 pins=1 cont=0 files=0"));
  queueThrow(kListFunction);
  EXPECT_EQ(poll(), Lines{});
  EXPECT_EQ(pollDevices("A\n"), appeared("A", 2, 2));
}

// A token whose PIN counter was bumped before its first poll is asked whether its PIN is still valid.
TEST_F(Monitor, AsksATokenForItsPin) {
  const struct {
    int onToken;  // what the token says
    const char* said;
    const char* conclusion;
    std::uint8_t pins;  // the counter afterwards
  } rows[] = {{1, "D password validated (device) :: 1", "D valid", 1},
              {0, "D password validated (device) :: 0", "D Not valid - bumping pin freshness", 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.onToken);
    CARD_DATA& record = openFresh();
    authenticate(record);
    changeUserPin(record, kUserPin, kNewPin);
    softtoken_set_password_validated(kSerial, row.onToken);
    EXPECT_EQ(cardCf(record), (Bytes{0, 1, 1, 0, 1, 0}));
    const std::string pins = "pins=" + std::to_string(row.pins);
    EXPECT_EQ(poll(), (Lines{"D Device reconnected [0012AB] -> bumping freshness", "D device reconnect true [0012AB]",
                             row.said, "D password validated (local)  :: 1", row.conclusion,
                             "D >>> GLOBAL CACHE BUMPED: ver=1 " + pins + " cont=0 file=0",
                             "D Cache state after reconnect: ver=1 " + pins + " cont=0 files=0"}));
    EXPECT_EQ(cardCf(record), (Bytes{1, row.pins, 2, 0, 2, 0}));
  }
}

TEST_F(Monitor, StartsOnceAndAgainAfterUnloading) {
  defineToken({});
  for (int load = 0; load < 2; ++load) {
    for (const bool isFirst : {true, false, false}) {
      CARD_DATA& record = openContext();
      EXPECT_EQ(takeMonitorStarts(), isFirst ? 1u : 0u);
      EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
    }
    closeAll();
    reloadDriver();
    Lines log = takeLog();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(Lines(log.end() - 2, log.end()),
              (Lines{"D Device monitor thread stopped.", "D Monitor thread joined (stopDeviceMonitor)."}));
    takeMonitorStarts();
  }
}

// Many threads acquire at the same time: besides theirs there is one thread that asks for the list.
TEST_F(Monitor, IsOneForAllThreads) {
  constexpr std::size_t kThreads = 8;
  defineToken({});
  openMonitor();
  const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      CARD_DATA record = newRecord();
      EXPECT_EQ(cardAcquireContext(&record, 0), 0u);
      EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
    });
  }
  for (std::thread& thread : threads) thread.join();
  softtoken_gate(kListFunction, 1);
  takeLog();
  EXPECT_EQ(softtoken_wait_held(kListFunction, 120000), 1);
  std::set<unsigned long long> asking;
  for (std::size_t i = 0; i < softtoken_call_count(); ++i) {
    SofttokenCall call{};
    char text[200] = {};
    softtoken_call(i, &call, text, sizeof(text));
    if (std::string(text).starts_with(kListFunction)) asking.insert(call.thread);
  }
  EXPECT_EQ(asking.size(), kThreads + 1);
}

// A poll takes no library lock: a token is seen coming or going while another call still waits for its signature.
TEST_F(Monitor, PollsWhileASignatureHoldsTheLibraryLock) {
  CARD_DATA& record = open();
  authenticate(record);
  Bytes hash(32, 0x11);
  CARD_SIGNING_INFO info = signingOf(hash);
  DWORD status = kPoison32;
  ASSERT_EQ(softtoken_gate("orvane_signHash", 1), 1);
  std::thread signer([&] { status = record.pfnCardSignData(&record, &info); });
  EXPECT_EQ(softtoken_wait_held("orvane_signHash", 120000), 1);
  EXPECT_EQ(poll(), appeared(kSerial, 1, 1));
  EXPECT_EQ(status, kPoison32);
  softtoken_gate("orvane_signHash", 0);
  signer.join();
  EXPECT_EQ(status, 0u);
  takeBuffer(info.pbSignedData, 256);
}

TEST_F(Monitor, IsNotMissedWhenItNeverStarted) {
  reloadDriver();
  EXPECT_EQ(takeLog(), Lines{});
  EXPECT_EQ(takeMonitorStarts(), 0u);
}

TEST_F(Monitor, IsSilentBelowTheDebugLevel) {
  open();
  setDebugLog(false);
  EXPECT_EQ(poll(), Lines{});
}

}  // namespace
}  // namespace orvane::test
