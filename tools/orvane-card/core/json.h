// The JSON library, and the parts of the output that every command shares.
#ifndef ORVANE_TOOL_CORE_JSON_H
#define ORVANE_TOOL_CORE_JSON_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "core/tool_error.h"

namespace orvane::tool {

// Members keep the order in which they were added.
using Json = nlohmann::ordered_json;

// statusJson gives {"name", "code", "label"}: name is null for an unknown code.
Json statusJson(std::uint32_t status);

// resultDocument and errorDocument are the whole output of a command with --json:
//   {"command", "ok": true, "result"} or
//   {"command", "ok": false, "exitCode", "error": {"message", "advice", "status", "attemptsRemaining"}},
// where advice, status and attemptsRemaining are null when there are none.
Json resultDocument(const std::string& command, Json result);
Json errorDocument(const std::string& command, const ToolError& error);

}  // namespace orvane::tool

#endif
