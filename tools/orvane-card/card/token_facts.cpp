#include "card/token_facts.h"

#include <charconv>
#include <system_error>
#include <utility>

#include "minidriver/frame/serial_resolution.h"
#include "text/phrases.h"

namespace orvane::tool {

SerialOrigin serialOriginOf(const std::string& serial, std::string_view readerName, const SerialAnswer& answer) {
  if (serial.empty() || readerName.empty()) return SerialOrigin::kUnknown;
  if (const auto named = serialInReaderName(readerName))
    return *named == serial ? SerialOrigin::kReaderName : SerialOrigin::kUnknown;
  if (!answer.isReached) return SerialOrigin::kUnknown;
  if (!answer.serial) return SerialOrigin::kPosition;
  return *answer.serial == serial ? SerialOrigin::kToken : SerialOrigin::kUnknown;
}

std::optional<OpenFailure> openFailureIn(const std::vector<std::string>& messages, std::string_view serial) {
  // After a first failure the minidriver tries again if there are no keys, and that decides.
  const std::string start = "PACE refresh failed for [" + std::string(serial) + "]: ";
  std::optional<OpenFailure> failure;
  for (const std::string& message : messages) {
    if (!message.starts_with(start)) continue;
    OpenFailure found{0, message};
    const char* end = message.data() + message.size();
    const auto result = std::from_chars(message.data() + start.size(), end, found.error);
    if (result.ec == std::errc() && result.ptr == end) failure = std::move(found);
  }
  return failure;
}

bool isProbe(std::string_view message) { return message.starts_with("CP_CARD_PIN_INFO: buffer too small"); }

std::string serialText(const TokenFacts& facts) {
  if (facts.serial.empty()) return "The serial of the token is not known.";
  const std::string text = "The token in use has the serial " + inQuotes(facts.serial);
  if (!facts.stated.empty())
    return text + ", but the one in the reader says that it is " + inQuotes(facts.stated) + ".";
  switch (facts.origin) {
    case SerialOrigin::kReaderName:
      return text + ", which stands in the reader's name.";
    case SerialOrigin::kToken:
      return text + ", which it says itself.";
    case SerialOrigin::kPosition:
      return text +
             ", but only its place among the connected tokens says so: the one in the reader does not tell its serial.";
    default:
      return text + "; how it was found is not known.";
  }
}

std::string accessText(const TokenFacts& facts) {
  switch (facts.access) {
    case TokenAccess::kOpen:
      return {};
    case TokenAccess::kRefused:
      return "The token library could not open it, so whether it holds keys is unknown (error " +
             std::to_string(facts.error.value_or(0)) + " of the library).";
    default:
      return "No keys are seen, but whether the token library could open it is not known, and so neither is whether it "
             "holds keys.";
  }
}

}  // namespace orvane::tool
