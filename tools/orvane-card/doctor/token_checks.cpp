// Judging which token serves, and whether it could be opened.
#include "doctor/checks.h"

namespace orvane::tool {
namespace {

constexpr const char* kOneToken =
    "Compare the serial with the one on the token. Take all other tokens out and run this again: with one token, its "
    "place in the list cannot be wrong. Until then the keys and certificates below may be another token's.";
constexpr const char* kReadLog =
    "Look at the link \"Log\" first: with a log this can be told. Set it right and run this again. ";

}  // namespace

Finding judgeToken(const TokenFacts& facts) {
  const std::string text = serialText(facts);
  if (facts.access == TokenAccess::kRefused) return broken(text + " " + accessText(facts), kOpenTokenAdvice);
  if (facts.access == TokenAccess::kUnknown)
    return broken(text + " " + accessText(facts), std::string(kReadLog) + kOpenTokenAdvice);
  if (facts.origin == SerialOrigin::kPosition || !facts.stated.empty()) return warning(text, kOneToken);
  // A minidriver of another kind has no serial to tell.
  if (facts.origin == SerialOrigin::kUnknown && !facts.serial.empty())
    return warning(text, "Run this again. If it stays so, compare the serial with the one on the token.");
  return ok(text + " It is open.");
}

}  // namespace orvane::tool
