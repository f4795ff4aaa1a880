#include "caller_memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "outcome.h"
#include "trace.h"

namespace orvane::test {
namespace {

constexpr std::size_t kMargin = 32;
constexpr unsigned char kMarginFill = 0xFD;
constexpr unsigned char kFreshFill = 0xCD;

}  // namespace

CallerMemory& CallerMemory::instance() {
  static auto* const memory = new CallerMemory;
  return *memory;
}

LPVOID WINAPI CallerMemory::allocate(SIZE_T size) { return instance().allocateBlock(size); }

LPVOID WINAPI CallerMemory::reallocate(LPVOID block, SIZE_T size) {
  const auto oldSize = instance().sizeOf(block);
  void* const larger = instance().allocateBlock(size);
  if (larger == nullptr) return nullptr;
  if (oldSize) std::memcpy(larger, block, std::min<std::size_t>(*oldSize, size));
  if (block != nullptr) instance().releaseBlock(block);
  return larger;
}

void WINAPI CallerMemory::release(LPVOID block) { instance().releaseBlock(block); }

void CallerMemory::failAfter(std::optional<unsigned> count) {
  const std::lock_guard lock(mutex_);
  successesLeft_ = count;
}

std::vector<std::size_t> CallerMemory::takeRequests() {
  const std::lock_guard lock(mutex_);
  return std::exchange(requests_, {});
}

std::optional<std::size_t> CallerMemory::sizeOf(const void* block) {
  const std::lock_guard lock(mutex_);
  const auto found = blocks_.find(block);
  if (found == blocks_.end()) return std::nullopt;
  return found->second;
}

std::vector<std::string> CallerMemory::reset() {
  std::map<const void*, std::size_t> left;
  {
    const std::lock_guard lock(mutex_);
    left = blocks_;
  }
  for (const auto& [block, size] : left) releaseBlock(const_cast<void*>(block));
  const std::lock_guard lock(mutex_);
  for (const auto& [block, size] : left)
    faults_.push_back("a block of " + std::to_string(size) + " bytes was not freed");
  requests_.clear();
  successesLeft_.reset();
  return std::exchange(faults_, {});
}

void* CallerMemory::allocateBlock(std::size_t size) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(size);
  const bool isRefused = successesLeft_ == 0u;
  Trace::note(isRefused ? refusedAlloc(size) : alloc(size));
  if (isRefused) return nullptr;
  if (successesLeft_) --*successesLeft_;
  auto* const block = static_cast<unsigned char*>(std::malloc(size + kMargin));
  if (block == nullptr) return nullptr;
  std::memset(block, kFreshFill, size);
  std::memset(block + size, kMarginFill, kMargin);
  blocks_.emplace(block, size);
  return block;
}

void CallerMemory::releaseBlock(void* block) {
  const std::lock_guard lock(mutex_);
  const auto found = blocks_.find(block);
  if (found == blocks_.end()) {
    faults_.push_back(block == nullptr ? "a null block was freed" : "a block that is not in use was freed");
    return;
  }
  Trace::note("free " + std::to_string(found->second));
  const auto* const margin = static_cast<const unsigned char*>(block) + found->second;
  if (std::any_of(margin, margin + kMargin, [](unsigned char byte) { return byte != kMarginFill; })) {
    faults_.push_back("a block of " + std::to_string(found->second) + " bytes was written beyond its end");
  }
  blocks_.erase(found);
  std::free(block);
}

}  // namespace orvane::test
