// The floor of an entry point: what it cannot do without, done by the plainest code.
#ifndef ORVANE_BENCH_FLOOR_H
#define ORVANE_BENCH_FLOOR_H

#include <string>
#include <vector>

#include "scene.h"

namespace orvane::bench {

// What one call needs at least: a registry read for every log line that it would write, the buffers that it returns,
// the calls that it makes to the token library, and with the log on the lines themselves.
struct Floor {
  std::vector<std::string> lines;  // with the log off only their number counts
  std::vector<std::size_t> requests;
  std::vector<std::string> tokenCalls;
};

// Does just that. With `isLogOn` every line is appended to `file`, a log file of the minidriver, by opening, writing
// and closing it, with the same care about links.
void runFloor(const Floor& floor, bool isLogOn, const std::string& file);

// The calls to the token library alone, with arguments that the token of the scene accepts.
void replayTokenCalls(const std::vector<std::string>& calls);

}  // namespace orvane::bench

#endif  // ORVANE_BENCH_FLOOR_H
