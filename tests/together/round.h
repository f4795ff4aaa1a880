// A round: the minidriver is loaded, used by several callers with everything in trouble around them, and unloaded.
#ifndef ORVANE_TESTS_TOGETHER_ROUND_H
#define ORVANE_TESTS_TOGETHER_ROUND_H

#include <filesystem>
#include <string>
#include <vector>

#include "together/plan.h"
#include "together/tally.h"

namespace orvane::test {

// runRound plays a plan in this process, with the process-wide state of the linked minidriver, which has not been used
// since it was loaded and is as new afterwards. Returns what was found, nothing if all promises were kept. `folder`
// exists and takes the log. When no call comes back for two minutes, what the callers do is said on standard error and
// the process ends. Standard output gets what the minidriver prints there.
std::vector<std::string> runRound(const Plan& plan, OwnMemory& memory, const std::filesystem::path& folder,
                                  Tally& tally);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_ROUND_H
