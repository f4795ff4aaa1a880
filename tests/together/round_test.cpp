// Everything in trouble at once, a few rounds of it, always the same. scripts/storm goes on for hours.
#include "together/round.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "together/silence.h"

#ifdef ORVANE_TESTS_FAILING_NEW
#include "faults/failing_new.h"
#endif

namespace orvane::test {
namespace {

// The test program's own operator new fails when told to, but does not count.
class ProgramsMemory : public OwnMemory {
 public:
  void startOutside() override {}
#ifdef ORVANE_TESTS_FAILING_NEW
  void enter(const std::optional<MemoryFault>& fault) override {
    const MemoryFault never{std::numeric_limits<unsigned>::max(), false};
    const MemoryFault& next = fault ? *fault : never;
    (next.isOnce ? failNewOnceAfter : failNewAfter)(next.successes);
  }
  bool leave() override { return letNewSucceed(); }
  void setInCallback(bool isInCallback) override {
    static thread_local std::optional<NewSucceeds> succeeds;
    isInCallback ? static_cast<void>(succeeds.emplace()) : succeeds.reset();
  }
#else
  void enter(const std::optional<MemoryFault>&) override {}
  bool leave() override { return false; }
  void setInCallback(bool) override {}
#endif
  std::optional<std::vector<std::size_t>> blocksInUse() override { return std::nullopt; }
};

class Together : public ::testing::Test {
 protected:
  Together()
      : folder_(std::filesystem::temp_directory_path() /
                ("orvane-together-" + std::to_string(std::random_device()()))) {
    std::filesystem::create_directories(folder_);
  }
  ~Together() override { std::filesystem::remove_all(folder_); }

  void play(std::uint64_t seed, unsigned rounds, bool isSingleThreaded) {
    Tally tally;
    for (unsigned round = 0; round < rounds; ++round) {
      const Plan plan = drawPlan(derivedSeed(seed, round), 0, isSingleThreaded);
      std::vector<std::string> found;
      {
        const Silence silence;
        found = runRound(plan, memory_, folder_, tally);
      }
      for (const std::string& text : found) ADD_FAILURE() << "seed " << seed << ", round " << round << ": " << text;
    }
    // There was something of everything.
    for (const Kind kind : {Kind::kSucceeded, Kind::kAcquired, Kind::kDeletedByAnother, Kind::kCallerMemoryFailed,
                            Kind::kPinsUsed, Kind::kReadingsCompared, Kind::kRemovalsSeen, Kind::kAnswers,
                            Kind::kExceptions, Kind::kLogPlaces, Kind::kLogLines}) {
      EXPECT_GT(tally.of(kind), 0u) << tally.text();
    }
  }

 private:
  const std::filesystem::path folder_;
  ProgramsMemory memory_;
};

TEST_F(Together, InOneThread) { play(20261122, 12, true); }

TEST_F(Together, InSeveralThreads) { play(20261122, 12, false); }

}  // namespace
}  // namespace orvane::test
