// Taking times: repeated, interleaved with what they are compared with, and told by their middle and their spread.
#ifndef ORVANE_BENCH_SAMPLING_H
#define ORVANE_BENCH_SAMPLING_H

#include <functional>
#include <nlohmann/json.hpp>
#include <vector>

namespace orvane::bench {

// Nanoseconds of one call: the median of all samples, and the distance between their quartiles.
struct Spread {
  double median = 0;
  double quartiles = 0;
};
Spread spreadOf(std::vector<double> samples);

// One thing to be timed. `prepare` runs before every sample and is not timed; a sample is `batch` runs of `run`.
struct Subject {
  std::function<void()> prepare;
  std::function<void()> run;
  unsigned batch = 1;
};

// Times every subject `repetitions` times, all of them once before any is timed again, so that a slow moment of the
// machine meets them alike. Returns a result for each subject, in nanoseconds of one run.
std::vector<Spread> timeInterleaved(const std::vector<Subject>& subjects, unsigned repetitions);

// {"ns": median, "quartiles": distance}
nlohmann::json toJson(const Spread& spread);

}  // namespace orvane::bench

#endif  // ORVANE_BENCH_SAMPLING_H
