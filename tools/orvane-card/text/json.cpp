#include "text/json.h"

#include "card/status_names.h"

namespace orvane::tool {

Json statusJson(std::uint32_t status) {
  const std::string name(statusName(status));
  return {{"name", name.empty() ? Json(nullptr) : Json(name)}, {"code", status}, {"label", statusLabel(status)}};
}

Json errorJson(const ToolError& error) {
  return {{"message", error.what()},
          {"advice", error.advice().empty() ? Json(nullptr) : Json(error.advice())},
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
