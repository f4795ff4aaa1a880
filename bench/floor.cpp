#include "floor.h"

#include <stdexcept>

#include "harness/token_replay.h"
#include "platform/append_file.h"

namespace orvane::bench {
void replayTokenCalls(const std::vector<std::string>& calls) {
  for (const std::string& name : calls) test::replayTokenCall(name);
}

void runFloor(const Floor& floor, bool isLogOn, const std::string& file) {
  for (const std::string& line : floor.lines) {
    unsigned char level[32];
    DWORD size = sizeof(level);
    RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Brightfold\\Orvane", "logLevel", RRF_RT_ANY, nullptr, level, &size);
    if (isLogOn && !appendToFile(file.c_str(), line)) throw std::runtime_error("cannot write to " + file);
  }
  for (const std::size_t size : floor.requests) benchAllocate(size);
  replayTokenCalls(floor.tokenCalls);
}

}  // namespace orvane::bench
