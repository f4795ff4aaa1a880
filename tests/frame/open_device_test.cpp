// How an acquisition opens the token, reads its keys and counts them.
#include <algorithm>
#include <cstring>
#include <thread>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

// What orvane_initDevice and orvane_getKeyPairList answer, in this order, and how many keys each list has.
struct DeviceRow {
  const char* name;
  std::vector<int> initResults;
  std::vector<std::size_t> keyCounts;
  Lines trace;  // between "Using serial" and the key count
  std::size_t containers;
  bool isInitialized;  // afterwards
};

const char* const kMonitorStarts = "D Monitor thread started (startDeviceMonitor).";
const char* const kMonitorRuns = "D Monitor thread already running, not starting again.";
const char* const kInitialising = "D Initialising device [0012AB]";
const char* const kRefreshing = "D Key list empty for [0012AB], refreshing";
const std::string kInitCall = "orvane_initDevice(\"0012AB\", false, null)";
const std::string kClearCall = "orvane_clearExternalSmartcardHandle()";
const std::string kListCall = "orvane_getKeyPairList(\"0012AB\", null)";

const DeviceRow kDeviceRows[] = {
    {.name = "both work",
     .initResults = {0},
     .keyCounts = {2},
     .trace = {kInitialising, kInitCall, kClearCall, kListCall},
     .containers = 2,
     .isInitialized = true},
    {.name = "the keys are there although the initialisation failed",
     .initResults = {7},
     .keyCounts = {2},
     .trace = {kInitialising, kInitCall, "E Init device failed for [0012AB]: 7", kClearCall, kListCall,
               "D Key list available via HID despite init error \xE2\x80\x94 marking [0012AB] as initialized"},
     .containers = 2,
     .isInitialized = true},
    {.name = "both fail, and the refresh as well",
     .initResults = {-2147483647, -3},
     .keyCounts = {0},
     .trace = {kInitialising, kInitCall, "E Init device failed for [0012AB]: -2147483647", kClearCall, kListCall,
               kRefreshing, kInitCall, "E PACE refresh failed for [0012AB]: -3"},
     .containers = 0,
     .isInitialized = false},
    {.name = "the refresh brings the keys",
     .initResults = {7, 0},
     .keyCounts = {0, 3},
     .trace = {kInitialising, kInitCall, "E Init device failed for [0012AB]: 7", kClearCall, kListCall, kRefreshing,
               kInitCall, kListCall},
     .containers = 3,
     .isInitialized = true},
    {.name = "the refresh works but brings no keys",
     .initResults = {7, 0},
     .keyCounts = {0, 0},
     .trace = {kInitialising, kInitCall, "E Init device failed for [0012AB]: 7", kClearCall, kListCall, kRefreshing,
               kInitCall, kListCall},
     .containers = 0,
     .isInitialized = true},
    {.name = "an initialised token stays so although its refresh fails",
     .initResults = {0, 8},
     .keyCounts = {0},
     .trace = {kInitialising, kInitCall, kClearCall, kListCall, kRefreshing, kInitCall,
               "E PACE refresh failed for [0012AB]: 8"},
     .containers = 0,
     .isInitialized = true},
};

class OpenDevice : public DriverTest {
 protected:
  void queueKeys(std::size_t count) {
    Bytes records;
    for (std::size_t i = 0; i < count; ++i) {
      const Bytes key = bytesOf(makeKey(static_cast<std::uint8_t>(i + 1), 3));
      records.insert(records.end(), key.begin(), key.end());
    }
    queueResult("orvane_getKeyPairList", 0, kSofttokenKeep, kSofttokenKeep, records);
  }

  // An acquisition with this in the middle.
  static Outcome acquired(const Lines& opening, const char* monitorLine) {
    return {0, inOrder("D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=0",
                       "D Global library init (skip HID scan)", "orvane_init(0, null, 2)", monitorLine,
                       "orvane_getConnectedDeviceList(false, null)", "D resolved serial number :: 0012AB",
                       "D Using serial=0012AB for hScard=0", opening, "D CardAcquireContext completed successfully")};
  }

  static Lines linesOfKeys(std::size_t count) {
    Lines log;
    for (std::size_t i = 0; i < count; ++i) {
      log.push_back("D guidAscii (credential id ) :: " + idOf(static_cast<std::uint8_t>(i + 1)));
      log.push_back("D key usage :: 3");
    }
    return log;
  }
};

