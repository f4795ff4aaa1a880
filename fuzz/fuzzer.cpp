// The libFuzzer program of all targets. By what name it is called says which it is: "fuzz-calls" is for "calls".
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "targets.h"

namespace {

void (*run)(orvane::fuzz::Input) = nullptr;

}  // namespace

// Called once, before anything else. libFuzzer starts itself anew under the same name.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
  const std::string_view name = (*argv)[0];
  for (const orvane::fuzz::Target& target : orvane::fuzz::kTargets) {
    if (name.ends_with(std::string("fuzz-") + target.name)) run = target.run;
  }
  if (run != nullptr) return 0;
  std::fputs("fuzzing: call it by the name of a target, fuzz-calls for example\n", stderr);
  std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  run({data, size});
  return 0;
}
