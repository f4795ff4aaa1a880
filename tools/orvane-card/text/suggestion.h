// What somebody may have meant who wrote something that is not known.
#ifndef ORVANE_TOOL_TEXT_SUGGESTION_H
#define ORVANE_TOOL_TEXT_SUGGESTION_H

#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

// nearest gives the one of `known` that is written most like `word`, in any letter case: with a letter or two wrong,
// missing, too many or exchanged, or begun but not finished. For names of several words ("pin verify") the last one
// counts, too. Empty when none is near.
std::string nearest(std::string_view word, const std::vector<std::string>& known);

// withHelpOption gives a program's arguments with the option --help in place of what people try instead: "/?", "-?" or
// "/help" anywhere, and the word "help" before a command or behind one without further arguments.
std::vector<std::string> withHelpOption(std::vector<std::string> arguments);

}  // namespace orvane::tool

#endif
