// What libraries print on the console while they work for this program, so that it does not bury the program's own
// output.
#ifndef ORVANE_TOOL_LIBRARY_MESSAGES_H
#define ORVANE_TOOL_LIBRARY_MESSAGES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane::tool {

// LibraryMessages counts the lines in what was printed. For one thread.
class LibraryMessages {
 public:
  // add takes what was printed next and gives the lines that are to be shown at once: those that are new, each one only
  // the first time. That the log cannot be written waits for the summary: it comes for every line of the log.
  std::vector<std::string> add(std::string_view printed);

  // summary gives, at the end, what add has not given: what stands in the last line, how often each line came that came
  // more than once, and what it means where that is known.
  std::vector<std::string> summary();

 private:
  // Notes a line; true when it is to be shown now.
  bool note(const std::string& line);

  std::string rest_;
  std::vector<std::pair<std::string, std::size_t>> counts_;  // in the order of their first appearance
};

// CapturedOutput sends what libraries print through the C runtime that they share with this program to standard error,
// by way of LibraryMessages: standard output is for results. The minidriver does that when its log cannot be written.
// Each library has runtime support of its own, but the part with the streams is one for the process. Windows only.
class CapturedOutput {
 public:
  // Without a standard output there is nothing to capture, and nothing happens.
  CapturedOutput();

  // Prints the summary.
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
};

}  // namespace orvane::tool

#endif
