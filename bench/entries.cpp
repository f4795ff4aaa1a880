#include <algorithm>

#include "counters.h"
#include "floor.h"
#include "sampling.h"
#include "sections.h"

namespace orvane::bench {
namespace {

using test::Before;
using test::CallOutputs;
using test::EntryCall;

// Runs of a call in one sample, where a call leaves everything as it was.
constexpr unsigned kBatch = 16;

// An acquisition, in the form of the other calls.
EntryCall acquisition(Scene& scene) {
  return {.name = "CardAcquireContext", .prepare = [&scene](CARD_DATA& record, CallOutputs&) -> std::function<DWORD()> {
            record.pfnCardDeleteContext(&record);
            record = scene.newRecord();
            return [&scene, &record] { return scene.acquire(record); };
          }};
}

std::vector<EntryCall> benchCalls(Scene& scene) {
  std::vector<EntryCall> calls = test::allCalls();
  // The list can be forgotten only once for a token.
  std::erase_if(calls, [](const EntryCall& call) { return call.before == Before::kListForgotten; });
  calls.insert(calls.begin(), acquisition(scene));
  return calls;
}

// Whether the call can be repeated at once.
bool isRepeatable(const EntryCall& call) {
  for (const char* const name : {"CardAcquireContext", "CardDeleteContext", "CardDeauthenticate", "CardChange",
                                 "CardAuthenticateEx on the token"}) {
    if (call.name.starts_with(name)) return false;
  }
  return true;
}

// One call with its arguments, made anew by prepare().
class Prepared {
 public:
  Prepared(Scene& scene, const EntryCall& call) : scene_(scene), call_(call) {}

  void prepare() {
    scene_.reset(record_, call_.before);
    outputs_ = std::make_unique<CallOutputs>(benchFree);
    run_ = call_.prepare(record_, *outputs_);
    outputs_->startCall();
    softtoken_clear_calls();
  }
  void run() { status_ = run_(); }
  DWORD status() const { return status_; }

 private:
  Scene& scene_;
  const EntryCall& call_;
  CARD_DATA record_{};
  std::unique_ptr<CallOutputs> outputs_;
  std::function<DWORD()> run_;
  DWORD status_ = 0;
};

// What the call does, learnt by watching it once with the log on.
Floor learnFloor(Scene& scene, Prepared& prepared) {
  Floor floor;
  scene.setDebugLog(true);
  prepared.prepare();
  prepared.run();
  prepared.prepare();
  scene.takeLog();
  takeRequests();
  takeTokenCalls();
  prepared.run();
  floor.lines = scene.takeLog();
  floor.requests = takeRequests();
  floor.tokenCalls = takeTokenCalls();
  scene.setDebugLog(false);
  return floor;
}

nlohmann::json countsOf(Prepared& prepared, const Floor& floor) {
  prepared.prepare();
  prepared.run();
  prepared.prepare();
  const Counts all = countDuring([&] { prepared.run(); });
  prepared.prepare();
  // What the token library and the strings that it takes need is not the entry point's.
  const Counts token = countDuring([&] { replayTokenCalls(floor.tokenCalls); });
  const auto own = [](std::uint64_t total, std::uint64_t part) { return total > part ? total - part : 0; };
  return {{"registryReads", all.registryReads},
          {"heapAllocations", own(all.heapAllocations, token.heapAllocations)},
          {"heapBytes", own(all.heapBytes, token.heapBytes)},
          {"locks", own(all.locks, token.locks)},
          {"tokenCalls", floor.tokenCalls.size()},
          {"returned", floor.requests}};
}

nlohmann::json measure(Scene& scene, const EntryCall& call, bool isLogOn, unsigned repetitions) {
  Prepared prepared(scene, call);
  Floor floor = learnFloor(scene, prepared);
  scene.setDebugLog(isLogOn);
  const std::string file = scene.logFile();
  const unsigned batch = isRepeatable(call) ? kBatch : 1;
  const std::function<void()> prepare = [&] {
    prepared.prepare();
    softtoken_clear_calls();
  };
  const auto times = timeInterleaved(
      {{prepare, [&] { prepared.run(); }, batch}, {prepare, [&] { runFloor(floor, isLogOn, file); }, batch}},
      repetitions);
  nlohmann::json result = {{"name", call.name},
                           {"log", isLogOn ? "on" : "off"},
                           {"status", prepared.status()},
                           {"lines", floor.lines.size()},
                           {"call", toJson(times[0])},
                           {"floor", toJson(times[1])},
                           {"ratio", times[0].median / times[1].median}};
  if (kCanCount) result["counts"] = countsOf(prepared, floor);
  scene.setDebugLog(false);
  scene.takeLog();
  return result;
}

}  // namespace

nlohmann::json measureEntries(unsigned repetitions) {
  Scene scene;
  nlohmann::json results = nlohmann::json::array();
  for (const EntryCall& call : benchCalls(scene)) {
    for (const bool isLogOn : {false, true}) results.push_back(measure(scene, call, isLogOn, repetitions));
  }
  return results;
}

void countEntryInstructions() {
  {
    Scene scene;
    for (const EntryCall& call : benchCalls(scene)) {
      Prepared prepared(scene, call);
      // Once without counting: the first call of a kind binds its symbols.
      prepared.prepare();
      prepared.run();
      prepared.prepare();
      countInstructions(call.name.c_str(), [&] { prepared.run(); });
    }
  }
  for (const unsigned keys : {1u, 6u, 64u, 255u}) {
    Scene scene(keys);
    // The first counter after a change of scenes has something of the change in it.
    countInstructions("(a new scene)", [] {});
    for (const EntryCall& call : benchCalls(scene)) {
      if (call.name != "CardReadFile cmapfile" && call.name != "CardEnumFiles \"mscp\"" &&
          call.name != "CardGetContainerProperty Container Info") {
        continue;
      }
      Prepared prepared(scene, call);
      prepared.prepare();
      prepared.run();
      prepared.prepare();
      countInstructions((call.name + "/" + std::to_string(keys)).c_str(), [&] { prepared.run(); });
    }
  }
}

}  // namespace orvane::bench
