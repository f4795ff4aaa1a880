// Colours on a terminal.
#ifndef ORVANE_TOOL_TEXT_STYLE_H
#define ORVANE_TOOL_TEXT_STYLE_H

#include <string>
#include <string_view>

namespace orvane::tool {

enum class Tone { kPlain, kGood, kWarning, kBad, kQuiet, kStrong };

// Style puts texts into colours by the usual control sequences, or leaves them as they are.
class Style {
 public:
  explicit Style(bool colored) : colored_(colored) {}

  // paint gives `text` in the tone; unchanged without colours, for kPlain and for an empty text.
  std::string paint(Tone tone, std::string_view text) const;

 private:
  bool colored_;
};

// withoutCommands gives one line of text with a dot for everything that a terminal would take for a command: logs,
// readers and certificates hold names that others chose.
std::string withoutCommands(std::string_view text);

// capitalised makes the first letter a capital, if it is one of ASCII.
std::string capitalised(std::string text);

}  // namespace orvane::tool

#endif
