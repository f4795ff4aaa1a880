// The command that shows and follows the minidriver's log: log.
#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "commands.h"
#include "core/log_explanations.h"
#include "core/log_lines.h"
#include "core/text_table.h"
#include "core/tool_error.h"
#include "core/utf.h"
#include "machine.h"

namespace orvane::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kHowToLog =
    "Lines are written only while a program uses the token, and as the registry value logLevel says; \"orvane-card "
    "doctor\" shows it, \"orvane-card log --list\" the files that there are. Services log below C:\\Windows\\Temp "
    "(--temp).";

// Reads a file that other programs append to, piece by piece.
class GrowingFile {
 public:
  explicit GrowingFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // more gives what was appended since the last call; none when the file cannot be opened. A file that has become
  // shorter is read from its beginning.
  std::optional<std::string> more() {
    // Opened anew each time, so that the file can be moved or deleted meanwhile.
    std::ifstream file(std::filesystem::path(toWide(path_)), std::ios::binary | std::ios::ate);
    if (!file) return std::nullopt;
    const std::streamoff size = file.tellg();
    if (size < offset_) offset_ = 0;
    std::string bytes(static_cast<std::size_t>(size - offset_), '\0');
    file.seekg(offset_);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    offset_ += static_cast<std::streamoff>(bytes.size());
    return bytes;
  }

 private:
  std::string path_;
  std::streamoff offset_ = 0;
};

// Prints lines in the form that the output wants.
class LinePrinter {
 public:
  LinePrinter(const Output& output, const LogOptions& options)
      : output_(output), options_(options), style_(Output::style()), onTerminal_(Output::onTerminal()) {}

  // print shows a line for people; for programs it gives the line's JSON.
  Json print(const LogLine& line) {
    const std::vector<std::string> all = options_.bare ? std::vector<std::string>() : explainLogMessage(line.message);
    if (!output_.json()) {
      const std::vector<std::string> fresh = notYetGiven(all);
      output_.text(onTerminal_ ? styledLogLine(line, fresh, style_, Output::width(), callBefore_)
                               : plainLogLine(line, fresh));
      callBefore_ = line.call;
    }
    return logLineJson(line, all);
  }

 private:
  // For people each explanation stands only below the first line that it fits.
  std::vector<std::string> notYetGiven(const std::vector<std::string>& explanations) {
    std::vector<std::string> fresh;
    for (const std::string& each : explanations) {
      if (given_.insert(each).second) fresh.push_back(each);
    }
    return fresh;
  }

  const Output& output_;
  const LogOptions& options_;
  Style style_;
  bool onTerminal_;
  std::set<std::string> given_;
  std::string callBefore_ = "(none yet)";
};

std::string folderOf(const LogOptions& options) { return options.temp ? *options.temp : temporaryFolder(); }

std::string chosenPath(const LogOptions& options) {
  if (!options.file.empty()) return options.file;
  const std::string folder = folderOf(options);
  const std::vector<LogFile> files = logFilesBelow(folder);
  if (const LogFile* file = chooseLogFile(files, options.process, options.date)) return file->path;
  throw ToolError(ExitCode::kLocalFile,
                  "there is no log" + (options.process ? " of \"" + *options.process + "\"" : "") +
                      (options.date ? " of " + *options.date : "") + " below \"" + folder + "\\Brightfold\"",
                  kHowToLog);
}

Json listFiles(const Output& output, const LogOptions& options) {
  std::vector<LogFile> files = logFilesBelow(folderOf(options));
  std::sort(files.begin(), files.end(), [](const LogFile& left, const LogFile& right) {
    return std::tie(left.date, left.modified) > std::tie(right.date, right.modified);
  });
  TextTable table({"Date", "Program", ">Bytes", "File"});
  Json list = Json::array();
  for (const LogFile& file : files) {
    if (!chooseLogFile({file}, options.process, options.date)) continue;
    table.addRow({file.date, file.process, std::to_string(file.size), file.path});
    list.push_back({{"date", file.date}, {"process", file.process}, {"size", file.size}, {"path", file.path}});
  }
  output.text(list.empty() ? "There are no log files below " + folderOf(options) + "\\Brightfold.\n" : table.text());
  return {{"files", std::move(list)}};
}

LogFilter filterOf(const LogOptions& options) { return {options.call, options.level == "error"}; }

