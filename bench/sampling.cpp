#include "sampling.h"

#include <algorithm>
#include <chrono>

namespace orvane::bench {

Spread spreadOf(std::vector<double> samples) {
  if (samples.empty()) return {};
  std::sort(samples.begin(), samples.end());
  const auto at = [&](double share) {
    return samples[static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1) + 0.5)];
  };
  return {at(0.5), at(0.75) - at(0.25)};
}

std::vector<Spread> timeInterleaved(const std::vector<Subject>& subjects, unsigned repetitions) {
  using Clock = std::chrono::steady_clock;
  std::vector<std::vector<double>> samples(subjects.size());
  // The first round only warms up.
  for (unsigned round = 0; round <= repetitions; ++round) {
    for (std::size_t i = 0; i < subjects.size(); ++i) {
      const Subject& subject = subjects[i];
      if (subject.prepare) subject.prepare();
      const auto begin = Clock::now();
      for (unsigned run = 0; run < subject.batch; ++run) subject.run();
      const auto end = Clock::now();
      if (round == 0) continue;
      samples[i].push_back(std::chrono::duration<double, std::nano>(end - begin).count() / subject.batch);
    }
  }
  std::vector<Spread> results;
  for (std::vector<double>& list : samples) results.push_back(spreadOf(std::move(list)));
  return results;
}

nlohmann::json toJson(const Spread& spread) { return {{"ns", spread.median}, {"quartiles", spread.quartiles}}; }

}  // namespace orvane::bench
