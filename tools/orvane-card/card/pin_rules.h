// What can be a PIN, and what a refused one means for the attempts.
#ifndef ORVANE_TOOL_CARD_PIN_RULES_H
#define ORVANE_TOOL_CARD_PIN_RULES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::tool {

// Which lengths a PIN may have.
enum class PinLength {
  kOfTokens,  // 4 to 63 characters, as the minidriver lets through
  kAny,       // at least one and at most 256
};

// requirePossiblePin throws ToolError (ExitCode::kUsage) for what nobody can mean as a PIN, so that it costs no
// attempt: an empty one, one of a length that no PIN has, a blank at its beginning or end, a control character, and
// characters beyond ASCII, for which different programs have different bytes. No text repeats any of the PIN.
void requirePossiblePin(std::string_view pin, PinLength length);

// attemptsText says in one sentence how many attempts are left after `status`, with the number that the minidriver
// gave, if any. Empty when the attempts have nothing to do with the status.
std::string attemptsText(std::optional<std::uint32_t> status, std::optional<std::uint32_t> attempts);

}  // namespace orvane::tool

#endif
