#include "scene.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "harness/driver_loader.h"
#include "harness/machine.h"
#include "harness/plain_record.h"
#include "harness/recorded_calls.h"

namespace orvane::bench {
namespace {

constexpr const char* kPolled = "orvane_getConnectedDeviceList";
constexpr std::size_t kRingSize = std::size_t{1} << 24;

thread_local std::vector<std::uint64_t> ring(kRingSize / sizeof(std::uint64_t));
thread_local std::size_t ringPosition = 0;
thread_local std::vector<std::size_t> requests;
thread_local bool areRequestsNoted = false;

void expect(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string("the scene cannot be set: ") + what);
}

}  // namespace

extern "C" LPVOID WINAPI benchAllocate(SIZE_T size) {
  if (areRequestsNoted) requests.push_back(size);
  const std::size_t units = (size + sizeof(std::uint64_t)) / sizeof(std::uint64_t);
  if (ringPosition + units > ring.size()) ringPosition = 0;
  if (units > ring.size()) return nullptr;
  void* const block = &ring[ringPosition];
  ringPosition += units;
  return block;
}
extern "C" LPVOID WINAPI benchReallocate(LPVOID, SIZE_T) { return nullptr; }
extern "C" void WINAPI benchFree(LPVOID) {}

std::vector<std::size_t> takeRequests() {
  areRequestsNoted = true;
  return std::exchange(requests, {});
}

std::vector<std::string> takeTokenCalls() {
  std::vector<std::string> names;
  for (const std::string& call : test::recordedCalls(kSofttokenOnlyThread, softtoken_thread())) {
    names.push_back(call.substr(0, call.find('(')));
  }
  softtoken_clear_calls();
  return names;
}

Scene::Scene(unsigned keys) : keys_(keys) {
  // The first scene's answer: setting one changes what the system says.
  static const std::filesystem::path temporary = std::filesystem::temp_directory_path();
  folder_ = (temporary / "orvane-bench").string();
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(std::filesystem::path(folder_) / "Brightfold" / test::machine::processName());
  test::machine::setTempFolder(folder_);
  setDebugLog(false);
  softtoken_reset();
  softtoken_set_folder("");
  defineToken();
  test::loadDriver();
  expect(softtoken_gate(kPolled, 1) == 1, "gate");
  CARD_DATA record = newRecord();
  expect(acquire(record) == 0, "first acquisition");
  test::machine::startThreads();
  expect(softtoken_wait_held(kPolled, 120000) == 1, "monitor");
  expect(record.pfnCardDeleteContext(&record) == 0, "first context");
}

Scene::~Scene() {
  softtoken_gate(kPolled, 0);
  test::unloadDriver();
  setDebugLog(false);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void Scene::defineToken(const std::string& serial) {
  test::TestToken token{.serial = serial, .certificateLength = 1200};
  for (unsigned i = 0; i < keys_; ++i) token.keys.push_back(test::makeKey(static_cast<std::uint8_t>(i + 1), 3));
  test::defineToken(token);
}

void Scene::removeToken(const std::string& serial) { softtoken_set_connected(serial.c_str(), 0); }

CARD_DATA Scene::newRecord() { return test::plainRecord(benchAllocate, benchReallocate, benchFree); }

DWORD Scene::acquire(CARD_DATA& record) {
  static void* loaded = nullptr;
  static PFN_CARD_ACQUIRE_CONTEXT function = nullptr;
  if (void* const address = test::driverExport("CardAcquireContext"); address != loaded) {
    loaded = address;
    function = reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(address);
  }
  return function(&record, 0);
}

void Scene::reset(CARD_DATA& record, test::Before before) {
  defineToken();
  if (record.pvVendorSpecific == nullptr) {
    record = newRecord();
    expect(acquire(record) == 0, "acquisition");
  }
  record.hScard = test::kCardHandle;
  record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0);
  test::bringAbout(record, before);
  softtoken_clear_calls();
}

void Scene::setDebugLog(bool isOn) { test::machine::setDebugLog(isOn); }

std::string Scene::logFile() const {
  const std::filesystem::path logs = std::filesystem::path(folder_) / "Brightfold" / test::machine::processName();
  for (const auto& entry : std::filesystem::directory_iterator(logs)) return entry.path().string();
  return (logs / "plain.LOG").string();
}

std::vector<std::string> Scene::takeLog() {
  std::vector<std::string> lines;
  const std::string path = logFile();
  {
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
  }
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  return lines;
}

}  // namespace orvane::bench
