// What comes out of the trial: a text for a person and a file for programs.
#ifndef ORVANE_TRIAL_REPORT_H
#define ORVANE_TRIAL_REPORT_H

#include <string>
#include <utility>
#include <vector>

#include "result.h"

namespace orvane::trial {

// What the head of the text says.
struct Head {
  std::string version;  // of the minidriver
  std::string begun;    // date and time
  double seconds = 0;
  std::vector<std::pair<std::string, std::string>> machine;  // name, value
};

// How many of the results are in this state.
std::size_t countOf(const std::vector<Result>& results, State state);

// The text, to be read top down: the verdict, the machine, the counts of each subject, what failed, what was not tried,
// where to send it. Its lines end with LF.
std::string summaryText(const Head& head, const std::vector<Result>& results);

// All results as JUnit writes them, with a test suite for each subject. Bytes that XML forbids become question marks.
std::string junitText(const std::vector<Result>& results);

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_REPORT_H
