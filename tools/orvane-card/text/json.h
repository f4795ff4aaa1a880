// The JSON library, and the parts of the output that every command shares.
#ifndef ORVANE_TOOL_TEXT_JSON_H
#define ORVANE_TOOL_TEXT_JSON_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "tool_error.h"

namespace orvane::tool {

// Members keep the order in which they were added.
using Json = nlohmann::ordered_json;

// textOrNull gives null for an empty text.
Json textOrNull(std::string_view text);

// statusJson gives {"name", "code", "label"}: name is null for an unknown code.
Json statusJson(std::uint32_t status);

// PartialFailure is a failure of a command that nevertheless has a result worth keeping.
class PartialFailure : public ToolError {
 public:
  PartialFailure(const ToolError& error, Json result) : ToolError(error), result_(std::move(result)) {}

  const Json& result() const { return result_; }

 private:
  Json result_;
};

// errorJson gives {"message", "advice", "status", "attemptsRemaining"}: the last three are null when there are none.
Json errorJson(const ToolError& error);

// resultDocument and errorDocument are the whole output of a command with --json:
//   {"command", "ok": true, "result"} or
//   {"command", "ok": false, "exitCode", "error", "result"}, where the result is null unless it is a PartialFailure.
Json resultDocument(const std::string& command, Json result);
Json errorDocument(const std::string& command, const ToolError& error);

}  // namespace orvane::tool

#endif
