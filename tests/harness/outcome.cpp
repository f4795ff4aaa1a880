#include "harness/outcome.h"

#include <ostream>

namespace orvane::test {
namespace {

void printLines(const char* name, const Lines& lines, std::ostream& stream) {
  stream << "\n  " << name << ":";
  for (const std::string& line : lines) stream << "\n    \"" << line << "\"";
}

}  // namespace

void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << "status 0x" << std::hex << std::uppercase << outcome.status << std::dec;
  printLines("log", outcome.log, *stream);
  printLines("calls", outcome.calls, *stream);
}

Lines withHandle(const std::string& call) {
  return {"orvane_setExternalSmartcardHandle(0x2A)", call + " [card 0x2A]",
          "orvane_clearExternalSmartcardHandle() [card 0x2A]"};
}

Lines withoutHandle(const std::string& call) { return {call, "orvane_clearExternalSmartcardHandle()"}; }

}  // namespace orvane::test
