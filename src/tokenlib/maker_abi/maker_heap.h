// How the maker's runtime gets and returns the memory of its strings and vectors: from the process's C heap, which is
// the same one for both sides.
//
// On x64 that runtime aligns blocks of 4096 bytes and more to 32 and stores the pointer that the heap gave in the word
// below the block; on Arm64 it takes them from the heap as they are, and the word below a block is the heap's own. On
// x64 blocks are released by what is found: a word below the block that can be such a stored pointer is one (nothing
// else there can point at the few bytes before the block).
#ifndef ORVANE_MAKER_ABI_MAKER_HEAP_H
#define ORVANE_MAKER_ABI_MAKER_HEAP_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace orvane::makerabi {

// Sizes in bytes: where large blocks begin, their alignment, and what they take beyond their size.
inline constexpr std::size_t kLargeBlock = 4096;
inline constexpr std::size_t kLargeAlignment = 32;
inline constexpr std::size_t kLargeExtra = sizeof(void*) + kLargeAlignment - 1;

// A block straight from the heap. Throws std::bad_alloc.
inline void* allocateOrThrow(std::size_t size) {
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

#if defined(__x86_64__)
inline constexpr bool kAlignsLargeBlocks = true;
#else
inline constexpr bool kAlignsLargeBlocks = false;
#endif

// A block of size bytes, aligned to 16 at least; released with release() and the same size.
inline void* allocate(std::size_t size) {
  if (kAlignsLargeBlocks && size >= kLargeBlock) {
    void* const original = allocateOrThrow(size + kLargeExtra);
    const std::uintptr_t start = (reinterpret_cast<std::uintptr_t>(original) + kLargeExtra) & ~(kLargeAlignment - 1);
    void** const block = reinterpret_cast<void**>(start);
    block[-1] = original;
    return block;
  }
  return allocateOrThrow(size);
}

// Gives back a block of size bytes that allocate or the maker's runtime made.
inline void release(void* block, std::size_t size) noexcept {
  const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(block);
  if (kAlignsLargeBlocks && size >= kLargeBlock && start % kLargeAlignment == 0) {
    void* const original = static_cast<void**>(block)[-1];
    const std::uintptr_t distance = start - reinterpret_cast<std::uintptr_t>(original);
    if (distance >= sizeof(void*) && distance <= kLargeExtra) {
      std::free(original);
      return;
    }
  }
  std::free(block);
}

}  // namespace orvane::makerabi

#endif  // ORVANE_MAKER_ABI_MAKER_HEAP_H
