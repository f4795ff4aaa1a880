#include "support/dotted_version.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace orvane {
namespace {

// Takes the first component off `rest` and returns its value; an exhausted text yields 0.
std::uint32_t takeComponent(std::string_view& rest) noexcept {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  const std::string_view component = rest.substr(0, rest.find('.'));
  rest.remove_prefix(std::min(rest.size(), component.size() + 1));
  std::uint64_t value = 0;
  for (const char c : component) {
    if (c < '0' || c > '9') break;
    value = std::min(value * 10 + static_cast<std::uint64_t>(c - '0'), kLargest);
  }
  return static_cast<std::uint32_t>(value);
}

}  // namespace

int compareDottedVersions(std::string_view left, std::string_view right) noexcept {
  while (!left.empty() || !right.empty()) {
    const std::uint32_t leftComponent = takeComponent(left);
    const std::uint32_t rightComponent = takeComponent(right);
    if (leftComponent != rightComponent) return leftComponent < rightComponent ? -1 : 1;
  }
  return 0;
}

}  // namespace orvane
