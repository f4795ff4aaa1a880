#include "card/reader.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "support/text_compare.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr std::array<std::uint8_t, 19> kOrvaneAtr = {0x3B, 0x8E, 0x80, 0x01, 0x50, 0x4B, 0x03, 0x58, 0x58, 0x58,
                                                     0x5F, 0x44, 0x53, 0x43, 0x5F, 0x4B, 0x45, 0x59, 0x4C};

bool holdsPart(std::string_view name, std::string_view part) {
  for (std::size_t start = 0; start + part.size() <= name.size(); ++start) {
    if (equalsIgnoreCase(name.substr(start, part.size()), part)) return true;
  }
  return false;
}

// The readers that `wanted` can mean: the one of that whole name, or all with this part in their names.
std::vector<const Reader*> readersNamed(const std::vector<Reader>& readers, const std::string& wanted) {
  std::vector<const Reader*> found;
  for (const Reader& reader : readers) {
    if (equalsIgnoreCase(reader.name, wanted)) return {&reader};
    if (!wanted.empty() && holdsPart(reader.name, wanted)) found.push_back(&reader);
  }
  return found;
}

std::string quotedNames(const std::vector<const Reader*>& readers) {
  std::string names;
  for (const Reader* reader : readers) names += (names.empty() ? "\"" : ", \"") + reader->name + "\"";
  return names;
}

}  // namespace

ToolError readerNotNamed(const std::vector<Reader>& readers, const std::string& wanted) {
  const std::vector<const Reader*> meant = readersNamed(readers, wanted);
  if (meant.size() > 1)
    return {ExitCode::kNoCard, "\"" + wanted + "\" is a part of several readers' names: " + quotedNames(meant),
            "Write as much of the name as only one of them has."};
  std::vector<const Reader*> all;
  all.reserve(readers.size());
  for (const Reader& reader : readers) all.push_back(&reader);
  return {ExitCode::kNoCard, "there is no reader \"" + wanted + "\"",
          "There is: " + quotedNames(all) + ". A part of the name that only one has is enough."};
}

ByteView orvaneAtr() { return kOrvaneAtr; }

bool isOrvane(const Reader& reader) {
  return reader.cardPresent && std::equal(reader.atr.begin(), reader.atr.end(), kOrvaneAtr.begin(), kOrvaneAtr.end());
}

const Reader* chooseReader(const std::vector<Reader>& readers, const std::optional<std::string>& wanted) {
  const auto first = [&](auto fits) -> const Reader* {
    const auto found = std::find_if(readers.begin(), readers.end(), fits);
    return found == readers.end() ? nullptr : &*found;
  };
  if (wanted) {
    const std::vector<const Reader*> meant = readersNamed(readers, *wanted);
    return meant.size() == 1 ? meant.front() : nullptr;
  }
  // Badges and the virtual smart card of a TPM are cards to Windows, too, and their readers often come first.
  if (const Reader* reader = first(isOrvane)) return reader;
  if (const Reader* reader = first([](const Reader& each) { return each.cardPresent; })) return reader;
  return readers.empty() ? nullptr : &readers.front();
}

Reader readerWithCard(const std::vector<Reader>& readers, const std::optional<std::string>& wanted) {
  if (readers.empty())
    throw ToolError(ExitCode::kNoCard, "no smart-card reader is connected", "Plug the token in and try again.");
  const Reader* reader = chooseReader(readers, wanted);
  if (!reader) throw readerNotNamed(readers, wanted.value_or(""));
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
