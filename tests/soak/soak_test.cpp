// Long use in one process: memory, handles and threads stay where they are, no freshness number misses a change, and
// the log consists of whole lines. The amounts come from the environment (ORVANE_SOAK_CYCLES, ORVANE_SOAK_CALLS;
// scripts/soak sets them) and are small by themselves. How long a call took is printed, not judged.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <random>
#include <utility>
#include <vector>

#include "harness/call_test.h"
#include "harness/caller_memory.h"
#include "harness/log_reader.h"
#include "soak/process_usage.h"
#ifndef _WIN32
#include "cache/device_monitor.h"
#endif

namespace orvane::test {
namespace {

// A heap that is in use for other things breathes; what leaks with every cycle or call exceeds this soon.
constexpr std::size_t kBreathing = 256 * 1024;
constexpr unsigned kParts = 10;

unsigned amount(const char* variable, unsigned small) {
  const char* const text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : small;
}

class LongUse : public CallTest {
 protected:
  void SetUp() override {
    CallTest::SetUp();
    startAnew();
    setDebugLog(false);
    // The first acquisition starts the monitor; it stays where the fixture holds it.
    first_ = newRecord();
    ASSERT_EQ(acquire(first_), 0u);
    acquireContext_ = acquireContextExport();
    deleteContext_ = deleteContextExport();
  }
  void TearDown() override {
    EXPECT_EQ(deleteContext_(&first_), 0u);
    CallTest::TearDown();
  }

  // Runs `step` `count` times in ten parts and compares what the process holds after the second part and after each
  // later one. `amongTheParts` comes after every part, before the look.
  void run(
      unsigned count, const std::function<void()>& step, const std::function<void()>& amongTheParts = [] {}) {
    ProcessUsage settled;
    std::array<double, kParts> microseconds{};
    for (unsigned part = 1; part <= kParts; ++part) {
      microseconds[part - 1] = runPart(count / kParts, step);
      amongTheParts();
      forgetAll();
      const ProcessUsage usage = processUsage();
      std::cout << part * (count / kParts) << ": " << usage.heapBytes / 1024 << " KiB, " << usage.handles
                << " handles, " << usage.threads << " threads, " << microseconds[part - 1] << " us each" << std::endl;
      if (part == 2) settled = usage;
      if (part > 2) expectFlat(settled, usage);
    }
    std::cout << "time of the last part against the first: " << microseconds.back() / microseconds.front() << "\n";
  }

  // The processor's time for a step, in microseconds: that of the middle one of a hundred pieces, as others use the
  // processor, too.
  double runPart(unsigned count, const std::function<void()>& step) {
    const unsigned pieces = std::min(count, 100u);
    std::vector<std::clock_t> times;
    for (unsigned piece = 0; piece < pieces; ++piece) {
      const std::clock_t begun = std::clock();
      for (unsigned i = 0; i < count / pieces; ++i) {
        step();
        // The test's own records of what happened.
        if (i % 64 == 0) forgetAll();
      }
      times.push_back(std::clock() - begun);
    }
    std::nth_element(times.begin(), times.begin() + pieces / 2, times.end());
    return 1e6 * static_cast<double>(times[pieces / 2]) / CLOCKS_PER_SEC / (count / pieces);
  }

  static void expectFlat(const ProcessUsage& settled, const ProcessUsage& usage) {
    EXPECT_LE(usage.heapBytes, settled.heapBytes + kBreathing);
    EXPECT_LE(usage.handles, settled.handles);
    EXPECT_LE(usage.threads, settled.threads);
    if (areThreadsComingAndGoing()) return;
    EXPECT_GE(usage.handles, settled.handles);
    EXPECT_GE(usage.threads, settled.threads);
  }

  void forgetAll() {
    softtoken_clear_calls();
    takeAllocations();
  }

