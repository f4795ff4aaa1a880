#include "log/lines.h"

#include <array>
#include <utility>

#include "support/text_compare.h"
#include "text/table.h"

namespace orvane::tool {
namespace {

// How a line begins, as beginsWithForm takes it. The tag follows.
constexpr std::string_view kPrefix = "dd/dd::dd:dd:dd:ddd-> ->";
constexpr std::string_view kEntryMark = " :: LOG_FUNCTION_NAME = Entry";

struct TagText {
  LogTag tag;
  std::string_view name;
  std::string_view inLine;
};
constexpr std::array<TagText, 4> kTags = {{{LogTag::kException, "EXCEP", "EXCEP ::=>"},
                                           {LogTag::kError, "ERROR", "ERROR ::=>"},
                                           {LogTag::kDebug, "DEBUG", "DEBUG ::=>"},
                                           {LogTag::kInfo, "INFO", "INFO  ::=>"}}};
constexpr std::size_t kTagSize = 10;

// Lines that only the monitor thread writes. Those between the second and the last one, about the freshness numbers,
// are written by others, too.
bool isMonitorLine(std::string_view message) {
  return message.starts_with("Device monitor thread ") || message.starts_with("Device disconnected [") ||
         message.starts_with("Device reconnected [") || message.starts_with("Cache state after ");
}

bool isBumpLine(std::string_view message) {
  return message.starts_with("device reconnect ") || message.starts_with("password validated (") ||
         message == "valid" || message == "Not valid - bumping pin freshness" ||
         message.starts_with(">>> GLOBAL CACHE BUMPED: ");
}

// Columns on a terminal: two blanks, the time, two blanks, the level, two blanks, the message.
constexpr std::size_t kTimeWidth = 12;
constexpr std::size_t kTagWidth = 5;
constexpr std::size_t kMessageColumn = 2 + kTimeWidth + 2 + kTagWidth + 2;

}  // namespace

bool beginsWithForm(std::string_view text, std::string_view form) {
  if (text.size() < form.size()) return false;
  for (std::size_t i = 0; i < form.size(); ++i) {
    const bool fits = form[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == form[i];
    if (!fits) return false;
  }
  return true;
}

std::string_view logTagName(LogTag tag) {
  for (const TagText& row : kTags) {
    if (row.tag == tag) return row.name;
  }
  return {};
}

LogLine parseLogLine(std::string_view line) {
  LogLine parsed;
  parsed.raw = parsed.message = line;
  if (!beginsWithForm(line, kPrefix) || line.size() < kPrefix.size() + kTagSize) return parsed;
  const std::string_view tag = line.substr(kPrefix.size(), kTagSize);
  for (const TagText& row : kTags) {
    if (row.inLine == tag) parsed.tag = row.tag;
  }
  if (parsed.tag == LogTag::kNone) return parsed;
  parsed.day = line.substr(0, 5);
  parsed.time = std::string(line.substr(7, 8)) + "." + std::string(line.substr(16, 3));
  parsed.message = line.substr(kPrefix.size() + kTagSize);
  return parsed;
}

std::vector<LogLine> LogReader::add(std::string_view bytes) {
  std::vector<LogLine> lines;
  // What waits holds no line end: it is not looked through again for each piece of a long line.
  std::size_t end = rest_.size();
  rest_.append(bytes);
  std::size_t start = 0;
  for (; (end = rest_.find('\n', end)) != std::string::npos; start = ++end)
    lines.push_back(next(rest_.substr(start, end - start)));
  rest_.erase(0, start);
  return lines;
}

std::vector<LogLine> LogReader::finish() {
  if (rest_.empty()) return {};
  return {next(std::exchange(rest_, {}))};
}

LogLine LogReader::next(std::string text) {
  if (text.ends_with('\r')) text.pop_back();
  LogLine line = parseLogLine(text);
  if (line.tag == LogTag::kNone) {
    line.day = last_.day;
    line.time = last_.time;
    line.tag = last_.tag;
    line.call = last_.call;
    return line;
  }
  if (line.message.ends_with(kEntryMark)) call_ = line.message.substr(0, line.message.size() - kEntryMark.size());
  const bool monitors = isMonitorLine(line.message);
  if (monitors) monitorBumps_ = line.message.starts_with("Device reconnected [");
  line.call = monitors || (monitorBumps_ && isBumpLine(line.message)) ? std::string(kMonitorCall) : call_;
  last_ = line;
  return line;
}

bool LogFilter::keeps(const LogLine& line) const {
  if (errorsOnly && line.tag != LogTag::kError && line.tag != LogTag::kException) return false;
  return !call || equalsIgnoreCase(line.call, *call);
}

std::string plainLogLine(const LogLine& line, const std::vector<std::string>& explanations) {
  std::string text = line.raw + "\n";
  for (const std::string& explanation : explanations) text += "    = " + explanation + "\n";
  return text;
}

std::string styledLogLine(const LogLine& line, const std::vector<std::string>& explanations, const Style& style,
                          std::size_t width, std::string_view callBefore) {
  std::string text;
  if (line.call != callBefore)
    text += style.paint(Tone::kStrong, line.call.empty() ? "(unknown call)" : withoutCommands(line.call)) + "\n";
  const bool isError = line.tag == LogTag::kError || line.tag == LogTag::kException;
  const std::string message = wrapped(withoutCommands(line.message), kMessageColumn, width);
  text += "  " + style.paint(Tone::kQuiet, padded(line.time, kTimeWidth)) + "  " +
          style.paint(isError ? Tone::kBad : Tone::kPlain, padded(logTagName(line.tag), kTagWidth) + "  " + message) +
          "\n";
  for (const std::string& explanation : explanations)
    text += std::string(kMessageColumn, ' ') +
            style.paint(Tone::kWarning, "= " + wrapped(explanation, kMessageColumn + 2, width)) + "\n";
  return text;
}

Json logLineJson(const LogLine& line, const std::vector<std::string>& explanations) {
  return {{"day", textOrNull(line.day)},   {"time", textOrNull(line.time)}, {"level", textOrNull(logTagName(line.tag))},
          {"call", textOrNull(line.call)}, {"message", line.message},       {"explanations", explanations}};
}

}  // namespace orvane::tool
