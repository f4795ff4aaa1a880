// The lines of the minidriver's log file, taken apart.
#ifndef ORVANE_TOOL_LOG_LINES_H
#define ORVANE_TOOL_LOG_LINES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "text/json.h"
#include "text/style.h"

namespace orvane::tool {

// beginsWithForm compares the beginning of a text with a form in which 'd' stands for any digit.
bool beginsWithForm(std::string_view text, std::string_view form);

// LogTag is the level that stands in a line; kNone for a line that begins like no line of the log.
enum class LogTag { kNone, kException, kError, kDebug, kInfo };

// logTagName gives "ERROR", "DEBUG", "EXCEP", "INFO", or an empty text for kNone.
std::string_view logTagName(LogTag tag);

// LogLine is one line. Texts are as they stand in the file.
struct LogLine {
  std::string raw;   // the whole line without its end
  std::string day;   // "15/11", day and month
  std::string time;  // "10:03:25.123"
  LogTag tag = LogTag::kNone;
  std::string message;  // behind the tag; the whole line for kNone
  std::string call;     // entry point that it belongs to, "monitor", or empty when that is not known

  bool operator==(const LogLine&) const = default;
};

// The name that stands for the monitor thread in `call`.
inline constexpr std::string_view kMonitorCall = "monitor";

// parseLogLine takes a line apart, without finding out its call.
LogLine parseLogLine(std::string_view line);

// LogReader puts lines together from pieces of a file and says to which call each belongs: to the one whose entry line
// came last, except for the lines of the monitor thread. (The log does not tell threads apart: where several work at
// the same time, a line may be counted to the wrong one.) A line that begins like no line of the log takes call and
// level of the one before it, because messages may hold line ends.
class LogReader {
 public:
  // add gives the lines that `bytes` complete; what is left waits for the next call.
  std::vector<LogLine> add(std::string_view bytes);

  // finish gives the rest as a line, if there is any.
  std::vector<LogLine> finish();

 private:
  LogLine next(std::string text);

  std::string rest_;
  std::string call_;
  bool monitorBumps_ = false;  // between the two lines of the monitor around a change of the freshness numbers
  LogLine last_;
};

// LogFilter says which lines are wanted.
struct LogFilter {
  std::optional<std::string> call;  // in any letter case
  bool errorsOnly = false;

  bool keeps(const LogLine& line) const;
};

// plainLogLine gives the line as it stands in the file and below it, indented, one line for each explanation.
// styledLogLine is for terminals of `width` columns: time, level and message in columns and colours; under a heading
// with the call's name when that is not `callBefore`.
std::string plainLogLine(const LogLine& line, const std::vector<std::string>& explanations);
std::string styledLogLine(const LogLine& line, const std::vector<std::string>& explanations, const Style& style,
                          std::size_t width, std::string_view callBefore);

// logLineJson gives {"day", "time", "level", "call", "message", "explanations"}; unknown parts are null.
Json logLineJson(const LogLine& line, const std::vector<std::string>& explanations);

}  // namespace orvane::tool

#endif
