#include "report/redaction.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "minidriver/frame/serial_resolution.h"
#include "support/text_compare.h"
#include "text/bytes.h"

namespace orvane::tool {
namespace {

// Shorter serials could be parts of words and numbers.
constexpr std::size_t kShortestAnywhere = 4;

constexpr std::string_view kPromptProperty = "CP_PIN_CONTEXT_STRING = ";
constexpr std::string_view kProfiles = "Users";

// Where a serial stands in a line: between two texts, the second of which may be the line's end.
struct SerialPlace {
  std::string_view before;
  std::string_view after;
};

constexpr SerialPlace kSerialPlaces[] = {
    {"Using serial=", " for hScard="},
    {"resolved serial number :: ", ""},
    {"serial via APDU: ", ""},
    {"CMAP: Serial ", " missing from cache"},
    {"could not populate cache for ", ""},
    {"CMAP: no containers for ", ", returning"},
    {"CP_CARD_SERIAL_NO = ", ""},
};

bool isWordUnit(char unit) {
  const auto byte = static_cast<unsigned char>(unit);
  return byte >= 0x80 || std::isalnum(byte) != 0;
}

bool isSeparator(char unit) { return unit == '\\' || unit == '/'; }

class SerialCollector {
 public:
  void addLine(std::string_view line) {
    for (const SerialPlace& place : kSerialPlaces) {
      const std::size_t start = line.find(place.before);
      if (start == std::string_view::npos) continue;
      const std::string_view rest = line.substr(start + place.before.size());
      add(rest.substr(0, place.after.empty() ? rest.size() : rest.find(place.after)));
    }
    constexpr std::string_view kReader = "Reader name for hScard: ";
    if (const std::size_t start = line.find(kReader); start != std::string_view::npos) {
      if (const auto serial = serialInReaderName(line.substr(start + kReader.size()))) add(*serial);
    }
    addBracketed(line);
  }

  std::vector<std::string> take() { return std::move(serials_); }

 private:
  // Nearly all lines about a token have its serial in brackets; the others there are numbers of containers.
  void addBracketed(std::string_view line) {
    for (std::size_t open = line.find('['); open != std::string_view::npos; open = line.find('[', open + 1)) {
      const std::size_t close = line.find(']', open);
      if (close == std::string_view::npos) return;
      const std::string_view before = line.substr(0, open);
      if (!before.ends_with("container") && !before.ends_with("CMAP Output: "))
        add(line.substr(open + 1, close - open - 1));
    }
  }

  void add(std::string_view serial) {
    if (serial.empty() || std::find(serials_.begin(), serials_.end(), serial) != serials_.end()) return;
    serials_.emplace_back(serial);
  }

  std::vector<std::string> serials_;
};

// The length of the account's name with which `text`, the part of a path behind "\Users\", begins. Names may hold
// blanks; without another separator in the line the first blank ends it.
std::size_t accountLength(std::string_view text) {
  const std::size_t end = std::min(text.find_first_of("\\/\"<>|:*?\r\n"), text.size());
  if (end < text.size() && isSeparator(text[end])) return end;
  return std::min(end, text.find(' '));
}

}  // namespace

std::vector<std::string> serialsIn(std::string_view log) {
  SerialCollector collector;
  while (!log.empty()) {
    const std::size_t end = std::min(log.find('\n'), log.size());
    std::string_view line = log.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    collector.addLine(line);
    log.remove_prefix(std::min(end + 1, log.size()));
  }
  return collector.take();
}

void Redaction::add(Kind kind, std::string_view text) {
  const auto isSame = [text](const Entry& entry) { return equalsIgnoreCase(entry.text, text); };
  if (text.empty() || std::any_of(entries_.begin(), entries_.end(), isSame)) return;
  switch (kind) {
    case Kind::kSerial: {
      const std::string mark = "[serial " + std::to_string(++serials_) + "]";
      const bool wholeWord = text.size() < kShortestAnywhere;
      insert(std::string(text), mark, wholeWord);
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
      insert(toHex({bytes, text.size()}), mark, wholeWord);
      return;
    }
    case Kind::kName:
      return insert(std::string(text), "[name " + std::to_string(++names_) + "]", true);
    case Kind::kUser:
      return insert(std::string(text), "[user]", true);
    case Kind::kComputer:
      return insert(std::string(text), "[computer]", true);
  }
}

void Redaction::insert(std::string text, const std::string& mark, bool wholeWord) {
  const auto place = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.text.size() < text.size(); });
  entries_.insert(place, {std::move(text), mark, wholeWord});
}

const Redaction::Entry* Redaction::entryAt(std::string_view text, std::size_t place) const {
  for (const Entry& entry : entries_) {
    if (!equalsIgnoreCase(text.substr(place, entry.text.size()), entry.text)) continue;
    if (!entry.wholeWord) return &entry;
    const std::size_t end = place + entry.text.size();
    const bool goesOnBefore = place > 0 && isWordUnit(text[place - 1]) && isWordUnit(entry.text.front());
    const bool goesOnBehind = end < text.size() && isWordUnit(text[end]) && isWordUnit(entry.text.back());
    if (!goesOnBefore && !goesOnBehind) return &entry;
  }
  return nullptr;
}

std::string Redaction::apply(std::string_view text) const {
  if (!isOn_) return std::string(text);
  std::string shown;
  for (std::size_t place = 0; place < text.size();) {
    if (const Entry* entry = entryAt(text, place)) {
      shown += entry->mark;
      place += entry->text.size();
      continue;
    }
    shown += text[place++];
    const std::string_view before = text.substr(0, place);
    if (before.ends_with(kPromptProperty)) {
      const std::size_t end = std::min(text.find_first_of("\r\n", place), text.size());
      if (end > place) shown += "[text]";
      place = end;
    } else if (isSeparator(before.back()) && before.size() > kProfiles.size() + 1 &&
               isSeparator(before[before.size() - kProfiles.size() - 2]) &&
               equalsIgnoreCase(before.substr(before.size() - kProfiles.size() - 1, kProfiles.size()), kProfiles)) {
      const std::size_t length = accountLength(text.substr(place));
      if (length) shown += "[user]";
      place += length;
    }
  }
  return shown;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the document, which is one of ours.
Json Redaction::applyToAll(const Json& document) const {
  if (document.is_string()) return apply(std::string_view(document.get_ref<const std::string&>()));
  if (!document.is_structured()) return document;
  Json redacted = document;
  for (Json& value : redacted) value = applyToAll(value);
  return redacted;
}

}  // namespace orvane::tool
