// Text that is overwritten before its memory is given back: every copy of a PIN lives in one of these.
#ifndef ORVANE_SUPPORT_SECRET_H
#define ORVANE_SUPPORT_SECRET_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
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

// SecretText is a byte string with a terminating NUL, for PINs. Up to kInlineCapacity bytes, more than any usual PIN
// has, stand in the object itself; only longer ones take memory. Replacing, moving from or destroying it overwrites the
// old bytes, whatever their length; copies are secrets of their own.
class SecretText {
 public:
  static constexpr std::size_t kInlineCapacity = 63;

  SecretText() = default;
  // Copies exactly `size` bytes at `bytes`; `bytes` may be null when `size` is 0. Throws std::bad_alloc for more than
  // kInlineCapacity bytes.
  SecretText(const void* bytes, std::size_t size) {
    if (size > kInlineCapacity) {
      const auto* first = static_cast<const char*>(bytes);
      long_.reserve(size + 1);
      long_.assign(first, first + size);
      long_.push_back('\0');
    } else if (size != 0) {
      std::memcpy(short_, bytes, size);
      short_[size] = '\0';
    }
    size_ = size;
  }
  SecretText(const SecretText& other) : SecretText(other.c_str(), other.size_) {}
  SecretText(SecretText&& other) noexcept { takeOver(other); }
  SecretText& operator=(const SecretText& other) {
    if (this != &other) *this = SecretText(other);
    return *this;
  }
  SecretText& operator=(SecretText&& other) noexcept {
    if (this == &other) return *this;
    clear();
    takeOver(other);
    return *this;
  }
  ~SecretText() { clear(); }

  // c_str returns the bytes followed by a NUL; valid until the next change.
  const char* c_str() const noexcept { return size_ > kInlineCapacity ? long_.data() : short_; }
  // view returns the bytes without the NUL; valid until the next change.
  std::string_view view() const noexcept { return {c_str(), size_}; }
  // size is the number of bytes without the terminating NUL.
  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  // clear overwrites and releases the text.
  void clear() noexcept {
    if (size_ > kInlineCapacity) {
      Storage().swap(long_);
    } else {
      wipe(short_, size_);
    }
    size_ = 0;
  }

 private:
  using Storage = std::vector<char, WipingAllocator<char>>;

  // Makes this empty text the other one, and the other one empty.
  void takeOver(SecretText& other) noexcept {
    if (other.size_ > kInlineCapacity) {
      long_.swap(other.long_);
    } else {
      std::memcpy(short_, other.short_, other.size_ + 1);
      wipe(other.short_, other.size_);
    }
    size_ = std::exchange(other.size_, 0);
  }

  std::size_t size_ = 0;
  char short_[kInlineCapacity + 1] = {};
  Storage long_;
};

}  // namespace orvane

#endif  // ORVANE_SUPPORT_SECRET_H
