// Conversion between the UTF-16 of the operating system and the UTF-8 that the tool works with.
#ifndef ORVANE_TOOL_TEXT_UTF_H
#define ORVANE_TOOL_TEXT_UTF_H

#include <string>
#include <string_view>

#include "text/bytes.h"

namespace orvane::tool {

// toUtf8 converts UTF-16 to UTF-8; half a surrogate pair becomes U+FFFD.
std::string toUtf8(std::wstring_view text);

// The same for UTF-16 as cards and the registry store it, the low byte first. A last odd byte is left out.
std::string toUtf8(ByteView text);

// toWide converts UTF-8 to UTF-16 with the operating system's function; it exists on Windows only, as does the next
// one.
std::wstring toWide(std::string_view text);

// fromCodePage converts a text in the machine's code page, as the narrow system calls give it, to UTF-8.
std::string fromCodePage(std::string_view text);

}  // namespace orvane::tool

#endif
