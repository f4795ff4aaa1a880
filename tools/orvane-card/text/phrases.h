// How the tool puts names into its sentences.
#ifndef ORVANE_TOOL_TEXT_PHRASES_H
#define ORVANE_TOOL_TEXT_PHRASES_H

#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

// inQuotes puts a text into quotation marks.
std::string inQuotes(std::string_view text);

// listed puts ", " between texts; none give an empty text.
std::string listed(const std::vector<std::string>& texts);

}  // namespace orvane::tool

#endif
