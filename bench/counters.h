// What a piece of code used, counted natively for the calling thread; on Windows nothing is counted and all is 0.
#ifndef ORVANE_BENCH_COUNTERS_H
#define ORVANE_BENCH_COUNTERS_H

#include <cstdint>
#include <functional>

namespace orvane::bench {

// What was counted; heapBytes are those of the allocations, freed or not.
struct Counts {
  std::uint64_t registryReads = 0;
  std::uint64_t heapAllocations = 0;  // operator new
  std::uint64_t heapBytes = 0;
  std::uint64_t locks = 0;  // exclusive mutexes
};

// Whether this program can count.
extern const bool kCanCount;

// Counts while `run` runs.
Counts countDuring(const std::function<void()>& run);

// Bytes of the heap in use, 0 when they cannot be told.
std::uint64_t heapInUse();

// Counts instructions under callgrind: runs `run` once with its own counter, which is written out under `name`. Does
// nothing but run it elsewhere.
void countInstructions(const char* name, const std::function<void()>& run);

}  // namespace orvane::bench

#endif  // ORVANE_BENCH_COUNTERS_H
