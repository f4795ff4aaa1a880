// The freshness counters and bumpCacheFreshness.
#include "cache/freshness.h"

#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "cache/bump_freshness.h"
#include "cache/process_state.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

static_assert(nextFreshness(std::uint8_t{0}) == 1);
static_assert(nextFreshness(std::uint8_t{254}) == 255);
static_assert(nextFreshness(std::uint8_t{255}) == 1);
static_assert(nextFreshness(std::uint16_t{0}) == 1);
static_assert(nextFreshness(std::uint16_t{255}) == 256);
static_assert(nextFreshness(std::uint16_t{65534}) == 65535);
static_assert(nextFreshness(std::uint16_t{65535}) == 0);

// All counters: the version, those that count for no token or for the log alone, and a token's own.
struct Counters {
  unsigned version = 0;
  unsigned globalPins = 0;
  unsigned globalContainers = 0;
  unsigned globalFiles = 0;
  unsigned pins = 0;
  unsigned containers = 0;
  unsigned files = 0;
  bool hasRecord = false;
  friend bool operator==(const Counters&, const Counters&) = default;
};

void PrintTo(const Counters& counters, std::ostream* stream) {
  *stream << "version " << counters.version << ", global " << counters.globalPins << " " << counters.globalContainers
          << " " << counters.globalFiles << ", token " << counters.pins << " " << counters.containers << " "
          << counters.files << (counters.hasRecord ? "" : ", no record");
}

class FreshnessTest : public LinkedTest {
 protected:
  // `serial` is the token whose own counters are shown.
  static Counters counters(const std::string& serial) {
    const ProcessState& state = processState();
    const Freshness own = state.deviceCache.freshness(serial);
    return {state.cacheVersion.value(),
            state.globalPinsFreshness.value(),
            state.globalContainersFreshness.value(),
            state.globalFilesFreshness.value(),
            own.pins,
            own.containers,
            own.files,
            state.deviceCache.hasRecord(serial)};
  }
  // What bumpCacheFreshness does.
  Lines traceOfBump(std::uint32_t flags, const std::string& serial) {
    return observe([&] {
             bumpCacheFreshness(flags, serial);
             return DWORD{0};
           })
        .trace;
  }
  static std::string bumpedLine(const Counters& counters) {
    return "D >>> GLOBAL CACHE BUMPED: ver=" + std::to_string(counters.version) +
           " pins=" + std::to_string(counters.globalPins) + " cont=" + std::to_string(counters.globalContainers) +
           " file=" + std::to_string(counters.globalFiles);
  }
};

TEST(FreshnessCounter, BeginsAtZero) {
  EXPECT_EQ(FreshnessCounter<std::uint8_t>().value(), 0);
  EXPECT_EQ(FreshnessCounter<std::uint16_t>().value(), 0);
}

// Each of the sixteen flag combinations on new counters, with a token and without one.
TEST_F(FreshnessTest, EachFlagHasItsCounter) {
  for (std::uint32_t flags = 0; flags <= kBumpAll; ++flags) {
    for (const std::string serial : {"A1", ""}) {
      SCOPED_TRACE("flags " + std::to_string(flags) + " [" + serial + "]");
      LinkedTest::TearDown();
      LinkedTest::SetUp();
      const Lines trace = traceOfBump(flags, serial);
      const unsigned version = (flags & 1) != 0 ? 1 : 0;
      const unsigned pins = (flags & 2) != 0 ? 1 : 0;
      const unsigned containers = (flags & 4) != 0 ? 1 : 0;
      const unsigned files = (flags & 8) != 0 ? 1 : 0;
      Counters expected{.version = version, .globalPins = pins};
      if (serial.empty()) {
        expected.globalContainers = containers;
        expected.globalFiles = files;
      } else {
        expected.hasRecord = (flags & 0xE) != 0;
        expected.pins = expected.hasRecord ? pins : 1;
        expected.containers = containers;
        expected.files = files;
      }
      if (!expected.hasRecord) expected.pins = 1;
      EXPECT_EQ(counters(serial), expected);
      Lines log;
      if (pins != 0) log.push_back("D device reconnect false [" + serial + "]");
      log.push_back(bumpedLine(expected));
      EXPECT_EQ(trace, log);
    }
  }
}

TEST_F(FreshnessTest, CountsForOneTokenOnly) {
  bumpCacheFreshness(kBumpAll, "A1");
  bumpCacheFreshness(kBumpContainers, "A2");
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 0, 0, 1, 1, 1, true}));
  EXPECT_EQ(counters("A2"), (Counters{1, 1, 0, 0, 0, 1, 0, true}));
  EXPECT_EQ(counters("A3"), (Counters{1, 1, 0, 0, 1, 0, 0, false}));
}

TEST_F(FreshnessTest, BytesWrapToOneAndWordsToZero) {
  setDebugLog(false);
  const auto bump = [](std::uint32_t flags, const std::string& serial, unsigned times) {
    for (unsigned i = 0; i < times; ++i) bumpCacheFreshness(flags, serial);
  };
  bump(kBumpVersion | kBumpPins, "", 255);
  EXPECT_EQ(counters("A1"), (Counters{255, 255, 0, 0, 1, 0, 0, false}));
  bump(kBumpVersion | kBumpPins, "", 1);
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 0, 0, 1, 0, 0, false}));
  bump(kBumpVersion | kBumpPins, "", 255);
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 0, 0, 1, 0, 0, false})) << "255 steps make a round";
  for (unsigned i = 0; i < 255; ++i) processState().deviceCache.bumpPinsFreshness("A1");
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 0, 0, 255, 0, 0, true}));
  processState().deviceCache.bumpPinsFreshness("A1");
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 0, 0, 1, 0, 0, true}));
  for (unsigned i = 0; i < 65535; ++i) {
    processState().deviceCache.bumpContainersFreshness("A1");
    processState().deviceCache.bumpFilesFreshness("A1");
    processState().globalContainersFreshness.bump();
    processState().globalFilesFreshness.bump();
  }
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 65535, 65535, 1, 65535, 65535, true}));
  bump(kBumpContainers | kBumpFiles, "A1", 1);
  bump(kBumpContainers | kBumpFiles, "", 1);
  EXPECT_EQ(counters("A1"), (Counters{1, 1, 0, 0, 1, 0, 0, true}));
}

