// What the lines of the log mean, for people who do not know the minidriver.
#ifndef ORVANE_TOOL_LOG_EXPLANATIONS_H
#define ORVANE_TOOL_LOG_EXPLANATIONS_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

// KnownLine explains all messages that hold `part`.
struct KnownLine {
  std::string_view part;
  std::string_view explanation;  // one or two plain sentences
};

// knownLines lists them; where several parts stand in a message, the first one counts.
std::span<const KnownLine> knownLines();

// explainLogMessage gives what can be said about a message: first the known line, then every smart-card status that it
// names or gives as 0x and eight digits, with its name and meaning. Empty for the most part.
std::vector<std::string> explainLogMessage(std::string_view message);

}  // namespace orvane::tool

#endif
