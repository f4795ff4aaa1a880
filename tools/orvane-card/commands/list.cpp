// list: the keys with their certificates.
#include "card/containers.h"
#include "commands/commands.h"
#include "text/table.h"
#include "tool_error.h"

namespace orvane::tool {

Json runList(Environment& environment, const ListOptions& options) {
  CardSession& card = environment.card();
  const TokenFacts token = environment.tokenFacts(card);
  const std::vector<ListedKey> keys = listedKeys(readContainers(card));
  const Output& output = environment.output();
  output.text(wrapped(serialText(token), 0, Output::width()) + "\n");
  Json result = {{"token", tokenJson(token)}, {"containers", keysJson(keys)}};
  if (!keys.empty()) {
    output.text("\n" + (options.verbose ? keyDetails(keys) : keyTable(keys, Output::width())));
    return result;
  }
  if (token.access != TokenAccess::kOpen) throw PartialFailure(unopenedToken(token), std::move(result));
  output.text(noKeysText(token) + "\n");
  return result;
}

}  // namespace orvane::tool
