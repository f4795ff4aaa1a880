#include "tool_error.h"

#include "card/status_names.h"

namespace orvane::tool {

ToolError::ToolError(const std::string& call, std::uint32_t status)
    : std::runtime_error(call + " failed: " + statusLabel(status) +
                         (statusMeaning(status).empty() ? "" : ", " + std::string(statusMeaning(status)))),
      exitCode_(exitCodeOf(status)),
      advice_(adviceFor(call, status)),
      status_(status) {}

}  // namespace orvane::tool
