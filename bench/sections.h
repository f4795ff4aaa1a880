// The parts of the benchmark. Each returns its results, which bench/report.py turns into tables.
#ifndef ORVANE_BENCH_SECTIONS_H
#define ORVANE_BENCH_SECTIONS_H

#include <nlohmann/json.hpp>

namespace orvane::bench {

// Every entry point, with the log off and on: counts, time, and time of its floor.
nlohmann::json measureEntries(unsigned repetitions);

// How time grows with containers, tokens and threads, and whether a slow token call holds up another thread.
nlohmann::json measureGrowth(unsigned repetitions);

// Memory, loading and freeing, the monitor's poll, the share of our time in a signature of a token with real keys.
nlohmann::json measureResources(unsigned repetitions);

// For callgrind: runs every entry point, and those that grow, once each with the instructions counted apart.
void countEntryInstructions();

}  // namespace orvane::bench

#endif  // ORVANE_BENCH_SECTIONS_H
