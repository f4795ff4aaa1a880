#include "doctor/report.h"

#include <algorithm>
#include <utility>

#include "text/table.h"

namespace orvane::tool {
namespace {

struct StepText {
  std::string_view name;
  std::string_view title;
  ExitCode exitCode;
};

// In the order of DoctorStep.
constexpr std::array<StepText, kDoctorStepCount> kSteps = {{
    {"service", "Smart-card service", ExitCode::kNoCard},
    {"reader", "Card reader", ExitCode::kNoCard},
    {"card", "Card in the reader", ExitCode::kNoCard},
    {"registration", "Registration", ExitCode::kDriver},
    {"driver", "Minidriver file", ExitCode::kDriver},
    {"library", "Token library", ExitCode::kDriver},
    {"acquire", "Minidriver starts", ExitCode::kDriver},
    {"token", "Token", ExitCode::kCheckFailed},
    {"files", "Files of the card", ExitCode::kCheckFailed},
    {"keys", "Keys and certificates", ExitCode::kCheckFailed},
    {"log", "Log", ExitCode::kCheckFailed},
    {"freshness", "Freshness numbers", ExitCode::kCheckFailed},
    {"store", "Certificate store", ExitCode::kCheckFailed},
    {"logon", "Logon process", ExitCode::kCheckFailed},
}};

const StepText& textOf(DoctorStep step) { return kSteps[static_cast<std::size_t>(step)]; }

Tone toneOf(StepState state) {
  switch (state) {
    case StepState::kOk:
      return Tone::kGood;
    case StepState::kWarning:
      return Tone::kWarning;
    case StepState::kBroken:
      return Tone::kBad;
    default:
      return Tone::kQuiet;
  }
}

std::string counted(std::size_t count, const char* one, const char* several) {
  return std::to_string(count) + " " + (count == 1 ? one : several);
}

// The link of the chain that a link depends on; the log stands beside the chain.
std::optional<DoctorStep> linkBefore(DoctorStep step) {
  if (step == DoctorStep::kService) return std::nullopt;
  const auto before = static_cast<DoctorStep>(static_cast<std::size_t>(step) - 1);
  return before == DoctorStep::kLog ? DoctorStep::kKeys : before;
}

// The columns of the text: the longest state and the longest title, two blanks behind each.
constexpr std::size_t kStateWidth = 13;
constexpr std::size_t kTitleWidth = 23;

}  // namespace

std::string_view doctorStepName(DoctorStep step) { return textOf(step).name; }
std::string_view doctorStepTitle(DoctorStep step) { return textOf(step).title; }

std::string_view stepStateName(StepState state) {
  switch (state) {
    case StepState::kOk:
      return "ok";
    case StepState::kWarning:
      return "warning";
    case StepState::kBroken:
      return "broken";
    default:
      return "not reached";
  }
}

Finding ok(std::string text) { return {StepState::kOk, std::move(text), {}}; }
Finding warning(std::string text, std::string advice) {
  return {StepState::kWarning, std::move(text), std::move(advice)};
}
Finding broken(std::string text, std::string advice) {
  return {StepState::kBroken, std::move(text), std::move(advice)};
}

bool DoctorReport::set(DoctorStep step, Finding finding) {
  Finding& stored = findings_[static_cast<std::size_t>(step)];
  stored = std::move(finding);
  return stored.holds();
}

std::size_t DoctorReport::count(StepState state) const {
  return static_cast<std::size_t>(std::count_if(findings_.begin(), findings_.end(),
                                                [state](const Finding& finding) { return finding.state == state; }));
}

StepState DoctorReport::verdict() const {
  if (count(StepState::kBroken)) return StepState::kBroken;
  return count(StepState::kWarning) ? StepState::kWarning : StepState::kOk;
}

ExitCode DoctorReport::exitCode() const {
  for (std::size_t step = 0; step < kDoctorStepCount; ++step) {
    if (findings_[step].state == StepState::kBroken) return kSteps[step].exitCode;
  }
  return count(StepState::kWarning) ? ExitCode::kWarnings : ExitCode::kSuccess;
}

std::string DoctorReport::summary() const {
  const auto title = [](DoctorStep step) { return "\"" + std::string(doctorStepTitle(step)) + "\""; };
  const std::size_t warnings = count(StepState::kWarning);
  const std::string counts = counted(warnings, "warning", "warnings");
  if (const auto first = firstWith(StepState::kBroken))
    return "The chain is broken at " + title(*first) +
           "; begin there. In all: " + counted(count(StepState::kBroken), "link", "links") + " broken, " + counts + ".";
  // What programs show is decided up to the store; the log and the logon process stand beside that.
  const bool isStored = at(DoctorStep::kStore).holds();
  std::string words;
  const auto first = firstWith(StepState::kWarning);
  const bool isSuspicious = first && *first != DoctorStep::kLog && *first != DoctorStep::kLogon;
  if (isSuspicious) {
    const auto before = linkBefore(*first);
    words = (before ? "Nothing is broken. The chain holds up to " + title(*before) + "; " + title(*first) +
                          " has to be looked at next."
                    : "Nothing is broken, but " + title(*first) + " has to be looked at.") +
            " In all: " + counts + ".";
  } else {
    words = isStored
                ? std::string("The chain holds: the certificates are in this user's store, where programs find them")
                : "The chain holds up to " + title(DoctorStep::kKeys);
    words += first ? ", with " + counts + ", first at " + title(*first) + "." : ".";
  }
  if (!isStored)
    words += " " + title(DoctorStep::kStore) +
             " could not be looked at, so whether programs show the certificates is not known: look there " +
             (isSuspicious ? "then" : "next") + ", with certmgr.msc, below Personal.";
  return words + " The PIN was not tried; \"orvane-card pin verify\" says whether it is right or blocked.";
}

std::optional<DoctorStep> DoctorReport::firstWith(StepState state) const {
  const auto first = std::find_if(findings_.begin(), findings_.end(),
                                  [state](const Finding& finding) { return finding.state == state; });
  if (first == findings_.end()) return std::nullopt;
  return static_cast<DoctorStep>(first - findings_.begin());
}

std::string DoctorReport::text(std::size_t first, std::size_t end, const Style& style, std::size_t width) const {
  constexpr std::size_t kFindingColumn = kStateWidth + kTitleWidth;
  constexpr std::string_view kAdvice = "What to do: ";
  std::string text;
  for (std::size_t step = first; step < end; ++step) {
    const Finding& finding = findings_[step];
    const std::string title(kSteps[step].title);
    text += style.paint(toneOf(finding.state), padded(stepStateName(finding.state), kStateWidth)) +
            style.paint(Tone::kStrong, finding.text.empty() ? title : padded(title, kTitleWidth)) +
            wrapped(withoutCommands(finding.text), kFindingColumn, width) + "\n";
    if (finding.advice.empty()) continue;
    text += std::string(kStateWidth, ' ') +
            wrapped(std::string(kAdvice) + withoutCommands(finding.advice), kStateWidth, width) + "\n";
  }
  return text;
}

Json DoctorReport::json() const {
  Json steps = Json::array();
  for (std::size_t step = 0; step < kDoctorStepCount; ++step) {
    const Finding& finding = findings_[step];
    steps.push_back({{"step", std::string(kSteps[step].name)},
                     {"title", std::string(kSteps[step].title)},
                     {"state", std::string(stepStateName(finding.state))},
                     {"finding", textOrNull(finding.text)},
                     {"advice", textOrNull(finding.advice)}});
  }
  return {{"verdict", std::string(stepStateName(verdict()))}, {"steps", std::move(steps)}};
}

}  // namespace orvane::tool
