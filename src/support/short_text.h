// Text put together in place.
#ifndef ORVANE_SUPPORT_SHORT_TEXT_H
#define ORVANE_SUPPORT_SHORT_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orvane {

// ShortText holds at most kCapacity characters, without a NUL and without any memory of its own; what goes beyond is
// cut off. For names and numbers that are formed often and used at once.
template <std::size_t kCapacity>
class ShortText {
 public:
  // append adds as much of `text` as there is room for.
  ShortText& append(std::string_view text) noexcept {
    const std::size_t taken = std::min(text.size(), kCapacity - size_);
    std::copy_n(text.data(), taken, text_ + size_);
    size_ += taken;
    return *this;
  }

  // appendNumber adds `number` in decimal, filled up with zeros on the left to `width` digits, at most 20.
  ShortText& appendNumber(std::uint64_t number, std::size_t width = 1) noexcept {
    constexpr std::size_t kMostDigits = 20;
    char digits[kMostDigits];
    std::size_t first = kMostDigits;
    while (first > 0 && (number != 0 || kMostDigits - first < width)) {
      digits[--first] = static_cast<char>('0' + number % 10);
      number /= 10;
    }
    const std::string_view text(digits + first, kMostDigits - first);
    return append(text);
  }

  // cut leaves the first `size` characters, or what there is.
  void cut(std::size_t size) noexcept { size_ = std::min(size_, size); }

  // The text, without a NUL; valid as long as the object and until it is changed.
  std::string_view view() const noexcept { return {text_, size_}; }
  std::size_t size() const noexcept { return size_; }

 private:
  std::size_t size_ = 0;
  char text_[kCapacity] = {};
};

}  // namespace orvane

#endif  // ORVANE_SUPPORT_SHORT_TEXT_H
