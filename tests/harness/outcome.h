// What a call did, whatever its outputs; DriverTest::observe makes one.
#ifndef ORVANE_TESTS_HARNESS_OUTCOME_H
#define ORVANE_TESTS_HARNESS_OUTCOME_H

#include <iosfwd>
#include <string>

#include "harness/test_values.h"

namespace orvane::test {

// Everything that a call did but for its outputs. The head of driver_test.h explains lines and calls.
struct Outcome {
  DWORD status = 0;
  Lines log;
  Lines calls;
  friend bool operator==(const Outcome&, const Outcome&) = default;
};
void PrintTo(const Outcome& outcome, std::ostream* stream);

// The calls of a bracketed library call with kCardHandle, and with handle 0.
Lines withHandle(const std::string& call);
Lines withoutHandle(const std::string& call);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_OUTCOME_H
