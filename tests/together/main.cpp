// The storm: rounds of everything in trouble at once, for so long or so many. scripts/storm builds and runs it.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "together/counted_memory.h"
#include "together/round.h"
#include "together/silence.h"

namespace orvane::test {
namespace {

struct Options {
  std::uint64_t seed = std::random_device()();
  std::uint64_t firstRound = 0;
  std::optional<std::uint64_t> rounds;
  std::optional<std::uint64_t> seconds;
  unsigned threads = 0;
  bool isSingleThreaded = false;
  bool isPrinted = false;  // the rounds' sequences
  bool goesOn = false;     // after a finding
};

[[noreturn]] void usage() {
  std::fputs(
      "usage: orvane_storm [--seed N] [--rounds N] [--seconds N] [--first-round N] [--threads N] [--single] [--print]\n"
      "                    [--go-on]\n",
      stderr);
  std::exit(2);
}

Options optionsOf(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; ++i) {
    const std::string_view name = arguments[i];
    const auto number = [&]() -> std::uint64_t {
      char* end = nullptr;
      if (++i == count) usage();
      const std::uint64_t value = std::strtoull(arguments[i], &end, 10);
      if (end == arguments[i] || *end != '\0') usage();
      return value;
    };
    if (name == "--seed") {
      options.seed = number();
    } else if (name == "--rounds") {
      options.rounds = number();
    } else if (name == "--seconds") {
      options.seconds = number();
    } else if (name == "--first-round") {
      options.firstRound = number();
    } else if (name == "--threads") {
      options.threads = static_cast<unsigned>(number());
      if (options.threads > kMostContexts) usage();
    } else if (name == "--single") {
      options.isSingleThreaded = true;
    } else if (name == "--print") {
      options.isPrinted = true;
    } else if (name == "--go-on") {
      options.goesOn = true;
    } else {
      usage();
    }
  }
  if (!options.rounds && !options.seconds) options.rounds = 100;
  return options;
}

void print(const Plan& plan) {
  std::vector<std::size_t> next(plan.callers.size() + 1);
  for (const unsigned turn : plan.turns) {
    const std::size_t position = next[turn]++;
    const bool isCaller = turn < plan.callers.size();
    const std::string text = isCaller ? textOf(plan.callers[turn][position]) : textOf(plan.troubles[position]);
    const std::string who = isCaller ? "caller " + std::to_string(turn) : "around";
    std::fprintf(stderr, "  %s: %s\n", who.c_str(), text.c_str());
  }
}

// Which round it is, for the last word of a process that dies in it.
char currentRound[160] = "before the first round\n";

void sayRound() {
  const ssize_t written = write(STDERR_FILENO, currentRound, std::strlen(currentRound));
  static_cast<void>(written);
}

void dieSaying(int signal) {
  sayRound();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// A run under way, and its end. A signal ends it after the round.
volatile std::sig_atomic_t isStopped = 0;

class Run {
 public:
  explicit Run(const Options& options) : options_(options) {
    folder_ = std::filesystem::temp_directory_path() / ("orvane-storm-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
  }
  ~Run() { std::filesystem::remove_all(folder_); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  int play() {
    const auto begun = std::chrono::steady_clock::now();
    const auto seconds = [&] {
      return static_cast<std::uint64_t>(
          std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begun).count());
    };
    memory_.startOutside();
    memory_.forgetAll();
    std::uint64_t said = 0;
    while (!isStopped && (!options_.rounds || rounds_ < *options_.rounds) &&
           (!options_.seconds || seconds() < *options_.seconds) && (findings_ == 0 || options_.goesOn)) {
      playRound(options_.firstRound + rounds_);
      ++rounds_;
      if (seconds() < said + 600) continue;
      said = seconds();
      report(seconds(), "so far");
    }
    report(seconds(), "done");
    return findings_ == 0 ? 0 : 1;
  }

 private:
  void playRound(std::uint64_t round) {
    const Plan plan = drawPlan(derivedSeed(options_.seed, round), options_.threads, options_.isSingleThreaded);
    std::snprintf(currentRound, sizeof(currentRound), "DIED, seed %llu, round %llu (%zu callers%s)\n",
                  asNumber(options_.seed), asNumber(round), plan.callers.size(),
                  plan.isSingleThreaded ? ", single thread" : "");
    if (options_.isPrinted) print(plan);
    std::vector<std::string> found;
    {
      const Silence silence;
      found = runRound(plan, memory_, folder_, tally_);
    }
    findings_ += found.size();
    for (const std::string& text : found) {
      std::fprintf(stderr, "FOUND, seed %llu, round %llu (%zu callers%s): %s\n", asNumber(options_.seed),
                   asNumber(round), plan.callers.size(), plan.isSingleThreaded ? ", single thread" : "", text.c_str());
    }
    // What was counted in a round that left something is not to be counted again.
    if (!found.empty()) memory_.forgetAll();
  }

  void report(std::uint64_t seconds, const char* what) const {
    std::fprintf(stderr, "storm %s: seed %llu, rounds %llu to %llu, %llu s, findings %zu\n%s", what,
                 asNumber(options_.seed), asNumber(options_.firstRound), asNumber(options_.firstRound + rounds_),
                 asNumber(seconds), findings_, tally_.text().c_str());
  }

  static unsigned long long asNumber(std::uint64_t value) { return value; }

  Options options_;
  std::filesystem::path folder_;
  CountedMemory memory_;
  Tally tally_;
  std::uint64_t rounds_ = 0;
  std::size_t findings_ = 0;
};

}  // namespace
}  // namespace orvane::test

#ifdef ORVANE_TESTS_SANITIZED
extern "C" void __sanitizer_set_death_callback(void (*callback)());
#endif

int main(int count, char** arguments) {
  const orvane::test::Options options = orvane::test::optionsOf(count, arguments);
  for (const int signal : {SIGINT, SIGTERM}) {
    std::signal(signal, [](int) { orvane::test::isStopped = 1; });
  }
#ifdef ORVANE_TESTS_SANITIZED
  __sanitizer_set_death_callback(orvane::test::sayRound);
#else
  std::signal(SIGSEGV, orvane::test::dieSaying);
#endif
  std::signal(SIGABRT, orvane::test::dieSaying);
  return orvane::test::Run(options).play();
}
