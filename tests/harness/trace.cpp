#include "harness/trace.h"

#include <utility>

#include "softtoken/softtoken_control.h"

namespace orvane::test {
namespace {

thread_local Trace* current = nullptr;

extern "C" void noteLibraryCall(const char* call) { Trace::note(call); }

}  // namespace

Trace::Trace(std::filesystem::path logFolder) : logFolder_(std::move(logFolder)) {
  current = this;
  softtoken_observe(noteLibraryCall);
}

Trace::~Trace() {
  softtoken_observe(nullptr);
  current = nullptr;
}

void Trace::note(const std::string& event) {
  if (current != nullptr) current->events_.push_back({bytesIn(current->logFolder_), event});
}

Lines Trace::with(const std::vector<LogLine>& log) const {
  Lines lines;
  auto event = events_.begin();
  for (const LogLine& line : log) {
    for (; event != events_.end() && event->logSize <= line.position; ++event) lines.push_back(event->text);
    lines.push_back(line.text);
  }
  for (; event != events_.end(); ++event) lines.push_back(event->text);
  return lines;
}

}  // namespace orvane::test
