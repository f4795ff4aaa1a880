// How much of everything there was.
#ifndef ORVANE_TESTS_TOGETHER_TALLY_H
#define ORVANE_TESTS_TOGETHER_TALLY_H

#include <array>
#include <cstdint>
#include <string>

namespace orvane::test {

enum class Kind : unsigned {
  kCalls,
  kSucceeded,
  kAcquired,
  kDeleted,
  kDeletedByAnother,
  kOwnMemoryFailed,
  kCallerMemoryFailed,
  kPinsUsed,
  kReadingsCompared,
  kPolls,
  kPollsOutOfMemory,
  kRemovalsSeen,
  kAppearancesSeen,
  kTokensGone,
  kTokensBack,
  kAnswers,
  kExceptions,
  kReaders,
  kLogLevels,
  kLogPlaces,
  kLogLines,
  kThreadFailures,
  kKeyChanges,
  kOpeningChanges,
  kUnloads,
  kCount
};

// One thread's, or a sum of them.
class Tally {
 public:
  void count(Kind kind, std::uint64_t times = 1) { counts_[static_cast<std::size_t>(kind)] += times; }
  std::uint64_t of(Kind kind) const { return counts_[static_cast<std::size_t>(kind)]; }
  void add(const Tally& other) {
    for (std::size_t i = 0; i < counts_.size(); ++i) counts_[i] += other.counts_[i];
  }
  // One line for each kind.
  std::string text() const;

 private:
  std::array<std::uint64_t, static_cast<std::size_t>(Kind::kCount)> counts_{};
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_TALLY_H
