#include "floor.h"

#include <algorithm>
#include <stdexcept>

#include "harness/token_replay.h"
#include "platform/append_file.h"

namespace orvane::bench {
void replayTokenCalls(const std::vector<std::string>& calls) {
  for (const std::string& name : calls) test::replayTokenCall(name);
}

namespace {

// The path of a log file, cut where the temporary folder ends.
struct LogPath {
  std::string base;
  std::string below;
};

LogPath cutLogPath(const std::string& file) {
  const std::size_t end = file.rfind("Brightfold");
  LogPath path{file.substr(0, end), file.substr(end)};
  std::replace(path.below.begin(), path.below.end(), '\\', '/');
  return path;
}

}  // namespace

void runFloor(const Floor& floor, bool isLogOn, const std::string& file) {
  const LogPath path = isLogOn ? cutLogPath(file) : LogPath{};
  for (const std::string& line : floor.lines) {
    unsigned char level[32];
    DWORD size = sizeof(level);
    RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Brightfold\\Orvane", "logLevel", RRF_RT_ANY, nullptr, level, &size);
    if (isLogOn && appendBelow(path.base.c_str(), path.below, line) != BelowResult::kDone) {
      throw std::runtime_error("cannot write to " + file);
    }
  }
  for (const std::size_t size : floor.requests) benchAllocate(size);
  replayTokenCalls(floor.tokenCalls);
}

}  // namespace orvane::bench
