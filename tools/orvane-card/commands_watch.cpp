// The command that watches the freshness counters: watch.
#include <chrono>
#include <thread>

#include "commands.h"
#include "core/status_names.h"
#include "core/tool_error.h"

namespace orvane::tool {
namespace {

using Clock = std::chrono::steady_clock;

std::string localTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  const auto twoDigits = [](WORD value) { return (value < 10 ? "0" : "") + std::to_string(value); };
  return twoDigits(now.wHour) + ":" + twoDigits(now.wMinute) + ":" + twoDigits(now.wSecond);
}

// What one look at "cardcf" gave: its counters, or why it could not be read.
std::string look(CardSession& card) {
  try {
    const Freshness freshness = decodeFreshness(card.readFile(parseCardPath("cardcf")));
    return "version " + std::to_string(freshness.version) + ", PINs " + std::to_string(freshness.pins) +
           ", containers " + std::to_string(freshness.containers) + ", files " + std::to_string(freshness.files);
  } catch (const ToolError& error) {
    return error.what();
  }
}

}  // namespace

Json runWatch(Environment& environment, const WatchOptions& options) {
  CardSession& card = environment.card();
  const Clock::time_point start = Clock::now();
  const auto goesOn = [&] {
    return !options.duration || Clock::now() - start < std::chrono::duration<double>(*options.duration);
  };
  Json changes = Json::array();
  std::string last;
  for (bool first = true; first || goesOn(); first = false) {
    if (!first) std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    std::string now = look(card);
    if (now == last) continue;
    const std::string time = localTime();
    environment.output().text(time + "  " + now + "\n");
    changes.push_back({{"time", time}, {"state", now}});
    last = std::move(now);
  }
  return {{"changes", std::move(changes)}};
}

}  // namespace orvane::tool
