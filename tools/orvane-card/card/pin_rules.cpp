#include "card/pin_rules.h"

#include <algorithm>

#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr std::uint32_t kWrongPin = 0x8010006B;  // SCARD_W_WRONG_CHV

// What the minidriver gives when the token did not say a number.
constexpr std::uint32_t kDefaultAttempts = 8;

constexpr std::size_t kShortest = 4;
constexpr std::size_t kLongest = 63;
constexpr std::size_t kLongestOfAny = 256;

[[noreturn]] void refuse(const std::string& what, const std::string& reason) {
  throw ToolError(ExitCode::kUsage, what, reason + " It was not sent to the token, so no attempt was used up.");
}

bool isControl(char unit) {
  const auto code = static_cast<unsigned char>(unit);
  return code < 0x20 || code == 0x7F;
}

bool isBeyondAscii(char unit) { return static_cast<unsigned char>(unit) > 0x7F; }

}  // namespace

void requirePossiblePin(std::string_view pin, PinLength length) {
  constexpr const char* kLengths = "A PIN has 4 to 63 characters.";
  if (pin.find('\0') != std::string_view::npos)
    refuse("the PIN is no plain text: there are zero bytes in it, as in UTF-16",
           "Save the file as ANSI or UTF-8, and pass it on as the documents say.");
  if (std::any_of(pin.begin(), pin.end(), isBeyondAscii))
    refuse("the PIN holds a character beyond A to Z, digits and the signs of ASCII",
           "Programs differ in the bytes that they send for such a character, so one of them would count as a wrong "
           "PIN. Change it to plain characters in the program that set it.");
  if (std::any_of(pin.begin(), pin.end(), isControl))
    refuse("the PIN holds a tab or another control character", "No PIN has one.");
  if (pin.starts_with(' ') || pin.ends_with(' '))
    refuse("the PIN begins or ends with a blank",
           "In a command prompt nothing stands between PIN and pipe: \"echo PIN| orvane-card ...\".");
  if (pin.empty()) refuse("the PIN is empty", kLengths);
  if (length == PinLength::kOfTokens && pin.size() < kShortest) refuse("the PIN is too short", kLengths);
  if (pin.size() > (length == PinLength::kOfTokens ? kLongest : kLongestOfAny)) refuse("the PIN is too long", kLengths);
}

std::string attemptsText(std::optional<std::uint32_t> status, std::optional<std::uint32_t> attempts) {
  if (status != kWrongPin) return {};
  if (!attempts) return "How many attempts are left is not known: the minidriver does not say it here.";
  switch (*attempts) {
    case 0:
      return "No attempt is left: the PIN is blocked.";
    case 1:
      return "One attempt is left: the next wrong PIN blocks the PIN.";
    case kDefaultAttempts:
      return "Attempts left: 8, or not known, because 8 also stands there when the token did not answer. If it was "
             "unplugged meanwhile, the PIN may be right: plug it in and try again.";
    default:
      return "Attempts left: " + std::to_string(*attempts);
  }
}

}  // namespace orvane::tool
