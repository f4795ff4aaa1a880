// Taking out of a report what says whose it is: serials of tokens, names of people, accounts and machines.
#ifndef ORVANE_TOOL_REPORT_REDACTION_H
#define ORVANE_TOOL_REPORT_REDACTION_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "text/json.h"

namespace orvane::tool {

// serialsIn gives every token serial that the lines of a minidriver's log name, each once, in the order of the lines.
std::vector<std::string> serialsIn(std::string_view log);

// Redaction replaces what it was told by marks: "[serial 1]", "[name 2]", "[user]", "[computer]". The same text always
// gets the same mark, so that a reader can tell two tokens apart.
class Redaction {
 public:
  enum class Kind { kSerial, kName, kUser, kComputer };

  // Without `isOn` texts stay as they are.
  explicit Redaction(bool isOn = true) : isOn_(isOn) {}

  // add notes a text that has to go; an empty or known one does nothing. A serial also goes in its hexadecimal form.
  void add(Kind kind, std::string_view text);

  // apply gives `text` with marks. Texts are found in any letter case: serials of four characters or more anywhere,
  // everything else as whole words. What stands in a path behind "\Users\" goes, too, and so does the text that a
  // program shows when it asks for a PIN.
  std::string apply(std::string_view text) const;

  // applyToAll does so with all texts in a document; the names of members stay.
  Json applyToAll(const Json& document) const;

 private:
  struct Entry {
    std::string text;
    std::string mark;
    bool wholeWord;
  };

  void insert(std::string text, const std::string& mark, bool wholeWord);
  const Entry* entryAt(std::string_view text, std::size_t place) const;

  bool isOn_;
  std::vector<Entry> entries_;  // the longest first
  std::size_t serials_ = 0;
  std::size_t names_ = 0;
};

}  // namespace orvane::tool

#endif
