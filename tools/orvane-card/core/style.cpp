#include "core/style.h"

namespace orvane::tool {
namespace {

std::string_view codeOf(Tone tone) {
  switch (tone) {
    case Tone::kGood:
      return "32";
    case Tone::kWarning:
      return "33";
    case Tone::kBad:
      return "31";
    case Tone::kQuiet:
      return "90";
    case Tone::kStrong:
      return "1";
    default:
      return {};
  }
}

}  // namespace

std::string Style::paint(Tone tone, std::string_view text) const {
  const std::string_view code = codeOf(tone);
  if (!colored_ || code.empty() || text.empty()) return std::string(text);
  return "\x1B[" + std::string(code) + "m" + std::string(text) + "\x1B[0m";
}

}  // namespace orvane::tool