TEST_F(OpenDevice, LetsTheKeyListDecide) {
  defineToken({});
  for (const DeviceRow& row : kDeviceRows) {
    SCOPED_TRACE(row.name);
    reloadDriver();
    for (const int result : row.initResults) queueResult("orvane_initDevice", result);
    for (const std::size_t count : row.keyCounts) queueKeys(count);
    CARD_DATA record = newRecord();
    const Outcome outcome = observe([&] { return acquire(record); });
    Lines counted = {"D older key count 0"};
    if (row.containers != 0) {
      counted.push_back("D new key count " + std::to_string(row.containers));
      counted.push_back("D >>> GLOBAL CACHE BUMPED: ver=0 pins=0 cont=0 file=0");
    }
    ASSERT_EQ(outcome, acquired(inOrder(row.trace, counted, linesOfKeys(row.containers)), kMonitorStarts));
    EXPECT_EQ(inside(record).containerCount(), row.containers);
    EXPECT_EQ(softtoken_queued("orvane_initDevice") + softtoken_queued("orvane_getKeyPairList"), 0u);

    // The next acquisition initialises the device only if this one could not.
    queueKeys(1);
    CARD_DATA next = newRecord();
    const Outcome nextOutcome = observe([&] { return acquire(next); });
    ASSERT_EQ(nextOutcome.status, 0u);
    EXPECT_EQ(linesWith(kInitialising, nextOutcome.trace).size(), row.isInitialized ? 0u : 1u);
    EXPECT_EQ(linesWith("orvane_initDevice(", nextOutcome.trace).size(), row.isInitialized ? 0u : 1u);
    record.pfnCardDeleteContext(&record);
    next.pfnCardDeleteContext(&next);
  }
}

TEST_F(OpenDevice, CountsTheKeysOfEachAcquisition) {
  defineToken({});
  struct Step {
    std::size_t keyCount;
    Lines trace;  // between "Using serial" and the keys
    Bytes cardCf;
  };
  const Step steps[] = {
      {2,
       {kInitialising, kInitCall, kClearCall, kListCall, "D older key count 0", "D new key count 2",
        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=0 cont=0 file=0"},
       {0, 0, 1, 0, 1, 0}},
      {2, {kClearCall, kListCall, "D older key count 2"}, {0, 0, 1, 0, 1, 0}},
      {3,
       {kClearCall, kListCall, "D older key count 2", "D new key count 3",
        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=0 cont=0 file=0"},
       {0, 0, 2, 0, 2, 0}},
      {1,
       {kClearCall, kListCall, "D older key count 3", "D new key count 1",
        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=0 cont=0 file=0"},
       {0, 0, 3, 0, 3, 0}},
      {1, {kClearCall, kListCall, "D older key count 1"}, {0, 0, 3, 0, 3, 0}},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(&step - steps);
    queueKeys(step.keyCount);
    CARD_DATA record = newRecord();
    ASSERT_EQ(observe([&] { return acquire(record); }),
              acquired(concat(step.trace, linesOfKeys(step.keyCount)), &step == steps ? kMonitorStarts : kMonitorRuns));
    EXPECT_EQ(cardCf(record), step.cardCf);
    record.pfnCardDeleteContext(&record);
  }
}

// A context that is older than the token's present keys learns about them from the list that is kept for all contexts.
TEST_F(OpenDevice, KeepsTheContainersForOtherContexts) {
  CARD_DATA& first = open({makeKey(1, 3)});
  const OrvaneKeyPair second = makeKey(2, 3);
  softtoken_add_key(kSerial, &second);
  EXPECT_EQ(inside(openContext()).containerCount(), 2u);
  EXPECT_EQ(inside(first).containerCount(), 1u);
  PIN_ID pinId = kPoison32;
  DWORD length = kPoison32;
  EXPECT_EQ(first.pfnCardGetContainerProperty(&first, 1, CCP_PIN_IDENTIFIER, reinterpret_cast<PBYTE>(&pinId),
                                              sizeof(pinId), &length, 0),
            0u);
  ASSERT_EQ(inside(first).containerCount(), 2u);
  EXPECT_EQ(bytesOf(inside(first).container(1).keyPairs.at(0)), bytesOf(second));
}

// The mark "a context is attached" is the token's, not counted by contexts: when it goes while another acquisition is
// under way, that one leaves the key count alone.
TEST_F(OpenDevice, CountsNothingWhenTheTokensContextWentMeanwhile) {
  CARD_DATA& first = open({makeKey(1, 3)});
  const OrvaneKeyPair key = makeKey(2, 3);
  softtoken_add_key(kSerial, &key);
  CARD_DATA second = newRecord();
  softtoken_gate("orvane_getKeyPairList", 1);
  DWORD status = kPoison32;
  std::thread acquisition([&] {
    // The gate that holds the monitor lets the thread through that closed it last.
    softtoken_gate("orvane_getConnectedDeviceList", 1);
    status = acquire(second);
  });
  EXPECT_EQ(softtoken_wait_held("orvane_getKeyPairList", 120000), 1);
  EXPECT_EQ(first.pfnCardDeleteContext(&first), 0u);
  forget();
  softtoken_gate("orvane_getKeyPairList", 0);
  acquisition.join();
  EXPECT_EQ(status, 0u);
  softtoken_gate("orvane_getConnectedDeviceList", 1);
  EXPECT_EQ(takeLog(), (Lines{"D guidAscii (credential id ) :: " + idOf(1), "D key usage :: 3",
                              "D guidAscii (credential id ) :: " + idOf(2), "D key usage :: 3",
                              "D CardAcquireContext completed successfully"}));
  EXPECT_EQ(inside(second).containerCount(), 2u);
  second.pfnCardDeleteContext(&second);

  CARD_DATA third = newRecord();
  EXPECT_EQ(acquire(third), 0u);
  const Lines log = takeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "D older key count 1"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "D new key count 2"), 1);
  third.pfnCardDeleteContext(&third);
}

}  // namespace
}  // namespace orvane::test
