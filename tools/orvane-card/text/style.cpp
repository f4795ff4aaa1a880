#include "text/style.h"

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

std::string withoutCommands(std::string_view text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto unit = static_cast<unsigned char>(text[i]);
    const auto following = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0U;
    // In UTF-8 the commands beyond ASCII are 0xC2 and a byte from 0x80 to 0x9F.
    const bool isLong = unit == 0xC2 && following >= 0x80 && following <= 0x9F;
    shown += unit < 0x20 || unit == 0x7F || isLong ? '.' : text[i];
    if (isLong) ++i;
  }
  return shown;
}

std::string capitalised(std::string text) {
  if (!text.empty() && text.front() >= 'a' && text.front() <= 'z') text.front() = static_cast<char>(text.front() - 32);
  return text;
}

}  // namespace orvane::tool
