// Long use in one process: memory, handles and threads stay where they are. The amounts come from the environment
// (ORVANE_SOAK_CYCLES, ORVANE_SOAK_CALLS; scripts/soak sets them) and are small by themselves.
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>

#include "harness/call_test.h"
#include "harness/caller_memory.h"
#include "soak/process_usage.h"

namespace orvane::test {
namespace {

// A heap that is in use for other things breathes; what leaks with every cycle or call exceeds this soon.
constexpr std::size_t kBreathing = 256 * 1024;
constexpr unsigned kParts = 10;

unsigned amount(const char* variable, unsigned small) {
  const char* const text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : small;
}

class Soak : public CallTest {
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

  // Runs `step` `count` times in ten parts and compares what the process holds after the second and after the last.
  void run(unsigned count, const std::function<void()>& step) {
    ProcessUsage settled;
    ProcessUsage usage;
    for (unsigned part = 1; part <= kParts; ++part) {
      for (unsigned i = 0; i < count / kParts; ++i) {
        step();
        // The test's own records of what happened.
        if (i % 64 == 0) forgetAll();
      }
      forgetAll();
      usage = processUsage();
      if (part == 2) settled = usage;
      std::cout << part * (count / kParts) << ": " << usage.heapBytes / 1024 << " KiB, " << usage.handles
                << " handles, " << usage.threads << " threads\n";
    }
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

TEST_F(Soak, AcquiringAndDeleting) {
  run(amount("ORVANE_SOAK_CYCLES", 500), [&] {
    CARD_DATA record = newRecord();
    ASSERT_EQ(acquireContext_(&record, 0), 0u);
    ASSERT_EQ(deleteContext_(&record), 0u);
  });
}

TEST_F(Soak, MixedCalls) {
  const std::vector<EntryCall> calls = allCalls();
  std::minstd_rand random(20261121);
  std::vector<CARD_DATA> records(8, newRecord());
  for (CARD_DATA& record : records) ASSERT_EQ(acquireContext_(&record, 0), 0u);
  run(amount("ORVANE_SOAK_CALLS", 5000), [&] {
    CARD_DATA& record = records[random() % records.size()];
    // PINs change and block, contexts end: now and then all is as it was.
    if (random() % 50 == 0) defineToken(tokenForCalls());
    if (record.pvVendorSpecific == nullptr) {
      ASSERT_EQ(acquireContext_(&record, 0), 0u);
      record.hScard = kCardHandle;
    }
    CallOutputs outputs;
    const std::function<DWORD()> prepared = calls[random() % calls.size()].prepare(record, outputs);
    outputs.startCall();
    prepared();
  });
  for (CARD_DATA& record : records) EXPECT_EQ(deleteContext_(&record), 0u);
}

}  // namespace
}  // namespace orvane::test
