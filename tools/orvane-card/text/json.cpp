#include "text/json.h"

#include "card/status_names.h"

namespace orvane::tool {

Json textOrNull(std::string_view text) { return text.empty() ? Json(nullptr) : Json(std::string(text)); }

Json statusJson(std::uint32_t status) {
  return {{"name", textOrNull(statusName(status))}, {"code", status}, {"label", statusLabel(status)}};
}

Json errorJson(const ToolError& error) {
  return {{"message", error.what()},
          {"advice", textOrNull(error.advice())},
          {"status", error.status() ? statusJson(*error.status()) : Json(nullptr)},
          {"attemptsRemaining", error.attempts() ? Json(*error.attempts()) : Json(nullptr)}};
}

Json resultDocument(const std::string& command, Json result) {
  return {{"command", command}, {"ok", true}, {"result", std::move(result)}};
}

Json errorDocument(const std::string& command, const ToolError& error) {
  const auto* partial = dynamic_cast<const PartialFailure*>(&error);
  return {{"command", command},
          {"ok", false},
          {"exitCode", static_cast<int>(error.exitCode())},
          {"error", errorJson(error)},
          {"result", partial ? partial->result() : Json(nullptr)}};
}

}  // namespace orvane::tool
