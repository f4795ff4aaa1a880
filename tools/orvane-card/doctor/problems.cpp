#include "doctor/problems.h"

#include <algorithm>
#include <utility>

namespace orvane::tool {

void Problems::add(Finding finding) {
  (finding.state == StepState::kBroken ? broken : suspicious).push_back(std::move(finding));
}

Finding Problems::finding() const {
  constexpr std::size_t kShown = 3;
  const std::vector<Finding>& worst = broken.empty() ? suspicious : broken;
  Finding all = worst.front();
  for (std::size_t i = 1; i < std::min(worst.size(), kShown); ++i) all.text += " " + worst[i].text;
  if (worst.size() > kShown) all.text += " And " + std::to_string(worst.size() - kShown) + " more.";
  return all;
}

}  // namespace orvane::tool
