#include "redaction.h"

#include <algorithm>

namespace orvane::trial {
namespace {

constexpr std::size_t kShortestName = 3;

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lowered(std::string_view text) {
  std::string small(text);
  std::transform(small.begin(), small.end(), small.begin(), [](char c) { return lowered(c); });
  return small;
}

// Letters and digits; of other alphabets every byte counts as one.
bool isWordCharacter(char c) {
  const char small = lowered(c);
  return (small >= 'a' && small <= 'z') || (small >= '0' && small <= '9') || static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace

void Redaction::replaceText(std::string_view text, std::string_view instead) {
  if (!text.empty()) rules_.push_back({lowered(text), std::string(instead), false});
}

void Redaction::replaceName(std::string_view name, std::string_view instead) {
  if (name.size() >= kShortestName) rules_.push_back({lowered(name), std::string(instead), true});
}

std::string Redaction::apply(std::string_view text) const {
  const std::string small = lowered(text);
  std::string result;
  std::size_t at = 0;
  const auto fits = [&](const Rule& rule) {
    if (small.compare(at, rule.text.size(), rule.text) != 0) return false;
    const std::size_t end = at + rule.text.size();
    return !rule.isWord ||
           ((at == 0 || !isWordCharacter(text[at - 1])) && (end == text.size() || !isWordCharacter(text[end])));
  };
  while (at < text.size()) {
    const auto rule = std::find_if(rules_.begin(), rules_.end(), fits);
    if (rule == rules_.end()) {
      result.push_back(text[at++]);
    } else {
      result += rule->instead;
      at += rule->text.size();
    }
  }
  return result;
}

}  // namespace orvane::trial
