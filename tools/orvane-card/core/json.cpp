#include "core/json.h"

#include <utility>

#include "core/status_names.h"

namespace orvane::tool {

Json statusJson(std::uint32_t status) {
  const std::string name(statusName(status));
  return {{"name", name.empty() ? Json(nullptr) : Json(name)}, {"code", status}, {"label", statusLabel(status)}};
}

Json resultDocument(const std::string& command, Json result) {
  return {{"command", command}, {"ok", true}, {"result", std::move(result)}};
}

Json errorDocument(const std::string& command, const ToolError& error) {
  Json details = {{"message", error.what()}};
  details["advice"] = error.advice().empty() ? Json(nullptr) : Json(error.advice());
  details["status"] = error.status() ? statusJson(*error.status()) : Json(nullptr);
  details["attemptsRemaining"] = error.attempts() ? Json(*error.attempts()) : Json(nullptr);
  return {{"command", command},
          {"ok", false},
          {"exitCode", static_cast<int>(error.exitCode())},
          {"error", std::move(details)}};
}

}  // namespace orvane::tool
