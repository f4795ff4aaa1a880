// The outcome of "doctor": one finding for each link of the chain that makes a certificate appear.
#ifndef ORVANE_TOOL_DOCTOR_REPORT_H
#define ORVANE_TOOL_DOCTOR_REPORT_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "text/json.h"
#include "text/style.h"

namespace orvane::tool {

// The links in the order in which they are looked at. Scripts know them by doctorStepName.
enum class DoctorStep {
  kService,
  kReader,
  kCard,
  kRegistration,
  kDriver,
  kLibrary,
  kAcquire,
  kToken,
  kFiles,
  kKeys,
  kLog,
  kFreshness,
  kStore,
  kLogon,
};
inline constexpr std::size_t kDoctorStepCount = 14;

enum class StepState { kOk, kWarning, kBroken, kNotReached };

// doctorStepName gives the name for scripts, "registration"; doctorStepTitle that for people, "Registration".
std::string_view doctorStepName(DoctorStep step);
std::string_view doctorStepTitle(DoctorStep step);

// stepStateName gives "ok", "warning", "broken" or "not reached".
std::string_view stepStateName(StepState state);

// Finding is what was seen at one link: a plain sentence, and what to do about it unless all is well.
struct Finding {
  StepState state = StepState::kNotReached;
  std::string text;
  std::string advice;

  bool holds() const { return state == StepState::kOk || state == StepState::kWarning; }
  bool operator==(const Finding&) const = default;
};

// ok, warning and broken make findings of those states.
Finding ok(std::string text);
Finding warning(std::string text, std::string advice);
Finding broken(std::string text, std::string advice);

// DoctorReport collects the findings. A link that was never looked at stays "not reached".
class DoctorReport {
 public:
  // set stores the finding of `step` and says whether the chain holds there.
  bool set(DoctorStep step, Finding finding);

  const Finding& at(DoctorStep step) const { return findings_[static_cast<std::size_t>(step)]; }

  // verdict is kBroken when any link is broken, else kWarning when there is any warning, else kOk.
  StepState verdict() const;

  // exitCode is that of the first broken link: kNoCard for service, reader and card, kDriver for registration,
  // minidriver file, token library and start, kCheckFailed for what is behind. Without a broken link it is kWarnings or
  // kSuccess.
  ExitCode exitCode() const;

  // summary says in a few sentences up to where the chain holds, and what to look at next.
  std::string summary() const;

  // text shows the links from the one with number `first` up to the one before `end`, with state, finding and advice,
  // in lines of `width` columns (0: of any length). Texts from elsewhere cannot give a terminal commands.
  std::string text(std::size_t first, std::size_t end, const Style& style, std::size_t width) const;

  // json gives {"verdict", "steps": [{"step", "title", "state", "finding", "advice"}]}; empty texts are null.
  Json json() const;

 private:
  std::size_t count(StepState state) const;
  std::optional<DoctorStep> firstWith(StepState state) const;

  std::array<Finding, kDoctorStepCount> findings_;
};

}  // namespace orvane::tool

#endif
