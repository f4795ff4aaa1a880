// What the process holds: for tests that nothing grows.
#ifndef ORVANE_TESTS_SOAK_PROCESS_USAGE_H
#define ORVANE_TESTS_SOAK_PROCESS_USAGE_H

#include <cstddef>

namespace orvane::test {

// What the process holds at one moment.
struct ProcessUsage {
  std::size_t heapBytes = 0;  // allocated from the C runtime's heap
  std::size_t handles = 0;    // open file descriptors
  std::size_t threads = 0;
};

// Looks at the calling process.
ProcessUsage processUsage();

// To be called before the first count. Wine's heap keeps blocks of a size in groups once some two thousand of that size
// were asked for, and counts whole groups as in use: here that happens to all sizes at once, not to one after the other
// in the course of hours. Elsewhere it does nothing that lasts.
void settleHeap();

// Whether the system ends threads of its own in a process that does nothing: Windows' loader keeps some for half a
// minute. Both counts may then sink while a test runs; they may never grow.
bool areThreadsComingAndGoing();

}  // namespace orvane::test

#endif  // ORVANE_TESTS_SOAK_PROCESS_USAGE_H
