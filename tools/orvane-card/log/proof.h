// Whether a file is a log of the minidriver at all.
#ifndef ORVANE_TOOL_LOG_PROOF_H
#define ORVANE_TOOL_LOG_PROOF_H

#include <cstddef>
#include <vector>

#include "log/lines.h"

namespace orvane::tool {

// LogProof holds the lines of a file back until one of them is a line of a log, so that nothing shows of a file that is
// none.
class LogProof {
 public:
  // One that `isProven` from the start lets everything pass.
  explicit LogProof(bool isProven) : isProven_(isProven) {}

  // pass gives those of the lines so far that may show. Throws ToolError (ExitCode::kUsage) when so many have come that
  // the file can be no log.
  std::vector<LogLine> pass(std::vector<LogLine> lines);

  // atEnd throws likewise when lines are still held back; an empty file passes.
  void atEnd() const;

 private:
  bool isProven_;
  std::size_t heldBytes_ = 0;
  std::vector<LogLine> held_;
};

}  // namespace orvane::tool

#endif
