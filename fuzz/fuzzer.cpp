// The libFuzzer program of one target; ORVANE_FUZZ_TARGET names it.
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static void (*const run)(orvane::fuzz::Input) = [] {
    for (const orvane::fuzz::Target& target : orvane::fuzz::kTargets) {
      if (target.name == std::string_view(ORVANE_FUZZ_TARGET)) return target.run;
    }
    std::abort();
  }();
  run({data, size});
  return 0;
}
