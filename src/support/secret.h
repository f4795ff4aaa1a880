// Text that is overwritten before its memory is given back: every copy of a PIN lives in one of these.
#ifndef ORVANE_SUPPORT_SECRET_H
#define ORVANE_SUPPORT_SECRET_H

#include <cstddef>
#include <memory>
#include <vector>

namespace orvane {

// wipe overwrites `size` bytes at `memory` with zeros in a way that the optimiser keeps.
inline void wipe(void* memory, std::size_t size) noexcept {
  auto* bytes = static_cast<volatile unsigned char*>(memory);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = 0;
}

// WipingAllocator is the standard allocator, but overwrites a block before it releases it.
template <typename T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <typename U>
  explicit WipingAllocator(const WipingAllocator<U>&) noexcept {}
  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, std::size_t count) noexcept {
    wipe(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }
  bool operator==(const WipingAllocator&) const noexcept { return true; }
};

// SecretText is a byte string with a terminating NUL, for PINs. The empty text owns no memory. Replacing or destroying
// it overwrites the old bytes, whatever their length; copies are secrets of their own.
class SecretText {
 public:
  SecretText() = default;
  // Copies exactly `size` bytes at `bytes`; `bytes` may be null when `size` is 0. Throws std::bad_alloc.
  SecretText(const void* bytes, std::size_t size) {
    if (size == 0) return;
    const auto* first = static_cast<const char*>(bytes);
    storage_.reserve(size + 1);
    storage_.assign(first, first + size);
    storage_.push_back('\0');
  }
  SecretText(const SecretText&) = default;
  SecretText(SecretText&& other) noexcept = default;
  SecretText& operator=(const SecretText& other) {
    // Assigning element by element could leave the tail of a longer old text in the reused block.
    if (this != &other) storage_ = Storage(other.storage_);
    return *this;
  }
  SecretText& operator=(SecretText&& other) noexcept = default;
  ~SecretText() = default;

  // c_str returns the bytes followed by a NUL; valid until the next change.
  const char* c_str() const noexcept { return storage_.empty() ? "" : storage_.data(); }
  // size is the number of bytes without the terminating NUL.
  std::size_t size() const noexcept { return storage_.empty() ? 0 : storage_.size() - 1; }
  bool empty() const noexcept { return storage_.empty(); }
  // clear overwrites and releases the text.
  void clear() noexcept { storage_ = Storage(); }

 private:
  using Storage = std::vector<char, WipingAllocator<char>>;
  Storage storage_;
};

}  // namespace orvane

#endif  // ORVANE_SUPPORT_SECRET_H
