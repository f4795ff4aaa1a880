// The keys that a command works with, or why there are none.
#include "commands/commands.h"
#include "tool_error.h"

namespace orvane::tool {

std::vector<Container> seenKeys(Environment& environment) {
  CardSession& card = environment.card();
  std::vector<Container> containers = readContainers(card);
  if (!containers.empty()) return containers;
  const TokenFacts token = environment.tokenFacts(card);
  if (token.access != TokenAccess::kOpen) throw unopenedToken(token);
  throw ToolError(ExitCode::kNotFound, "the token holds no keys", "Have keys and certificates put on it.");
}

}  // namespace orvane::tool
