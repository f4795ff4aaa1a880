#include <atomic>
#include <chrono>
#include <thread>

#include "floor.h"
#include "sampling.h"
#include "scene.h"
#include "sections.h"

namespace orvane::bench {
namespace {

using test::Before;

constexpr unsigned kBatch = 16;
// Calls of each thread: enough to outlast the start of the others.
#ifdef _WIN32
constexpr unsigned kCallsOfThread = 64;
#else
constexpr unsigned kCallsOfThread = 2048;
#endif

std::string serialOf(unsigned index) { return "00" + std::to_string(100000 + index); }

DWORD readFile(CARD_DATA& record, const char* directory, const char* name) {
  PBYTE data = nullptr;
  DWORD size = 0;
  return record.pfnCardReadFile(&record, const_cast<LPSTR>(directory), const_cast<LPSTR>(name), 0, &data, &size);
}

DWORD enumFiles(CARD_DATA& record) {
  LPSTR names = nullptr;
  DWORD size = 0;
  return record.pfnCardEnumFiles(&record, const_cast<LPSTR>("mscp"), &names, &size, 0);
}

DWORD containerInfo(CARD_DATA& record, unsigned index) {
  CONTAINER_INFO info{};
  DWORD length = 0;
  return record.pfnCardGetContainerProperty(&record, static_cast<BYTE>(index), CCP_CONTAINER_INFO,
                                            reinterpret_cast<PBYTE>(&info), sizeof(info), &length, 0);
}

void readOnlyProperty(CARD_DATA& record) {
  BOOL value = FALSE;
  DWORD length = 0;
  record.pfnCardGetProperty(&record, CP_CARD_READ_ONLY, reinterpret_cast<PBYTE>(&value), sizeof(value), &length, 0);
}

// Four log calls and six bytes for the caller.
const Floor kCardCfFloor = {std::vector<std::string>(4), {6}, {}};

void acquireFor(Scene& scene, CARD_DATA& record, const std::string& serial) {
  scene.defineToken(serial);
  record = scene.newRecord();
  if (scene.acquire(record) != 0) throw std::runtime_error("acquisition");
  // The first token of the list was bound; the caller may name another.
  std::vector<wchar_t> name(serial.begin(), serial.end());
  name.push_back(0);
  if (record.pfnCardSetProperty(&record, CP_CARD_SERIAL_NO, reinterpret_cast<PBYTE>(name.data()),
                                static_cast<DWORD>(serial.size() * sizeof(wchar_t)), 0) != 0) {
    throw std::runtime_error("serial");
  }
}

nlohmann::json withContainers(unsigned repetitions) {
  nlohmann::json results = nlohmann::json::array();
  for (const unsigned keys : {1u, 6u, 64u, 255u}) {
    Scene scene(keys);
    CARD_DATA record{};
    scene.reset(record, Before::kPinUnknown);
    const auto times = timeInterleaved({{{}, [&] { readFile(record, "mscp", "cmapfile"); }, kBatch},
                                        {{}, [&] { enumFiles(record); }, kBatch},
                                        {{}, [&] { containerInfo(record, keys - 1); }, kBatch}},
                                       repetitions);
    results.push_back({{"containers", keys},
                       {"cmapfile", toJson(times[0])},
                       {"CardEnumFiles", toJson(times[1])},
                       {"CardGetContainerProperty", toJson(times[2])}});
    record.pfnCardDeleteContext(&record);
  }
  return results;
}

nlohmann::json withTokens(unsigned repetitions) {
  nlohmann::json results = nlohmann::json::array();
  for (const unsigned tokens : {1u, 4u, 16u, 64u}) {
    Scene scene;
    std::vector<CARD_DATA> records(tokens);
    for (unsigned i = 0; i < tokens; ++i) acquireFor(scene, records[i], serialOf(i));
    CARD_DATA& last = records.back();
    const auto times = timeInterleaved({{{}, [&] { readFile(last, "", "cardcf"); }, kBatch},
                                        {{}, [&] { readFile(last, "mscp", "cmapfile"); }, kBatch}},
                                       repetitions);
    results.push_back({{"tokens", tokens}, {"cardcf", toJson(times[0])}, {"cmapfile", toJson(times[1])}});
    for (CARD_DATA& record : records) record.pfnCardDeleteContext(&record);
    for (unsigned i = 0; i < tokens; ++i) Scene::removeToken(serialOf(i));
  }
  return results;
}

// All threads make the same number of calls at the same time, each on a record of its own; the result is nanoseconds of
// one call of the process.
double timeThreads(std::vector<CARD_DATA>& records, unsigned calls, void (*call)(CARD_DATA&)) {
  std::atomic<unsigned> ready{0};
  std::atomic<bool> isBegun{false};
  std::vector<std::thread> threads;
  for (CARD_DATA& record : records) {
    threads.emplace_back([&] {
      benchAllocate(1);
      ++ready;
      while (!isBegun) std::this_thread::yield();
      for (unsigned i = 0; i < calls; ++i) call(record);
    });
  }
  while (ready < records.size()) std::this_thread::yield();
  const auto begin = std::chrono::steady_clock::now();
  isBegun = true;
  for (std::thread& thread : threads) thread.join();
  const auto end = std::chrono::steady_clock::now();
  return std::chrono::duration<double, std::nano>(end - begin).count() / (calls * static_cast<double>(records.size()));
}

nlohmann::json withThreads(unsigned repetitions) {
  nlohmann::json results = nlohmann::json::array();
  Scene scene;
  for (const unsigned threads : {1u, 2u, 4u, 16u, 64u}) {
    std::vector<CARD_DATA> records(threads);
    for (unsigned i = 0; i < threads; ++i) acquireFor(scene, records[i], serialOf(i));
    std::vector<double> calls;
    std::vector<double> properties;
    std::vector<double> floors;
    for (unsigned i = 0; i < repetitions / 4 + 3; ++i) {
      calls.push_back(timeThreads(records, kCallsOfThread, [](CARD_DATA& record) { readFile(record, "", "cardcf"); }));
      properties.push_back(timeThreads(records, kCallsOfThread, readOnlyProperty));
      floors.push_back(timeThreads(records, kCallsOfThread, [](CARD_DATA&) { runFloor(kCardCfFloor, false, ""); }));
    }
    results.push_back({{"threads", threads},
                       {"cardcf", toJson(spreadOf(calls))},
                       {"property", toJson(spreadOf(properties))},
                       {"floor", toJson(spreadOf(floors))}});
    for (CARD_DATA& record : records) record.pfnCardDeleteContext(&record);
  }
  for (unsigned i = 0; i < 64; ++i) Scene::removeToken(serialOf(i));
  return results;
}

// Times "cardcf" and a fixed property while another thread is inside a signature that does not come to its end, and
// while none is.
nlohmann::json besideASlowSignature(unsigned repetitions) {
  Scene scene;
  CARD_DATA signing{};
  CARD_DATA record{};
  scene.reset(record, Before::kPinUnknown);
  scene.reset(signing, Before::kPinCached);
  const auto timeReads = [&] {
    return timeInterleaved(
        {{{}, [&] { readFile(record, "", "cardcf"); }, kBatch}, {{}, [&] { readOnlyProperty(record); }, kBatch}},
        repetitions);
  };
  const auto alone = timeReads();
  softtoken_gate("orvane_signHash", 1);
  std::thread signer([&] {
    std::vector<BYTE> hash(32, 'h');
    CARD_SIGNING_INFO info{};
    info.dwVersion = 2;
    info.pbData = hash.data();
    info.cbData = 32;
    signing.pfnCardSignData(&signing, &info);
  });
  softtoken_wait_held("orvane_signHash", 120000);
  const auto beside = timeReads();
  softtoken_gate("orvane_signHash", 0);
  signer.join();
  record.pfnCardDeleteContext(&record);
  signing.pfnCardDeleteContext(&signing);
  return {{"cardcf", {{"alone", toJson(alone[0])}, {"beside", toJson(beside[0])}}},
          {"property", {{"alone", toJson(alone[1])}, {"beside", toJson(beside[1])}}}};
}

}  // namespace

nlohmann::json measureGrowth(unsigned repetitions) {
  return {{"containers", withContainers(repetitions)},
          {"tokens", withTokens(repetitions)},
          {"threads", withThreads(repetitions)},
          {"slowSignature", besideASlowSignature(repetitions)}};
}

}  // namespace orvane::bench
