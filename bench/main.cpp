// orvane_bench SECTION FILE [REPETITIONS]: measures one part of the benchmark and writes the results as JSON.
//
// SECTION is entries, growth, resources, or instructions (to be run under callgrind, writes no file).
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string_view>

#include "sections.h"

int main(int argc, char** argv) {
  using namespace orvane::bench;
  try {
    const std::string_view section = argc > 1 ? argv[1] : "";
    if (section == "instructions") {
      countEntryInstructions();
      return 0;
    }
    auto* const measure = section == "entries"     ? &measureEntries
                          : section == "growth"    ? &measureGrowth
                          : section == "resources" ? &measureResources
                                                   : nullptr;
    if (measure == nullptr || argc < 3) {
      std::fputs("usage: orvane_bench entries|growth|resources FILE [REPETITIONS], or orvane_bench instructions\n",
                 stderr);
      return 2;
    }
    const unsigned repetitions = argc > 3 ? static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)) : 60;
    std::ofstream file(argv[2], std::ios::binary);
    file << measure(repetitions).dump(1) << '\n';
    file.close();
    return file ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orvane_bench: %s\n", error.what());
    return 1;
  }
}