constexpr char kNotValid[] = "D Not valid - bumping pin freshness";

// From the second bump of the PIN counter on, the token is asked; only when both sides hold the PIN valid it stays.
struct PinRow {
  const char* name;
  std::optional<long long> onDevice;  // none: the library throws
  const char* shown;                  // of that
  const char* firmware;               // that the record holds afterwards
  bool local;
  unsigned pins;  // the counter afterwards
  const char* conclusion;
};

TEST_F(FreshnessTest, PinCounterStaysWhileThePinIsValid) {
  const PinRow rows[] = {
      {"valid on both sides", 1, "1", "9.8", true, 1, "D valid"},
      {"any number but 0 is valid", 4294967295, "4294967295", "9.8", true, 1, "D valid"},
      {"not validated by this process", 1, "1", "9.8", false, 2, kNotValid},
      {"not valid on the token", 0, "0", "9.8", true, 2, kNotValid},
      {"on neither side", 0, "0", "9.8", false, 2, kNotValid},
      {"the library throws", std::nullopt, "0", "", true, 2, kNotValid},
  };
  for (const PinRow& row : rows) {
    SCOPED_TRACE(row.name);
    LinkedTest::TearDown();
    LinkedTest::SetUp();
    defineToken({.serial = "A1"});
    DeviceCache& cache = processState().deviceCache;
    EXPECT_EQ(traceOfBump(kBumpPins, "A1"),
              (Lines{"D device reconnect false [A1]", "D >>> GLOBAL CACHE BUMPED: ver=0 pins=1 cont=0 file=0"}));
    EXPECT_EQ(counters("A1"), (Counters{0, 1, 0, 0, 1, 0, 0, true}));
    if (row.local) cache.storeValidatedPassword("A1", SecretText(kUserPin, sizeof(kUserPin) - 1));
    if (row.onDevice) {
      queueResult("orvane_getTokenInfo", *row.onDevice, kSofttokenKeep, kSofttokenKeep, {'9', '.', '8'});
    } else {
      queueThrow("orvane_getTokenInfo");
    }
    const Lines trace = traceOfBump(kBumpPins, "A1");
    const Counters expected{0, row.pins, 0, 0, row.pins, 0, 0, true};
    EXPECT_EQ(counters("A1"), expected);
    EXPECT_EQ(trace, (Lines{"D device reconnect true [A1]", "orvane_getTokenInfo(\"A1\", null)",
                            "D password validated (device) :: " + std::string(row.shown),
                            "D password validated (local)  :: " + std::string(row.local ? "1" : "0"), row.conclusion,
                            bumpedLine(expected)}));
    EXPECT_EQ(cache.firmwareVersion("A1"), row.firmware) << "the token's record is kept";
    EXPECT_EQ(cache.pinState("A1").isValidatedLocal, row.local);
  }
}

// Without a serial nothing is remembered, so each bump is a first one.
TEST_F(FreshnessTest, PinBumpsWithoutATokenNeverAsk) {
  for (unsigned i = 1; i <= 3; ++i) {
    EXPECT_EQ(traceOfBump(kBumpPins, ""),
              (Lines{"D device reconnect false []",
                     "D >>> GLOBAL CACHE BUMPED: ver=0 pins=" + std::to_string(i) + " cont=0 file=0"}));
  }
}

// A token that goes loses its counters; the next bump starts from 0 and asks nothing.
TEST_F(FreshnessTest, ErasedRecordStartsAnew) {
  bumpCacheFreshness(kBumpPins | kBumpContainers, "A1");
  processState().deviceCache.erase("A1");
  EXPECT_EQ(counters("A1"), (Counters{0, 1, 0, 0, 1, 0, 0, false}));
  bumpCacheFreshness(kBumpPins, "A1");
  EXPECT_EQ(counters("A1"), (Counters{0, 2, 0, 0, 1, 0, 0, true}));
  EXPECT_EQ(takeCalls(), Lines{});
}

// The monitor may erase the record while the token is being asked: the answer makes it again.
TEST_F(FreshnessTest, RecordErasedDuringTheQuestionComesBack) {
  defineToken({.serial = "A1"});
  bumpCacheFreshness(kBumpPins | kBumpContainers, "A1");
  softtoken_gate("orvane_getTokenInfo", 1);
  std::thread bump([] { bumpCacheFreshness(kBumpPins, "A1"); });
  EXPECT_EQ(softtoken_wait_held("orvane_getTokenInfo", 120000), 1);
  processState().deviceCache.erase("A1");
  softtoken_gate("orvane_getTokenInfo", 0);
  bump.join();
  EXPECT_EQ(counters("A1"), (Counters{0, 2, 0, 0, 1, 0, 0, true}));
  EXPECT_EQ(processState().deviceCache.firmwareVersion("A1"), "2.1.0");
}

}  // namespace
}  // namespace orvane::test
