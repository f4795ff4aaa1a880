#include "test_output.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>

namespace orvane::trial {
namespace {

constexpr std::string_view kRun = "[ RUN      ] ";
constexpr std::string_view kOk = "[       OK ] ";
constexpr std::string_view kFailed = "[  FAILED  ] ";
constexpr std::string_view kSkipped = "[  SKIPPED ] ";

// The lines without their ends, whichever kind these are.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.push_back(line);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

// Seconds in "Suite.Name (12 ms)"; 0 if it says none.
double secondsIn(std::string_view line) {
  const std::size_t open = line.rfind('(');
  if (open == std::string_view::npos || !line.ends_with(" ms)")) return 0;
  return std::strtod(std::string(line.substr(open + 1)).c_str(), nullptr) / 1000;
}

// What stands before the name of each test of a suite when it begins.
std::string beginningOf(const Suite& suite) { return std::string(kRun) + suite.name + "."; }

// Goes through the lines and keeps what they say about each test.
class Reader {
 public:
  Reader(const Suite& suite, std::string_view subject) : suite_(suite), subject_(subject), mark_(beginningOf(suite)) {}

  void read(std::string_view line) {
    // What the minidriver prints has not always a line of its own.
    const auto isNow = [&](std::string_view marker) {
      const std::size_t found = line.find(std::string(marker) + fullName());
      if (found == std::string_view::npos) return false;
      take(line.substr(0, found));
      return true;
    };
    if (const std::size_t begun = line.find(mark_); begun != std::string_view::npos) {
      running_ = std::string(line.substr(begun + mark_.size()));
      text_.clear();
    } else if (running_.empty()) {
      return;
    } else if (isNow(kOk)) {
      finish(State::kPassed, line);
    } else if (isNow(kFailed)) {
      finish(State::kFailed, line);
    } else if (isNow(kSkipped)) {
      finish(State::kNotTried, line);
    } else {
      take(line);
    }
  }

  std::vector<Result> results(std::string_view end) {
    const bool wasRunning = !running_.empty();
    if (wasRunning) {
      take(end.empty() ? "the program ended without a word" : end);
      finish(State::kFailed, "");
    }
    std::vector<Result> all;
    for (const std::string& test : suite_.tests) {
      const auto found = done_.find(test);
      all.push_back(found != done_.end() ? found->second
                                         : result(test, State::kNotTried, 0, "the program had ended before"));
    }
    if (!wasRunning && !end.empty()) {
      all.push_back(result("(the end of the program)", State::kFailed, 0, std::string(end)));
    }
    return all;
  }

 private:
  std::string fullName() const { return suite_.name + "." + running_; }
  void take(std::string_view line) {
    if (!line.empty()) text_.append(line).append("\n");
  }
  Result result(const std::string& test, State state, double seconds, const std::string& detail) const {
    return {subject_, suite_.name, test, state, seconds, detail};
  }
  void finish(State state, std::string_view line) {
    done_[running_] = result(running_, state, secondsIn(line), state == State::kPassed ? "" : text_);
    running_.clear();
  }

  const Suite& suite_;
  std::string subject_;
  std::string mark_;     // what stands before a test's name when it begins
  std::string running_;  // the test that has begun and not ended; empty for none
  std::string text_;     // what was printed meanwhile
  std::map<std::string, Result> done_;
};

}  // namespace

std::vector<Suite> suitesIn(std::string_view list) {
  std::vector<Suite> suites;
  for (const std::string_view line : linesOf(list)) {
    const std::string_view name = line.substr(0, line.find("  #"));
    if (name.starts_with("  ") && !suites.empty()) {
      suites.back().tests.emplace_back(name.substr(2));
    } else if (name.ends_with('.') && name.find(' ') == std::string_view::npos) {
      suites.push_back({std::string(name.substr(0, name.size() - 1)), {}});
    }
  }
  return suites;
}

std::vector<Result> resultsIn(std::string_view output, const Suite& suite, std::string_view subject,
                              std::string_view end) {
  Reader reader(suite, subject);
  for (const std::string_view line : linesOf(output)) reader.read(line);
  return reader.results(end);
}

std::vector<std::vector<Result>> resultsInTurn(std::string_view output, std::span<const Suite> suites,
                                               std::string_view end) {
  std::size_t last = 0;
  for (std::size_t i = 0; i < suites.size(); ++i) {
    if (output.find(beginningOf(suites[i])) != std::string_view::npos) last = i;
  }
  std::vector<std::vector<Result>> all;
  for (std::size_t i = 0; i <= last; ++i) {
    all.push_back(resultsIn(output, suites[i], subjectOf(suites[i].name), i == last ? end : ""));
  }
  return all;
}

std::string subjectOf(std::string_view suite) {
  using Row = std::pair<std::string_view, const char*>;
  const Row rows[] = {{"Tool", "The support tool, inside"},
                      {"TokenClient", "Texts, lists and exceptions across the boundary"},
                      {"TokenLibraryLayout", "Texts, lists and exceptions across the boundary"},
                      {"LibraryException", "Texts, lists and exceptions across the boundary"},
                      {"Softtoken", "The software token and the system's cryptography"},
                      {"Log", "The log"},
                      {"AppendFile", "The log"},
                      {"Storm", "Threads"},
                      {"LibraryLock", "Threads"},
                      {"Mutex", "Threads"},
                      {"Monitor", "Threads"},
                      {"Unload", "Loading, unloading, the end of a process"},
                      {"PinResidue", "PINs in memory"},
                      {"FreedBlock", "PINs in memory"},
                      {"Secret", "PINs in memory"},
                      {"Soak", "Long use"}};
  const auto* const row =
      std::find_if(std::begin(rows), std::end(rows), [&](const Row& each) { return suite.starts_with(each.first); });
  return row != std::end(rows) ? row->second : "What a program asks the minidriver for";
}

}  // namespace orvane::trial
