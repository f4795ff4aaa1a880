#include "harness/outcome.h"

#include <ostream>

namespace orvane::test {
void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << "status 0x" << std::hex << std::uppercase << outcome.status << std::dec;
  for (const std::string& line : outcome.trace) *stream << "\n    \"" << line << "\"";
}

Lines linesWith(const char* beginning, const Lines& trace) {
  Lines lines;
  for (const std::string& line : trace) {
    if (line.starts_with(beginning)) lines.push_back(line);
  }
  return lines;
}

std::string alloc(std::size_t size) { return "alloc " + std::to_string(size); }

std::string refusedAlloc(std::size_t size) { return alloc(size) + " refused"; }

Lines withHandle(const std::string& call) {
  return {"orvane_setExternalSmartcardHandle(0x2A)", call + " [card 0x2A]",
          "orvane_clearExternalSmartcardHandle() [card 0x2A]"};
}

Lines withoutHandle(const std::string& call) { return {call, "orvane_clearExternalSmartcardHandle()"}; }

}  // namespace orvane::test
