// The allocator that the base provider offers to the minidriver, watched.
#ifndef ORVANE_TESTS_HARNESS_CALLER_MEMORY_H
#define ORVANE_TESTS_HARNESS_CALLER_MEMORY_H

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/card_module.h"

namespace orvane::test {

// CallerMemory hands out filled blocks with a margin behind them and notices blocks that are written beyond their end,
// freed twice, or never handed out. There is one, because the callbacks carry no context. Any thread may call.
class CallerMemory {
 public:
  static CallerMemory& instance();

  // The callbacks for the record.
  static LPVOID WINAPI allocate(SIZE_T size);
  static LPVOID WINAPI reallocate(LPVOID block, SIZE_T size);
  static void WINAPI release(LPVOID block);

  // The next `count` requests succeed and all after them fail; no value: none fails.
  void failAfter(std::optional<unsigned> count);
  // The sizes requested since the last call, failed requests included.
  std::vector<std::size_t> takeRequests();
  // The size of a block in use; no value when there is no such block.
  std::optional<std::size_t> sizeOf(const void* block);
  // Frees what is in use and forgets everything; returns what was wrong, blocks in use included.
  std::vector<std::string> reset();

 private:
  void* allocateBlock(std::size_t size);
  void releaseBlock(void* block);

  std::mutex mutex_;
  std::map<const void*, std::size_t> blocks_;
  std::vector<std::size_t> requests_;
  std::optional<unsigned> successesLeft_;
  std::vector<std::string> faults_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_CALLER_MEMORY_H
