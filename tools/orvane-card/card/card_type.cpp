#include "card/card_type.h"

#include "support/text_compare.h"

namespace orvane::tool {

bool isMinidriverFile(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return equalsIgnoreCase(separator == std::string_view::npos ? path : path.substr(separator + 1), kMinidriver);
}

bool atrMatches(ByteView atr, const CardType& type) {
  if (type.atr.empty() || type.atr.size() != atr.size()) return false;
  if (!type.mask.empty() && type.mask.size() != atr.size()) return false;
  for (std::size_t i = 0; i < atr.size(); ++i) {
    const int masked = type.mask.empty() ? atr[i] : atr[i] & type.mask[i];
    if (masked != type.atr[i]) return false;
  }
  return true;
}

}  // namespace orvane::tool
