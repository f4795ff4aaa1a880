#include "library_messages.h"

#include <algorithm>

namespace orvane::tool {
namespace {

// Distinct lines that are remembered; of a library that prints ever new ones, later lines show each time.
constexpr std::size_t kMostLines = 200;

struct LineMeaning {
  std::string_view line;
  std::string_view text;
};

// What the minidriver prints for every line of its log that is lost.
constexpr LineMeaning kLineMeanings[] = {
    {"Unable to write log", "its log cannot be written; the link \"Log\" of \"orvane-card doctor\" says more"},
    {"Unable to getLogBaseFolderPath",
     "there is no temporary folder for its log; the link \"Log\" of \"orvane-card doctor\" says more"},
};

const LineMeaning* meaningOfLine(std::string_view line) {
  const auto* found = std::find_if(std::begin(kLineMeanings), std::end(kLineMeanings),
                                   [line](const LineMeaning& row) { return row.line == line; });
  return found == std::end(kLineMeanings) ? nullptr : found;
}

std::string shown(const std::string& line) { return "A library printed: " + line; }

}  // namespace

bool LibraryMessages::note(const std::string& line) {
  if (line.empty()) return false;
  const auto known =
      std::find_if(counts_.begin(), counts_.end(), [&](const auto& entry) { return entry.first == line; });
  if (known != counts_.end()) {
    ++known->second;
    return false;
  }
  if (counts_.size() < kMostLines) counts_.emplace_back(line, 1);
  return !meaningOfLine(line);
}

std::vector<std::string> LibraryMessages::add(std::string_view printed) {
  std::vector<std::string> lines;
  for (const char unit : printed) {
    if (unit == '\r') continue;
    if (unit != '\n') {
      rest_ += unit;
      continue;
    }
    if (note(rest_)) lines.push_back(shown(rest_));
    rest_.clear();
  }
  return lines;
}

std::vector<std::string> LibraryMessages::summary() {
  std::vector<std::string> lines = add("\n");
  for (const auto& [line, count] : counts_) {
    const LineMeaning* meaning = meaningOfLine(line);
    if (meaning) {
      lines.push_back("The minidriver printed \"" + line + "\" (" + std::to_string(count) +
                      (count == 1 ? " time): " : " times): ") + std::string(meaning->text) + ".");
    } else if (count > 1) {
      lines.push_back("A library printed " + std::to_string(count) + " times in all: " + line);
    }
  }
  counts_.clear();
  return lines;
}

}  // namespace orvane::tool
