#include "card/reader.h"

#include <algorithm>
#include <array>

#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr std::array<std::uint8_t, 19> kOrvaneAtr = {0x3B, 0x8E, 0x80, 0x01, 0x50, 0x4B, 0x03, 0x58, 0x58, 0x58,
                                                     0x5F, 0x44, 0x53, 0x43, 0x5F, 0x4B, 0x45, 0x59, 0x4C};

}  // namespace

ByteView orvaneAtr() { return kOrvaneAtr; }

bool isOrvane(const Reader& reader) {
  return reader.cardPresent && std::equal(reader.atr.begin(), reader.atr.end(), kOrvaneAtr.begin(), kOrvaneAtr.end());
}

const Reader* chooseReader(const std::vector<Reader>& readers, const std::optional<std::string>& wanted) {
  const auto first = [&](auto fits) -> const Reader* {
    const auto found = std::find_if(readers.begin(), readers.end(), fits);
    return found == readers.end() ? nullptr : &*found;
  };
  if (wanted) return first([&](const Reader& reader) { return reader.name == *wanted; });
  // Badges and the virtual smart card of a TPM are cards to Windows, too, and their readers often come first.
  if (const Reader* reader = first(isOrvane)) return reader;
  if (const Reader* reader = first([](const Reader& each) { return each.cardPresent; })) return reader;
  return readers.empty() ? nullptr : &readers.front();
}

Reader readerWithCard(const std::vector<Reader>& readers, const std::optional<std::string>& wanted) {
  if (readers.empty())
    throw ToolError(ExitCode::kNoCard, "no smart-card reader is connected", "Plug the token in and try again.");
  const Reader* reader = chooseReader(readers, wanted);
  if (!reader)
    throw ToolError(ExitCode::kNoCard, "there is no reader \"" + wanted.value_or("") + "\"",
                    "\"orvane-card info\" lists the readers; write the name exactly as shown there.");
  if (reader->cardPresent) return *reader;
  if (!wanted) throw ToolError(ExitCode::kNoCard, "no reader holds a card", "Plug the token in and try again.");
  throw ToolError(ExitCode::kNoCard, "there is no card in the reader \"" + reader->name + "\"",
                  "Plug the token in, or choose another reader with --reader.");
}

void requireOrvane(const Reader& reader, bool driverNamed) {
  if (reader.mute)
    throw ToolError(ExitCode::kNoCard, "the card in the reader \"" + reader.name + "\" does not answer",
                    "Unplug the token and plug it in again.");
  if (isOrvane(reader) || driverNamed) return;
  throw ToolError(ExitCode::kNoCard,
                  "the card in the reader \"" + reader.name + "\" is no Orvane token but a card of another kind (ATR " +
                      toHex(reader.atr, " ") + ")",
                  "Plug the Orvane token in, or choose its reader with --reader.");
}

}  // namespace orvane::tool
