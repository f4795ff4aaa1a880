#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "counters.h"
#include "floor.h"
#include "harness/driver_loader.h"
#include "sampling.h"
#include "sections.h"
#include "soak/process_usage.h"
#ifndef _WIN32
#include "cache/device_monitor.h"
#endif

namespace orvane::bench {
namespace {

using test::Before;

constexpr unsigned kContexts = 1000;

nlohmann::json memory() {
  Scene scene;
  std::vector<CARD_DATA> records(kContexts);
  CARD_DATA first{};
  scene.reset(first, Before::kPinUnknown);
  softtoken_clear_calls();
  const std::uint64_t before = heapInUse();
  for (CARD_DATA& record : records) {
    record = scene.newRecord();
    if (scene.acquire(record) != 0) throw std::runtime_error("acquisition");
    softtoken_clear_calls();
  }
  const std::uint64_t after = heapInUse();
  for (CARD_DATA& record : records) record.pfnCardDeleteContext(&record);
  const std::uint64_t released = heapInUse();
  first.pfnCardDeleteContext(&first);
  return {{"contexts", kContexts},
          {"bytesPerContext", static_cast<double>(after - before) / kContexts},
          {"bytesLeftPerContext", (static_cast<double>(released) - static_cast<double>(before)) / kContexts}};
}

#ifdef _WIN32

nlohmann::json loading(unsigned repetitions) {
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring path = (std::filesystem::path(program).parent_path() / L"OrvaneMinidriver.dll").wstring();
  std::vector<double> loads;
  std::vector<double> frees;
  const std::size_t threadsBefore = test::processUsage().threads;
  std::size_t threadsAfter = 0;
  for (unsigned i = 0; i <= repetitions; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    const HMODULE module = LoadLibraryW(path.c_str());
    const auto middle = std::chrono::steady_clock::now();
    threadsAfter = test::processUsage().threads;
    const auto second = std::chrono::steady_clock::now();
    FreeLibrary(module);
    const auto end = std::chrono::steady_clock::now();
    loads.push_back(std::chrono::duration<double, std::nano>(middle - begin).count());
    frees.push_back(std::chrono::duration<double, std::nano>(end - second).count());
  }
  return {{"load", toJson(spreadOf(loads))},
          {"free", toJson(spreadOf(frees))},
          {"threadsStarted", static_cast<int>(threadsAfter) - static_cast<int>(threadsBefore)}};
}

nlohmann::json monitorPoll(unsigned) { return nullptr; }

#else

nlohmann::json loading(unsigned) { return nullptr; }

nlohmann::json monitorPoll(unsigned repetitions) {
  Scene scene;
  CARD_DATA record{};
  scene.reset(record, Before::kPinUnknown);
  DeviceMonitor::KnownDevices known;
  DeviceMonitor::pollDevices(known);
  const auto times = timeInterleaved(
      {{[] { softtoken_clear_calls(); }, [&] { DeviceMonitor::pollDevices(known); }, 16},
       {[] { softtoken_clear_calls(); }, [] { replayTokenCalls({"orvane_getConnectedDeviceList"}); }, 16}},
      repetitions);
  record.pfnCardDeleteContext(&record);
  return {{"poll", toJson(times[0])}, {"token", toJson(times[1])}};
}

#endif

std::filesystem::path testTokens() {
#ifdef _WIN32
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  return std::filesystem::path(program).parent_path() / "test-tokens";
#else
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "test-tokens";
#endif
}

// A signature by a token that does no arithmetic shows our own time; one by a token with a real key shows the whole.
nlohmann::json signature(unsigned repetitions) {
  const auto sign = [](CARD_DATA& record, BYTE container) {
    std::vector<BYTE> hash(32, 'h');
    CARD_SIGNING_INFO info{};
    info.dwVersion = 2;
    info.bContainerIndex = container;
    info.pbData = hash.data();
    info.cbData = 32;
    if (record.pfnCardSignData(&record, &info) != 0) throw std::runtime_error("signature");
  };
  Scene scene;
  CARD_DATA record{};
  scene.reset(record, Before::kPinCached);
  const auto own = timeInterleaved({{[] { softtoken_clear_calls(); }, [&] { sign(record, 0); }, 16},
                                    {[] { softtoken_clear_calls(); },
                                     [] {
                                       replayTokenCalls({"orvane_setExternalSmartcardHandle", "orvane_signHash",
                                                         "orvane_clearExternalSmartcardHandle"});
                                     },
                                     16}},
                                   repetitions);
  record.pfnCardDeleteContext(&record);
  Scene::removeToken(test::kSerial);
  softtoken_set_folder(testTokens().string().c_str());
  record = scene.newRecord();
  if (scene.acquire(record) != 0) throw std::runtime_error("acquisition");
  std::string pin = "1234";
  if (record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, reinterpret_cast<PBYTE>(pin.data()), 4, nullptr, nullptr,
                                   nullptr) != 0) {
    throw std::runtime_error("PIN of the real token");
  }
  const auto real = timeInterleaved({{[] { softtoken_clear_calls(); }, [&] { sign(record, 0); }, 1}}, repetitions);
  record.pfnCardDeleteContext(&record);
  return {{"ours", own[0].median - own[1].median}, {"whole", toJson(real[0])}};
}

}  // namespace

nlohmann::json measureResources(unsigned repetitions) {
  // Loading first, while nothing of the minidriver has ever been there.
  const nlohmann::json loads = loading(repetitions);
  return {{"loading", loads},
          {"memory", kCanCount ? memory() : nlohmann::json()},
          {"monitor", monitorPoll(repetitions)},
          {"signature", signature(repetitions)}};
}

}  // namespace orvane::bench
