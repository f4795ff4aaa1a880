// What a call did, whatever its outputs; DriverTest::observe makes one.
#ifndef ORVANE_TESTS_HARNESS_OUTCOME_H
#define ORVANE_TESTS_HARNESS_OUTCOME_H

#include <cstddef>
#include <iosfwd>
#include <string>

#include "harness/test_values.h"

namespace orvane::test {

// Everything that a call did but for its outputs: what happened stands in the trace in the order in which it happened.
// The head of driver_test.h explains its lines.
struct Outcome {
  DWORD status = 0;
  Lines trace;
  friend bool operator==(const Outcome&, const Outcome&) = default;
};
void PrintTo(const Outcome& outcome, std::ostream* stream);

// Those lines of a trace that begin with this text.
Lines linesWith(const char* beginning, const Lines& trace);

// A request to the caller's allocator, and one that it refuses.
std::string alloc(std::size_t size);
std::string refusedAlloc(std::size_t size);

// The calls of a bracketed library call with kCardHandle, and with handle 0.
Lines withHandle(const std::string& call);
Lines withoutHandle(const std::string& call);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_OUTCOME_H
