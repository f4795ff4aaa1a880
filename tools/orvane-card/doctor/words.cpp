#include "doctor/words.h"

#include <string_view>
#include <utility>

#include "card/status_names.h"

namespace orvane::tool {

std::string inWords(const ToolError& error) {
  std::string message = error.what();
  const std::size_t failed = message.find(" failed: ");
  const std::string meaning(error.status() ? statusMeaning(*error.status()) : std::string_view());
  if (meaning.empty() || failed == std::string::npos) return message;
  return meaning + " [" + message.substr(0, failed) + ": " + statusLabel(*error.status()) + "]";
}

}  // namespace orvane::tool