  CARD_DATA first_{};
  PFN_CARD_ACQUIRE_CONTEXT acquireContext_ = nullptr;
  PFN_CARD_DELETE_CONTEXT deleteContext_ = nullptr;
};

// All kinds of calls on many contexts, while tokens come and go and the log is switched.
class Soak : public LongUse {
 protected:
  void useMixed(unsigned count) {
    defineTokens();
    std::fill(records_.begin(), records_.end(), newRecord());
    for (CARD_DATA& record : records_) record.pvVendorSpecific = nullptr;
#ifdef _WIN32
    // Each poll takes a second there.
    callsPerPoll_ = std::max(2500u, count / 40);
#endif
    run(
        count, [this] { step(); }, [this] { checkLog(); });
    for (CARD_DATA& record : records_) EXPECT_EQ(deleteContext_(&record), 0u);
    std::cout << polls_ << " polls, " << appearances_ << " appearances, " << comparisons_ << " freshness numbers, "
              << lines_ << " log lines\n";
    EXPECT_GE(appearances_, std::size(kTokens));
    EXPECT_GT(comparisons_, 0u);
    EXPECT_GT(lines_, 0u);
  }

 private:
  static constexpr std::array<const char*, 4> kTokens = {"0012AA", "0012AB", "0012AC", "0012AD"};
  static constexpr unsigned kContexts = 32;

  // What there must be of a token: as long as the monitor does not see it go, changes only add up.
  struct Expected {
    bool isConnected = false;
    bool isSeen = false;       // by the monitor
    std::size_t keyCount = 0;  // as the last acquisition saw it
    std::uint16_t changes = 0;
  };

  void step() {
    ++calls_;
    if (random_() % 50 == 0) changeToken();
    if (calls_ % callsPerPoll_ == 0) poll();
    if (calls_ % 100 == 0) changeLogLevel();
    if (calls_ % 20000 == 0) checkLog();
    const std::size_t index = random_() % records_.size();
    CARD_DATA& record = records_[index];
    if (record.pvVendorSpecific == nullptr) acquireOn(record, random_() % kTokens.size());
    if (record.pvVendorSpecific == nullptr) return;
    if (random_() % 100 == 0) return deauthenticate(record);
    const EntryCall& call = entryCalls_[random_() % entryCalls_.size()];
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    prepared();
  }

  // With all PINs, keys and tries as at first.
  void defineTokens() {
    for (std::size_t i = 0; i < kTokens.size(); ++i) {
      defineToken(tokenForCalls(kTokens[i]));
      expected_[i].isConnected = true;
    }
  }

  void changeToken() {
    const std::size_t token = random_() % kTokens.size();
    const bool isConnected = random_() % 4 != 0;
    if (isConnected) {
      defineToken(tokenForCalls(kTokens[token]));
    } else {
      softtoken_set_connected(kTokens[token], 0);
    }
    expected_[token].isConnected = isConnected;
  }

  void poll() {
    ++polls_;
#ifdef _WIN32
    pollMonitor();
#else
    // What the monitor's thread does once a second; that thread stays where the fixture holds it.
    DeviceMonitor::pollDevices(known_);
#endif
    for (Expected& token : expected_) {
      if (token.isSeen && !token.isConnected) token = {};
      if (!token.isConnected || token.isSeen) continue;
      token.isSeen = true;
      ++token.changes;
      ++appearances_;
      version_ = version_ == 255 ? std::uint8_t{1} : static_cast<std::uint8_t>(version_ + 1);
    }
  }

  // The reader's name says which token it is, whether that one is there or not.
  void acquireOn(CARD_DATA& record, std::size_t index) {
    ResourceManager manager;
    manager.readerName = std::string("Reader of ") + kTokens[index];
    machine::setResourceManager(manager);
    record.hScard = kCardHandle;
    const bool isAnyThere =
        std::any_of(expected_.begin(), expected_.end(), [](const Expected& token) { return token.isConnected; });
    ASSERT_EQ(acquireContext_(&record, 0), isAnyThere ? 0 : code(SCARD_E_NO_SMARTCARD));
    if (!isAnyThere) return;
    Expected& token = expected_[index];
    const std::size_t keyCount = token.isConnected ? tokenForCalls().keys.size() : 0;
    if (std::exchange(token.keyCount, keyCount) != keyCount) ++token.changes;
    checkFreshness(record, index);
  }

