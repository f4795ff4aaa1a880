// Looking for bytes in all memory of the process that can be written.
#ifndef ORVANE_TESTS_PINS_MEMORY_SCAN_H
#define ORVANE_TESTS_PINS_MEMORY_SCAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

// A PIN that the test itself does not keep in a form that could be found: each byte is stored with its bits changed.
class MaskedPin {
 public:
  static constexpr std::size_t kLargest = 48;
  explicit constexpr MaskedPin(std::string_view pin) : size_(pin.size()) {
    for (std::size_t i = 0; i < size_; ++i) masked_[i] = mask(static_cast<std::uint8_t>(pin[i]));
  }

  std::size_t size() const { return size_; }
  std::uint8_t maskedByte(std::size_t position) const { return masked_[position]; }

  static constexpr std::uint8_t mask(std::uint8_t byte) { return static_cast<std::uint8_t>(byte ^ 0x5A); }

 private:
  std::array<std::uint8_t, kLargest> masked_{};
  std::size_t size_;
};

// The PIN in plain for as long as this object lives, in memory that is overwritten afterwards.
class PlainPin {
 public:
  explicit PlainPin(const MaskedPin& pin);
  ~PlainPin();
  PlainPin(const PlainPin&) = delete;
  PlainPin& operator=(const PlainPin&) = delete;
  std::uint8_t* data() { return bytes_; }
  std::uint32_t size() const { return size_; }

 private:
  std::uint8_t bytes_[MaskedPin::kLargest] = {};
  std::uint32_t size_;
};

// A piece of a PIN that was found, for example "bytes 12 to 23 in plain at 0x7F...".
using Finds = std::vector<std::string>;

// Looks for the PIN in these bytes: in plain, as UTF-16 and as hexadecimal text. Every 12 bytes of it count for
// themselves, since freed memory is often overwritten in part. `address` is what the finds state as the place of the
// first byte.
void findPin(const MaskedPin& pin, const std::uint8_t* bytes, std::size_t size, std::uint64_t address, Finds& finds);

// The same in all memory of the process that can be written, which is read once for all these PINs: the finds of each.
std::vector<Finds> findPinsInMemory(const std::vector<const MaskedPin*>& pins);

// The memory of the process that can be written, block by block.
struct MemoryBlock {
  std::uint64_t address;
  std::uint64_t size;
};
std::vector<MemoryBlock> writableMemory();
// Copies from any address; false when that cannot be read.
bool readMemory(std::uint64_t address, std::uint8_t* target, std::size_t size);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_PINS_MEMORY_SCAN_H
