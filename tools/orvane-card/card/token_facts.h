// Which token serves, how its serial was found, and whether the token library could open it.
#ifndef ORVANE_TOOL_CARD_TOKEN_FACTS_H
#define ORVANE_TOOL_CARD_TOKEN_FACTS_H

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

class CardSession;

// SerialOrigin is how the minidriver came to the serial of the token that it uses.
enum class SerialOrigin {
  kUnknown,     // cannot be said
  kReaderName,  // stands in the reader's name
  kToken,       // the token itself says it
  kPosition,    // the token does not say it: its place among the connected tokens decided
};

// TokenAccess is whether the token library could open the token.
enum class TokenAccess {
  kUnknown,  // no keys are seen, and why is not known
  kOpen,     // it could
  kRefused,  // it could not: what the token holds is not known
};

// TokenFacts is what is known about the token behind a card.
struct TokenFacts {
  std::string serial;  // in use; empty when the minidriver does not tell
  SerialOrigin origin = SerialOrigin::kUnknown;
  std::string stated;  // the serial that the token itself says, when that is another one
  TokenAccess access = TokenAccess::kUnknown;
  std::optional<int> error;  // the token library's number for kRefused
  std::string errorLine;     // what the minidriver wrote about it
  std::size_t keys = 0;      // that the minidriver lists

  bool operator==(const TokenFacts&) const = default;
};

// SerialAnswer is what a token answered to the command for its serial.
struct SerialAnswer {
  bool isReached = false;             // the command came to the card
  std::optional<std::string> serial;  // none when the token refused it
};

// serialOriginOf works out how the minidriver found `serial` behind the reader of that name, from what the token
// answers to the same command now. An empty name is one that Windows does not tell.
SerialOrigin serialOriginOf(const std::string& serial, std::string_view readerName, const SerialAnswer& answer);

// OpenFailure is the token library's refusal to open a token.
struct OpenFailure {
  int error = 0;
  std::string line;  // the message of the log

  bool operator==(const OpenFailure&) const = default;
};

// openFailureIn looks through the messages of the minidriver's log, oldest first, for the last failure to open the
// token with that serial.
std::optional<OpenFailure> openFailureIn(const std::vector<std::string>& messages, std::string_view serial);

// isProbe says whether a message of the log is the one that writesErrors has the minidriver write.
bool isProbe(std::string_view message);

// serialText says in one sentence which serial is in use and how it was found.
std::string serialText(const TokenFacts& facts);

// accessText says in one sentence that the token could not be opened, or that nothing is known about it; an empty text
// for one that is open. It never says that the token holds no keys.
std::string accessText(const TokenFacts& facts);

// What to do about a token that was not opened.
inline constexpr const char* kOpenTokenAdvice =
    "Unplug the token and plug it in again; take other tokens out; then look whether the token's own software shows "
    "it. "
    "As long as it cannot be opened, nothing is known about its keys and certificates, so do not have any renewed.";

// writesErrors says whether errors of the minidriver come into this program's log. A question for the size of one
// property counts as an error and is written; on a fresh machine the first two lines only make the log's folders and
// are lost, so it is asked up to three times. Windows only, as is the next one.
bool writesErrors(CardSession& card);

// readTokenFacts asks the minidriver, the token and, if there are no keys, the minidriver's log of this program. In
// that case `connectAgain` makes another session with the same card, whose start then shows in the log whether the
// token could be opened. No transaction is held by the caller, as the other session could not begin its
// own. A part that fails is unknown; nothing is thrown for it.
TokenFacts readTokenFacts(CardSession& card, const std::function<std::unique_ptr<CardSession>()>& connectAgain);

}  // namespace orvane::tool

#endif
