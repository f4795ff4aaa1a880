// What the trial found out, one piece at a time.
#ifndef ORVANE_TRIAL_RESULT_H
#define ORVANE_TRIAL_RESULT_H

#include <string>

namespace orvane::trial {

enum class State { kPassed, kFailed, kNotTried };

// One thing that was tried, or was to be tried.
struct Result {
  std::string subject;  // the group in which a person looks for it
  std::string suite;
  std::string name;
  State state = State::kPassed;
  double seconds = 0;
  std::string detail = {};  // why it failed or was not tried; empty or a remark if it passed
};

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_RESULT_H
