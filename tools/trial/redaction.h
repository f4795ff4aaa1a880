// Names of people and machines do not belong into a report that is sent to others.
#ifndef ORVANE_TRIAL_REDACTION_H
#define ORVANE_TRIAL_REDACTION_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::trial {

// Takes texts out of other texts.
class Redaction {
 public:
  // Wherever the text stands, in whatever letters, it becomes `instead`. For folders.
  void replaceText(std::string_view text, std::string_view instead);
  // Wherever the name stands as a word. Names of less than three characters, which are words of other texts too often,
  // are left out: nothing could be read any more.
  void replaceName(std::string_view name, std::string_view instead);

  std::string apply(std::string_view text) const;

 private:
  struct Rule {
    std::string text;  // in small letters
    std::string instead;
    bool isWord;
  };
  std::vector<Rule> rules_;
};

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_REDACTION_H