  CARD_CACHE_FILE_FORMAT read(CARD_DATA& record) {
    CARD_CACHE_FILE_FORMAT file{};
    char name[] = "cardcf";
    PBYTE data = nullptr;
    DWORD size = 0;
    EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, name, 0, &data, &size), 0u);
    if (data == nullptr) return file;
    std::memcpy(&file, data, std::min<std::size_t>(size, sizeof(file)));
    CallerMemory::release(data);
    return file;
  }

  void checkFreshness(CARD_DATA& record, std::size_t index) {
    const CARD_CACHE_FILE_FORMAT file = read(record);
    EXPECT_EQ(file.bVersion, version_);
    EXPECT_EQ(file.wContainersFreshness, expected_[index].changes);
    EXPECT_EQ(file.wFilesFreshness, expected_[index].changes);
    comparisons_ += 3;
  }

  // Counts the token's PIN number on by one; which token that is, the record may have been told by a call.
  void deauthenticate(CARD_DATA& record) {
    EXPECT_EQ(record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0), 0u);
    const std::uint8_t before = read(record).bPinsFreshness;
    EXPECT_EQ(record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0), 0u);
    EXPECT_EQ(read(record).bPinsFreshness, before == 255 ? 1 : before + 1);
    ++comparisons_;
  }

  // In turn, so that every part of the run logs as much: nothing, errors alone, and every twelfth time everything.
  void changeLogLevel() {
    LogLevelValue value;
    const auto number = static_cast<std::uint32_t>(calls_ / 100 % 12);
    if (number < 6) {
      value.type = LogLevelValue::Type::kNumber;
      value.number = number;
    } else if (number == 6) {
      value.type = LogLevelValue::Type::kText;
      value.bytes = {'2', 0};
    }
    setLogLevel(value);
  }

  void checkLog() {
    const std::string bytes = fileBytes(logFile());
    if (bytes.empty()) return;
    std::filesystem::remove(logFile());
    EXPECT_EQ(bytes.find(kPinMark), std::string::npos) << "the log contains a PIN";
    EXPECT_EQ(bytes.back(), '\n');
    for (std::size_t begin = 0; begin < bytes.size();) {
      const std::size_t end = std::min(bytes.find('\n', begin), bytes.size());
      const std::string line = bytes.substr(begin, end - begin);
      EXPECT_NE(logLineText(line)[0], '?') << line;
      ++lines_;
      begin = end + 1;
    }
  }

  const std::vector<EntryCall> entryCalls_ = allCalls();
  std::minstd_rand random_{20261121};
  std::vector<CARD_DATA> records_{kContexts};
  std::array<Expected, kTokens.size()> expected_{};
  std::uint8_t version_ = 0;
  std::uint64_t calls_ = 0, polls_ = 0, appearances_ = 0, comparisons_ = 0, lines_ = 0;
  unsigned callsPerPoll_ = 100;
#ifndef _WIN32
  DeviceMonitor::KnownDevices known_;
#endif
};

TEST_F(Soak, AcquiringAndDeleting) {
  run(amount("ORVANE_SOAK_CYCLES", 500), [&] {
    CARD_DATA record = newRecord();
    ASSERT_EQ(acquireContext_(&record, 0), 0u);
    ASSERT_EQ(deleteContext_(&record), 0u);
  });
}

TEST_F(Soak, MixedCalls) { useMixed(amount("ORVANE_SOAK_CALLS", 5000)); }

}  // namespace
}  // namespace orvane::test
