// The lines of one log file that other programs go on writing.
#ifndef ORVANE_TOOL_LOG_GROWING_LOG_H
#define ORVANE_TOOL_LOG_GROWING_LOG_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "log/lines.h"

namespace orvane::tool {

// GrowingLog reads a log file piece by piece, from `offset` bytes behind its beginning. Others can append to the file,
// move and delete it meanwhile. One that has become shorter, was gone in between, or is another one by now is read from
// its beginning.
class GrowingLog {
 public:
  explicit GrowingLog(std::string path, std::uint64_t offset = 0) : path_(std::move(path)), offset_(offset) {}

  const std::string& path() const { return path_; }

  // more gives lines that have been completed; an empty list does not mean that there are no more. No value at the end
  // for now, and when the file cannot be read.
  std::optional<std::vector<LogLine>> more();

  // rest gives the last line when it has no end.
  std::vector<LogLine> rest() { return reader_.finish(); }

  // isReadable says whether the last `more` could read the file.
  bool isReadable() const { return isReadable_; }

 private:
  // The volume, and the file on it.
  using Identity = std::pair<std::uint32_t, std::uint64_t>;

  std::string path_;
  std::uint64_t offset_;
  std::optional<Identity> identity_;  // of the file that was read last
  bool wasGone_ = false;
  bool isReadable_ = false;
  LogReader reader_;
};

}  // namespace orvane::tool

#endif
