// Conversion between the UTF-16 of the operating system and the UTF-8 that the tool works with.
#ifndef ORVANE_TOOL_TEXT_UTF_H
#define ORVANE_TOOL_TEXT_UTF_H

#include <string>
#include <string_view>

namespace orvane::tool {

// toUtf8 converts UTF-16 to UTF-8; half a surrogate pair becomes U+FFFD.
std::string toUtf8(std::wstring_view text);

// toWide converts UTF-8 to UTF-16; each byte that is not part of a well-formed sequence becomes U+FFFD.
std::wstring toWide(std::string_view text);

}  // namespace orvane::tool

#endif
