#include "text/phrases.h"

namespace orvane::tool {

std::string inQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string listed(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

}  // namespace orvane::tool
