// A PIN in memory.
#ifndef ORVANE_TOOL_SECRET_H
#define ORVANE_TOOL_SECRET_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/secret.h"

namespace orvane::tool {

// Secret holds up to `kCapacity` bytes in place, never on the heap, and overwrites them when it goes. It cannot be
// copied or moved, so there is never a second copy to forget.
class Secret {
 public:
  static constexpr std::size_t kCapacity = 256;

  Secret() = default;
  ~Secret() { clear(); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  // append adds one byte; false (and nothing added) when the capacity is used up.
  bool append(char byte) {
    if (size_ == kCapacity) return false;
    bytes_[size_++] = static_cast<std::uint8_t>(byte);
    return true;
  }
  void removeLast() {
    if (size_) bytes_[--size_] = 0;
  }
  void clear() {
    wipe(bytes_.data(), bytes_.size());
    size_ = 0;
  }

  // data is not terminated; the minidriver interface takes pointer and length and wants the pointer writable.
  std::uint8_t* data() const { return bytes_.data(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }
  bool empty() const { return size_ == 0; }

  bool operator==(const Secret& other) const { return size_ == other.size_ && bytes_ == other.bytes_; }

 private:
  mutable std::array<std::uint8_t, kCapacity> bytes_{};
  std::size_t size_ = 0;
};

}  // namespace orvane::tool

#endif
