#include "text/suggestion.h"

#include <algorithm>

#include "support/text_compare.h"

namespace orvane::tool {
namespace {

// How many single changes lead from one text to the other; exchanging two neighbours is one.
std::size_t distance(std::string_view left, std::string_view right) {
  // Rows of the usual table: the one before the last, the last, the one in work.
  std::vector<std::size_t> older(right.size() + 1);
  std::vector<std::size_t> last(right.size() + 1);
  std::vector<std::size_t> row(right.size() + 1);
  for (std::size_t j = 0; j < last.size(); ++j) last[j] = j;
  const auto same = [](char one, char other) {
    return equalsIgnoreCase(std::string_view(&one, 1), std::string_view(&other, 1));
  };
  for (std::size_t i = 1; i <= left.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (same(left[i - 1], right[j - 1]) ? 0 : 1);
      row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
      const bool isExchange = i > 1 && j > 1 && same(left[i - 1], right[j - 2]) && same(left[i - 2], right[j - 1]);
      if (isExchange) row[j] = std::min(row[j], older[j - 2] + 1);
    }
    older.swap(last);
    last.swap(row);
  }
  return last[right.size()];
}

std::size_t distanceToName(std::string_view word, std::string_view name) {
  constexpr std::size_t kShortestBeginning = 3;
  if (word.size() >= kShortestBeginning && equalsIgnoreCase(word, name.substr(0, word.size()))) return 0;
  return distance(word, name);
}

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
  return std::any_of(words.begin(), words.end(),
                     [text](std::string_view word) { return equalsIgnoreCase(text, word); });
}

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& known) {
  // Short words are near to nearly everything.
  constexpr std::size_t kShortWord = 5;
  const std::size_t limit = word.size() < kShortWord ? 1 : 2;
  const std::string* best = nullptr;
  std::size_t bestDistance = limit + 1;
  for (const std::string& name : known) {
    const std::string_view lastWord = std::string_view(name).substr(name.rfind(' ') + 1);
    const std::size_t found = std::min(distanceToName(word, name), distanceToName(word, lastWord));
    if (found >= bestDistance) continue;
    best = &name;
    bestDistance = found;
  }
  return best ? *best : std::string();
}

std::vector<std::string> withHelpOption(std::vector<std::string> arguments) {
  const std::string option = "--help";
  for (std::string& argument : arguments) {
    if (isOneOf(argument, {"/?", "-?", "/help"})) argument = option;
  }
  if (arguments.empty()) return arguments;
  if (equalsIgnoreCase(arguments.front(), "help")) {
    arguments.erase(arguments.begin());
    arguments.push_back(option);
    return arguments;
  }
  // A command may have one word more, "pin verify".
  constexpr std::size_t kMostWords = 3;
  const bool areWords = std::none_of(arguments.begin(), arguments.end(),
                                     [](const std::string& argument) { return argument.starts_with('-'); });
  if (areWords && arguments.size() <= kMostWords && equalsIgnoreCase(arguments.back(), "help"))
    arguments.back() = option;
  return arguments;
}

}  // namespace orvane::tool
