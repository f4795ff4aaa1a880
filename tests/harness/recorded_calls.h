// The calls that the software token has recorded, as texts.
#ifndef ORVANE_TESTS_HARNESS_RECORDED_CALLS_H
#define ORVANE_TESTS_HARNESS_RECORDED_CALLS_H

#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include "softtoken/softtoken_control.h"

namespace orvane::test {

// recordedCalls gives the calls of all threads or, with kSofttokenOnlyThread or kSofttokenOtherThreads, those of
// `thread` or of the others; oldest first.
inline std::vector<std::string> recordedCalls(int threads = kSofttokenAllThreads, unsigned long long thread = 0) {
  // Another thread may add calls between the two looks.
  std::string text;
  std::size_t needed = softtoken_calls(threads, thread, nullptr, 0);
  while (needed > text.size()) {
    text.assign(needed, '\0');
    needed = softtoken_calls(threads, thread, text.data(), text.size());
  }
  std::istringstream lines(text.substr(0, needed - 1));
  std::vector<std::string> calls;
  for (std::string line; std::getline(lines, line);) calls.push_back(line);
  return calls;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_RECORDED_CALLS_H
