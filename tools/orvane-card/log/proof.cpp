#include "log/proof.h"

#include <utility>

#include "tool_error.h"

namespace orvane::tool {
namespace {

[[noreturn]] void refuse(const std::string& beginning) {
  const bool isUtf16 = beginning.starts_with("\xFF\xFE");
  throw ToolError(ExitCode::kUsage, "the file is no log of the minidriver: no line of it begins like one",
                  isUtf16 ? "It is saved as UTF-16, as Windows PowerShell writes files with \">\". Have the log file "
                            "itself sent, or save this one as ANSI or UTF-8."
                          : "A log is named like 2026-11-15.LOG, and its lines begin like \"15/11::10:03:25:123->\".");
}

}  // namespace

std::vector<LogLine> LogProof::pass(std::vector<LogLine> lines) {
  constexpr std::size_t kLongestPreface = 4 << 20;  // bytes
  if (isProven_) return lines;
  for (LogLine& line : lines) {
    isProven_ = isProven_ || line.tag != LogTag::kNone;
    heldBytes_ += line.raw.size();
    held_.push_back(std::move(line));
  }
  if (isProven_) return std::exchange(held_, {});
  if (heldBytes_ > kLongestPreface) refuse(held_.front().raw);
  return {};
}

void LogProof::atEnd() const {
  if (!held_.empty()) refuse(held_.front().raw);
}

}  // namespace orvane::tool
