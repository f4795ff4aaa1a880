// The caller's allocator of the rounds: it takes no lock, and it watches its blocks.
#ifndef ORVANE_TESTS_TOGETHER_CALLER_BLOCKS_H
#define ORVANE_TESTS_TOGETHER_CALLER_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/card_module.h"
#include "together/own_memory.h"

namespace orvane::test {

// A record as a caller makes it, with this allocator.
CARD_DATA roundRecord(OwnMemory& memory);

// How the allocator serves the calling thread, and whether it has refused it something.
struct CallerBlocksFault {
  std::optional<unsigned> successes;  // that are still granted; no value: all are
  bool hasFailed = false;
};
CallerBlocksFault& callerBlocksFault();

// The size that a block in use was asked for with.
std::size_t callerBlockSize(const void* block);
// Frees a block, as the record's callback does.
void releaseCallerBlock(void* block);
// How many are in use.
std::uint64_t callerBlocksInUse();
// What was wrong with how the allocator was used.
std::vector<std::string> takeCallerBlockFaults();

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_CALLER_BLOCKS_H
