#include "together/caller_blocks.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "harness/plain_record.h"

namespace orvane::test {
namespace {

constexpr std::uint64_t kInUse = 0xB10C1A1B10C1A1B1;
constexpr std::uint64_t kFreed = 0xDEADB10CDEADB10C;
constexpr std::size_t kMargin = 16;
constexpr unsigned char kMarginFill = 0xFD;

// Before every block.
struct alignas(16) Header {
  std::uint64_t mark;
  std::uint64_t size;
};

std::atomic<std::uint64_t> blocksInUse{0};
std::atomic<OwnMemory*> ownMemory{nullptr};
thread_local CallerBlocksFault current;

std::mutex faultsMutex;
std::vector<std::string>& faults() {
  static auto* const texts = new std::vector<std::string>;
  return *texts;
}

void addFault(std::string text) {
  const std::lock_guard lock(faultsMutex);
  faults().push_back(std::move(text));
}

// From here on the minidriver's memory neither fails nor counts.
class Callback {
 public:
  Callback() : memory_(ownMemory.load(std::memory_order_relaxed)) { memory_->setInCallback(true); }
  ~Callback() { memory_->setInCallback(false); }
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;

 private:
  OwnMemory* memory_;
};

LPVOID WINAPI allocate(SIZE_T size) {
  const Callback callback;
  if (current.successes == 0u) {
    current.hasFailed = true;
    return nullptr;
  }
  if (current.successes) --*current.successes;
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size + kMargin));
  if (header == nullptr) return nullptr;
  *header = {kInUse, size};
  auto* const block = reinterpret_cast<unsigned char*>(header + 1);
  std::memset(block, 0xCD, size);
  std::memset(block + size, kMarginFill, kMargin);
  blocksInUse.fetch_add(1, std::memory_order_relaxed);
  return block;
}

LPVOID WINAPI reallocate(LPVOID, SIZE_T) {
  addFault("the caller's reallocation was called");
  return nullptr;
}

void WINAPI release(LPVOID block) {
  if (block == nullptr) return addFault("a null block was freed");
  auto* const header = static_cast<Header*>(block) - 1;
  if (header->mark != kInUse) return addFault("a block that is not in use was freed");
  const auto* const margin = static_cast<const unsigned char*>(block) + header->size;
  for (std::size_t i = 0; i < kMargin; ++i) {
    if (margin[i] != kMarginFill) {
      addFault("a block of " + std::to_string(header->size) + " bytes was written beyond its end");
      break;
    }
  }
  header->mark = kFreed;
  blocksInUse.fetch_sub(1, std::memory_order_relaxed);
  std::free(header);
}

}  // namespace

CallerBlocksFault& callerBlocksFault() { return current; }

std::size_t callerBlockSize(const void* block) { return (static_cast<const Header*>(block) - 1)->size; }

void releaseCallerBlock(void* block) { release(block); }

CARD_DATA roundRecord(OwnMemory& memory) {
  ownMemory = &memory;
  return plainRecord(allocate, reallocate, release);
}

std::uint64_t callerBlocksInUse() { return blocksInUse.load(); }

std::vector<std::string> takeCallerBlockFaults() {
  const std::lock_guard lock(faultsMutex);
  return std::exchange(faults(), {});
}

}  // namespace orvane::test
