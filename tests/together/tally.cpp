#include "together/tally.h"

#include <iterator>

namespace orvane::test {
namespace {

// In the order of Kind.
constexpr const char* kNames[] = {"calls",
                                  "of these with status 0",
                                  "contexts acquired",
                                  "contexts deleted",
                                  "contexts deleted by another thread",
                                  "calls in which the minidriver's memory failed",
                                  "calls in which the caller's memory failed",
                                  "calls that showed the token a PIN",
                                  "pairs of freshness numbers compared",
                                  "polls",
                                  "polls that ran out of memory",
                                  "removals that a poll saw",
                                  "appearances that a poll saw",
                                  "tokens taken away",
                                  "tokens brought back",
                                  "prepared answers that the library gave",
                                  "exceptions that the library threw",
                                  "other readers",
                                  "changes of the log level",
                                  "changes of the log's place",
                                  "whole log lines",
                                  "spans without new threads",
                                  "changes of a token's keys",
                                  "tokens that stopped opening, or opened again",
                                  "unloads"};
static_assert(std::size(kNames) == static_cast<std::size_t>(Kind::kCount));

}  // namespace

std::string Tally::text() const {
  std::string text;
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    const std::string number = std::to_string(counts_[i]);
    text += std::string(number.size() < 12 ? 12 - number.size() : 0, ' ') + number + "  " + kNames[i] + "\n";
  }
  return text;
}

}  // namespace orvane::test
