// Text comparisons that do not depend on the host process's locale.
#ifndef ORVANE_SUPPORT_TEXT_COMPARE_H
#define ORVANE_SUPPORT_TEXT_COMPARE_H

#include <cstddef>
#include <string_view>

namespace orvane {

// equalsIgnoreCase compares two texts with A to Z taken as equal to a to z; all other characters must be the same.
template <typename Character>
constexpr bool equalsIgnoreCase(std::basic_string_view<Character> left, std::basic_string_view<Character> right) {
  const auto lower = [](Character c) { return c >= 'A' && c <= 'Z' ? static_cast<Character>(c - 'A' + 'a') : c; };
  if (left.size() != right.size()) return false;
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (lower(left[i]) != lower(right[i])) return false;
  }
  return true;
}

// The same, for texts that only convert to views.
constexpr bool equalsIgnoreCase(std::string_view left, std::string_view right) {
  return equalsIgnoreCase<char>(left, right);
}
constexpr bool equalsIgnoreCase(std::wstring_view left, std::wstring_view right) {
  return equalsIgnoreCase<wchar_t>(left, right);
}

}  // namespace orvane

#endif  // ORVANE_SUPPORT_TEXT_COMPARE_H
