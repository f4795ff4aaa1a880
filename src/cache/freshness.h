// Freshness counters: the numbers by which the base provider notices that something on the card may have changed.
#ifndef ORVANE_CACHE_FRESHNESS_H
#define ORVANE_CACHE_FRESHNESS_H

#include <atomic>
#include <cstdint>

namespace orvane {

// nextFreshness counts an 8-bit counter on. 255 is followed by 1: a counter that was ever bumped never again reads as
// the initial 0.
constexpr std::uint8_t nextFreshness(std::uint8_t value) noexcept {
  return value == 255 ? std::uint8_t{1} : static_cast<std::uint8_t>(value + 1);
}

// nextFreshness counts a 16-bit counter on; 65535 is followed by 0.
constexpr std::uint16_t nextFreshness(std::uint16_t value) noexcept { return static_cast<std::uint16_t>(value + 1); }

// FreshnessCounter is a process-wide counter that any thread may bump or read without a lock. Nothing is ordered by it:
// it feeds a version byte and log lines.
template <typename Value>
class FreshnessCounter {
 public:
  // value returns the counter as some thread left it.
  Value value() const noexcept { return value_.load(std::memory_order_relaxed); }
  // bump counts on by nextFreshness; no count is lost when several threads do it at once.
  void bump() noexcept {
    Value seen = value();
    while (!value_.compare_exchange_weak(seen, nextFreshness(seen), std::memory_order_relaxed)) {
    }
  }

 private:
  std::atomic<Value> value_{0};
};

}  // namespace orvane

#endif  // ORVANE_CACHE_FRESHNESS_H
