#include "tool_error.h"

#include "card/status_names.h"

namespace orvane::tool {

namespace {

// People read the beginning; the names and numbers at the end are for those who look further.
std::string messageOf(const std::string& call, std::uint32_t status) {
  const std::string meaning(meaningOf(call, status));
  return meaning.empty() ? call + " failed: " + statusLabel(status)
                         : meaning + " [" + call + ": " + statusLabel(status) + "]";
}

}  // namespace

ToolError::ToolError(const std::string& call, std::uint32_t status)
    : std::runtime_error(messageOf(call, status)),
      exitCode_(exitCodeOf(status)),
      advice_(adviceFor(call, status)),
      status_(status) {}

}  // namespace orvane::tool
