// log: shows, filters, explains and follows a log file of the minidriver.
#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <thread>
#include <tuple>

#include "commands/commands.h"
#include "log/explanations.h"
#include "log/files.h"
#include "log/growing_log.h"
#include "log/lines.h"
#include "log/proof.h"
#include "text/table.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kHowToLog =
    "Lines are written only while a program uses the token, and as the registry value logLevel says; \"orvane-card "
    "doctor\" shows it, \"orvane-card log --list\" the files that there are. Services log below C:\\Windows\\Temp "
    "(--temp).";

// Prints lines in the form that the output wants.
class LinePrinter {
 public:
  LinePrinter(const Output& output, const LogOptions& options)
      : output_(output), options_(options), style_(Output::style()), onTerminal_(Output::onTerminal()) {}

  // print shows a line for people; for programs it gives the line's JSON. What the others do not want is not made: logs
  // are long.
  Json print(const LogLine& line) {
    const std::vector<std::string> all =
        options_.noExplanations ? std::vector<std::string>() : explainLogMessage(line.message);
    if (output_.json()) return logLineJson(line, all);
    const std::vector<std::string> fresh = notYetGiven(all);
    output_.text(onTerminal_ ? styledLogLine(line, fresh, style_, Output::width(), callBefore_)
                             : plainLogLine(line, fresh));
    callBefore_ = line.call;
    return {};
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

// For somebody who asked for a program that has written nothing.
std::string programsBut(const std::vector<LogFile>& files, const std::optional<std::string>& process) {
  if (!process || files.empty()) return {};
  std::set<std::string> names;
  for (const LogFile& file : files) names.insert(file.process);
  std::string text = "There are logs of: ";
  for (const std::string& name : names) text += (name == *names.begin() ? "" : ", ") + name;
  return text + ". ";
}

std::string chosenPath(const LogOptions& options) {
  if (!options.file.empty()) return options.file;
  const std::string folder = temporaryFolder(options.temp);
  const std::vector<LogFile> files = logFilesBelow(folder);
  if (const LogFile* file = chooseLogFile(files, options.process, options.date)) return file->path;
  throw ToolError(ExitCode::kLocalFile,
                  "there is no log" + (options.process ? " of \"" + *options.process + "\"" : "") +
                      (options.date ? " of " + *options.date : "") + " below \"" + logFolder(folder) + "\"",
                  programsBut(files, options.process) + kHowToLog);
}

Json listFiles(const Output& output, const LogOptions& options) {
  std::vector<LogFile> files = logFilesBelow(temporaryFolder(options.temp));
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
  output.text(list.empty() ? "There are no log files below " + logFolder(temporaryFolder(options.temp)) + ".\n"
                           : table.text());
  return {{"files", std::move(list)}};
}

LogFilter filterOf(const LogOptions& options) { return {options.call, options.level == "error"}; }

// Passes on the lines that the filter keeps: all at once or, with a limit, the last ones at the end. Counts all lines
// by call.
class Tail {
 public:
  Tail(LogFilter filter, std::optional<int> limit) : filter_(std::move(filter)), limit_(limit) {}

  // add gives the lines that need not wait for the end.
  std::vector<LogLine> add(std::vector<LogLine> lines) {
    std::vector<LogLine> passed;
    for (LogLine& line : lines) {
      ++calls_[line.call.empty() ? "(no call)" : line.call];
      if (!filter_.keeps(line)) continue;
      if (!limit_) {
        passed.push_back(std::move(line));
        continue;
      }
      kept_.push_back(std::move(line));
      if (kept_.size() > static_cast<std::size_t>(*limit_)) kept_.pop_front();
    }
    return passed;
  }

  // The lines that waited.
  std::vector<LogLine> kept() { return {kept_.begin(), kept_.end()}; }

  // What the file holds instead, for somebody whose filter lets nothing through; an empty text for an empty file.
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
  GrowingLog source(chosenPath(options));
  Tail tail(filterOf(options), options.lines);
  LinePrinter printer(output, options);
  std::size_t count = 0;
  Json lines = Json::array();
  const auto show = [&](const std::vector<LogLine>& some) {
    for (const LogLine& line : some) {
      // Somebody above may have seen enough.
      if (output.isClosed()) return;
      Json json = printer.print(line);
      if (output.json()) lines.push_back(std::move(json));
      ++count;
    }
  };
  // Those below the temporary folder have the name of a log; only a named one can be anything.
  LogProof proof(options.file.empty());
  if (Output::onTerminal()) output.text(source.path() + "\n");
  while (auto some = source.more()) {
    show(tail.add(proof.pass(std::move(*some))));
    if (output.isClosed()) break;
  }
  if (!source.isReadable()) throw ToolError(ExitCode::kLocalFile, "cannot read \"" + source.path() + "\"");
  show(tail.add(proof.pass(source.rest())));
  proof.atEnd();
  show(tail.kept());
  if (count == 0)
    output.message(tail.calls().empty()
                       ? source.path() + " is empty."
                       : "No line of " + source.path() + " passes the filter; it holds lines of: " + tail.calls());
  return {{"file", source.path()}, {"lines", std::move(lines)}};
}

// Follows the file that was written last: the next day's is another one, and without --process another program's may
// be.
class Follower {
 public:
  Follower(const Output& output, const LogOptions& options)
      : output_(output), options_(options), printer_(output, options), start_(Clock::now()) {}

  Json run() {
    constexpr auto kPause = std::chrono::milliseconds(200);
    constexpr int kLinesAtFirst = 20;
    if (options_.file.empty()) {
      for (const LogFile& file : logFilesBelow(temporaryFolder(options_.temp))) sizesAtFirst_[file.path] = file.size;
    }
    if (chooseSource(true)) {
      Tail tail(filterOf(options_), options_.lines.value_or(kLinesAtFirst));
      LogProof proof(options_.file.empty());
      while (auto lines = current_->more()) tail.add(proof.pass(std::move(*lines)));
      proof.atEnd();
      show(tail.kept());
    }
    sayIfWaiting();
    while (goesOn()) {
      std::this_thread::sleep_for(kPause);
      showMore();
      if (chooseSource(false)) showMore();
    }
    for (auto& [path, source] : sources_) show(source.rest());
    return {{"file", current_ ? Json(current_->path()) : Json(nullptr)}, {"count", count_}};
  }

 private:
  bool goesOn() const {
    if (output_.isClosed()) return false;
    return !options_.duration || Clock::now() - start_ < std::chrono::duration<double>(*options_.duration);
  }

  // Nothing shows while there is no file, which looks as if the program hung.
  void sayIfWaiting() const {
    if (!current_) {
      output_.message("Waiting for a log" + (options_.process ? " of \"" + *options_.process + "\"" : "") +
                      (options_.date ? " of " + *options_.date : "") + " below \"" +
                      logFolder(temporaryFolder(options_.temp)) + "\": there is none yet. Ctrl+C ends this. " +
                      kHowToLog);
    } else if (!current_->isReadable()) {
      output_.message("Waiting for this file: it cannot be read, or is not there yet. Ctrl+C ends this.");
    }
  }

  // Takes the file that is the newest by now; true when it is another one than before. Not to have one yet is no
  // mistake here: the program that will write it may not have started. Of a file that was there before, only what is
  // new is wanted, except of the first one.
  bool chooseSource(bool isFirst) {
    std::string path;
    try {
      path = chosenPath(options_);
    } catch (const ToolError&) {
      return false;
    }
    if (current_ && current_->path() == path) return false;
    const auto known = sizesAtFirst_.find(path);
    const std::uint64_t offset = isFirst || known == sizesAtFirst_.end() ? 0 : known->second;
    current_ = &sources_.try_emplace(path, path, offset).first->second;
    output_.message("Following " + path);
    return true;
  }

  void showMore() {
    if (!current_) return;
    while (const auto lines = current_->more()) show(*lines);
  }

  void show(const std::vector<LogLine>& lines) {
    for (const LogLine& line : lines) {
      if (output_.isClosed()) return;
      if (!filterOf(options_).keeps(line)) continue;
      ++count_;
      Json json = printer_.print(line);
      output_.document({{"command", "log"}, {"line", std::move(json)}});
    }
  }

  const Output& output_;
  const LogOptions& options_;
  LinePrinter printer_;
  Clock::time_point start_;
  std::map<std::string, std::uint64_t> sizesAtFirst_;
  std::map<std::string, GrowingLog> sources_;
  GrowingLog* current_ = nullptr;
  std::size_t count_ = 0;
};

}  // namespace

Json runLog(Environment& environment, const LogOptions& options) {
  const Output& output = environment.output();
  if (options.list) return listFiles(output, options);
  return options.follow ? Follower(output, options).run() : showFile(output, options);
}

}  // namespace orvane::tool