// Keeps the last lines that pass the filter, and counts all lines by call.
class Tail {
 public:
  Tail(LogFilter filter, std::optional<int> limit) : filter_(std::move(filter)), limit_(limit) {}

  void add(std::vector<LogLine> lines) {
    for (LogLine& line : lines) {
      ++calls_[line.call.empty() ? "(no call)" : line.call];
      if (!filter_.keeps(line)) continue;
      kept_.push_back(std::move(line));
      if (limit_ && kept_.size() > static_cast<std::size_t>(*limit_)) kept_.pop_front();
    }
  }

  const std::deque<LogLine>& kept() const { return kept_; }

  // What the file holds instead, for somebody whose filter lets nothing through.
  std::string calls() const {
    std::string text;
    for (const auto& [call, count] : calls_)
      text += (text.empty() ? "" : ", ") + call + " (" + std::to_string(count) + ")";
    return text;
  }

 private:
  LogFilter filter_;
  std::optional<int> limit_;
  std::deque<LogLine> kept_;
  std::map<std::string, std::size_t> calls_;
};

Json showFile(const Output& output, const LogOptions& options) {
  GrowingFile file(chosenPath(options));
  const std::optional<std::string> bytes = file.more();
  if (!bytes) throw ToolError(ExitCode::kLocalFile, "cannot open \"" + file.path() + "\"");
  LogReader reader;
  Tail tail(filterOf(options), options.lines);
  tail.add(reader.add(*bytes));
  tail.add(reader.finish());
  if (Output::onTerminal()) output.text(file.path() + "\n");
  LinePrinter printer(output, options);
  Json lines = Json::array();
  for (const LogLine& line : tail.kept()) lines.push_back(printer.print(line));
  if (lines.empty())
    output.message("No line of " + file.path() + " passes the filter; it holds lines of: " + tail.calls());
  return {{"file", file.path()}, {"lines", std::move(lines)}};
}

// Follows one file after the other: the next day's is another one.
class Follower {
 public:
  Follower(const Output& output, const LogOptions& options)
      : output_(output), options_(options), printer_(output, options), start_(Clock::now()) {}

  Json run() {
    constexpr auto kPause = std::chrono::milliseconds(200);
    constexpr int kLinesAtFirst = 20;
    open();
    Tail tail(filterOf(options_), options_.lines.value_or(kLinesAtFirst));
    tail.add(read());
    for (const LogLine& line : tail.kept()) print(line);
    while (goesOn()) {
      std::this_thread::sleep_for(kPause);
      show(read());
      if (open()) show(read());
    }
    show(reader_.finish());
    return {{"file", file_ ? Json(file_->path()) : Json(nullptr)}, {"count", count_}};
  }

 private:
  bool goesOn() const {
    return !options_.duration || Clock::now() - start_ < std::chrono::duration<double>(*options_.duration);
  }

  // Takes the file that is the newest by now; true when it is another one than before. Not to have one yet is no
  // mistake here: the program that will write it may not have started.
  bool open() {
    std::string path;
    try {
      path = chosenPath(options_);
    } catch (const ToolError&) {
      return false;
    }
    if (file_ && file_->path() == path) return false;
    show(reader_.finish());
    reader_ = LogReader();
    file_.emplace(std::move(path));
    output_.message("Following " + file_->path());
    return true;
  }

  std::vector<LogLine> read() {
    if (!file_) return {};
    const std::optional<std::string> bytes = file_->more();
    return bytes ? reader_.add(*bytes) : std::vector<LogLine>();
  }

  void show(const std::vector<LogLine>& lines) {
    for (const LogLine& line : lines) {
      if (filterOf(options_).keeps(line)) print(line);
    }
  }

  void print(const LogLine& line) {
    ++count_;
    Json json = printer_.print(line);
    output_.document({{"command", "log"}, {"line", std::move(json)}});
  }

  const Output& output_;
  const LogOptions& options_;
  LinePrinter printer_;
  Clock::time_point start_;
  std::optional<GrowingFile> file_;
  LogReader reader_;
  std::size_t count_ = 0;
};

}  // namespace

Json runLog(Environment& environment, const LogOptions& options) {
  const Output& output = environment.output();
  if (options.list) return listFiles(output, options);
  return options.follow ? Follower(output, options).run() : showFile(output, options);
}

}  // namespace orvane::tool
