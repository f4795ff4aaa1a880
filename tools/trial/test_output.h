// What GoogleTest's programs print, read line by line: a program that dies in the middle has said how far it came.
#ifndef ORVANE_TRIAL_TEST_OUTPUT_H
#define ORVANE_TRIAL_TEST_OUTPUT_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "result.h"

namespace orvane::trial {

// A suite and the names of its tests, as "--gtest_list_tests" gives them.
struct Suite {
  std::string name;
  std::vector<std::string> tests;
};

// Reads the output of "--gtest_list_tests". What is no list gives no suites.
std::vector<Suite> suitesIn(std::string_view list);

// Reads what a program printed while it ran all tests of one suite, and perhaps those of others. `end` says how the
// program ended if it did not end by itself in the usual way, else it is empty. The test that ran then has failed; if
// none did, a result of its own says so. Those that did not come any more were not tried. Gives one result for each
// test of the suite.
std::vector<Result> resultsIn(std::string_view output, const Suite& suite, std::string_view subject,
                              std::string_view end);

// Reads what a program printed that was to run all tests of `suites`, which are not none, in their order. Gives the
// results of each suite up to the last that began, at which the program ended; those of the first if none began. `end`
// as above, about that suite. Suites behind it have not been tried by this process.
std::vector<std::vector<Result>> resultsInTurn(std::string_view output, std::span<const Suite> suites,
                                               std::string_view end);

// The group in which a person looks for a suite.
std::string subjectOf(std::string_view suite);

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_TEST_OUTPUT_H
