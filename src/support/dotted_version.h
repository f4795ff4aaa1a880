// Comparison of dotted version texts such as the token's firmware version.
#ifndef ORVANE_SUPPORT_DOTTED_VERSION_H
#define ORVANE_SUPPORT_DOTTED_VERSION_H

#include <string_view>

namespace orvane {

// compareDottedVersions splits both texts at "." into decimal components and compares them from the left; a missing
// component counts as 0 ("2.0" equals "2.0.0"). Returns a negative number, 0 or a positive number when `left` is lower,
// equal or higher. A component counts up to its first character that is not a digit, so an empty or foreign one is 0;
// one too large for 32 bits counts as the largest value.
int compareDottedVersions(std::string_view left, std::string_view right) noexcept;

}  // namespace orvane

#endif  // ORVANE_SUPPORT_DOTTED_VERSION_H
