// What a call did beside writing to the log, noted as it happened.
#ifndef ORVANE_TESTS_HARNESS_TRACE_H
#define ORVANE_TESTS_HARNESS_TRACE_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "harness/log_reader.h"
#include "harness/test_values.h"

namespace orvane::test {

// For its own lifetime a Trace notes what the thread that made it brings about: its calls to the token library and to
// the resource manager, its requests to the caller's allocator. Each event is noted when it begins, with the size that
// the log has then, which tells between which of its lines the event belongs. What other threads do is not noted. One
// at a time.
class Trace {
 public:
  // `logFolder` has the log files of this process; it need not exist.
  explicit Trace(std::filesystem::path logFolder);
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  // Notes an event, if it is this thread that has a Trace. Any thread may call.
  static void note(const std::string& event);

  // The events among the lines that were added to the log meanwhile.
  Lines with(const std::vector<LogLine>& log) const;

 private:
  struct Event {
    std::uintmax_t logSize;  // when it began
    std::string text;
  };

  std::filesystem::path logFolder_;
  std::vector<Event> events_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_TRACE_H
