// The minidriver's own memory, as the rounds see it: it can be made to fail, and it can be counted.
#ifndef ORVANE_TESTS_TOGETHER_OWN_MEMORY_H
#define ORVANE_TESTS_TOGETHER_OWN_MEMORY_H

#include <cstddef>
#include <optional>
#include <vector>

namespace orvane::test {

// After how many allocations of a call the next one fails: that one alone, or all from there on.
struct MemoryFault {
  unsigned successes = 0;
  bool isOnce = false;
};

// OwnMemory is told by every thread of a round when it goes into the minidriver and when it leaves; a program says by
// its own class what comes of that. Neither what the token library allocates nor what the caller's callbacks do counts
// or fails.
class OwnMemory {
 public:
  virtual ~OwnMemory() = default;

  // The calling thread is one of the round's, and outside for now. (A thread that never says so is the minidriver's.)
  virtual void startOutside() = 0;
  // The calling thread goes into the minidriver, where its allocations fail like this.
  virtual void enter(const std::optional<MemoryFault>& fault) = 0;
  // It comes back; whether an allocation has failed.
  virtual bool leave() = 0;
  // It is in one of the caller's callbacks from here (true) to there (false).
  virtual void setInCallback(bool isInCallback) = 0;

  // The sizes of the blocks that the minidriver holds; no value where nobody counts them.
  virtual std::optional<std::vector<std::size_t>> blocksInUse() = 0;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_OWN_MEMORY_H
