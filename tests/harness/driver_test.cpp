#include "driver_test.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <random>
#include <string_view>
#include <utility>

#include "caller_memory.h"
#include "driver_loader.h"
#include "log_reader.h"
#include "machine.h"
#include "recorded_calls.h"
#include "support/hex_text.h"

namespace orvane::test {
namespace fs = std::filesystem;
namespace {

constexpr const char* kListCall = "orvane_getConnectedDeviceList";
constexpr const char* kMonitorStart = "D Device monitor thread started.";
constexpr unsigned kLongMs = 120000;  // bounds a test that fails; one that works never waits so long
constexpr SYSTEMTIME kFixedTime = {2026, 11, 0, 15, 10, 3, 25, 123};
constexpr std::size_t kShortPin = 6;

constexpr BYTE kAtr[] = {0x3B, 0x8E, 0x80, 0x01, 0x50, 0x4B, 0x03, 0x58, 0x58, 0x58,
                         0x5F, 0x44, 0x53, 0x43, 0x5F, 0x4B, 0x45, 0x59, 0x4C};
constexpr wchar_t kCardName[] = L"Orvane test card";

// Taken once: on Windows the tests change what the system answers.
const fs::path& machineTempFolder() {
  static const fs::path folder = fs::temp_directory_path();
  return folder;
}

// Contexts that a test left behind are kept reachable: the record that pointed to them is gone by then.
std::vector<void*>& acquiredContexts() {
  static auto* const contexts = new std::vector<void*>;
  return *contexts;
}

std::string twoDigits(unsigned value) {
  char text[8];
  std::snprintf(text, sizeof(text), "%02u", value);
  return text;
}

}  // namespace

struct DriverTest::State {
  fs::path tempFolder;
  LogReader log;
  std::string allLogText;  // messages only
  unsigned monitorStarts = 0;
  bool isMonitorStarted = false;
  bool isMonitorOpen = false;
  std::vector<std::string> pins;
  std::array<BYTE, sizeof(kAtr)> atr{};
  std::array<wchar_t, std::size(kCardName)> cardName{};

  Lines takeLog() {
    machine::startThreads();
    Lines lines = log.take();
    for (const std::string& line : lines) allLogText += line.substr(2) + "\n";
    const auto starts = std::remove(lines.begin(), lines.end(), kMonitorStart);
    monitorStarts += static_cast<unsigned>(lines.end() - starts);
    lines.erase(starts, lines.end());
    return lines;
  }

  void load() {
    softtoken_gate(kListCall, 1);
    isMonitorStarted = false;
    isMonitorOpen = false;
    loadDriver();
  }

  void unload() {
    machine::startThreads();
    softtoken_gate(kListCall, 0);
    unloadDriver();
  }
};

DriverTest::DriverTest() : state_(std::make_unique<State>()) {}
DriverTest::~DriverTest() = default;

void DriverTest::SetUp() {
  softtoken_reset();
  softtoken_set_folder("");
  CallerMemory::instance().reset();
  std::copy(std::begin(kAtr), std::end(kAtr), state_->atr.begin());
  std::copy(std::begin(kCardName), std::end(kCardName), state_->cardName.begin());
  state_->tempFolder = machineTempFolder() / ("orvane-test-" + std::to_string(std::random_device()()));
  fs::create_directories(logFolder());
  state_->log.open(logFolder());
  setTempFolder(tempFolder());
  setLocalTime(kFixedTime);
  setDebugLog(true);
  machine::takeTransmissions();
  state_->load();
}

void DriverTest::TearDown() {
  state_->unload();
  takeLog();
  for (const std::string& pin : state_->pins) {
    const std::string digits = hexText(reinterpret_cast<const unsigned char*>(pin.data()), pin.size());
    EXPECT_EQ(state_->allLogText.find(pin), std::string::npos) << "the log contains a PIN";
    EXPECT_EQ(state_->allLogText.find(digits), std::string::npos) << "the log contains a PIN in hexadecimal";
    std::string wide;
    for (const char c : pin) wide.append({c, '\0'});
    EXPECT_EQ(state_->allLogText.find(wide), std::string::npos) << "the log contains a PIN in UTF-16";
  }
  EXPECT_EQ(CallerMemory::instance().reset(), Lines{});
  softtoken_reset();
  setLogLevel({});
  setLocalTime(std::nullopt);
  setTempFolder(machineTempFolder().string());
  fs::remove_all(state_->tempFolder);
}

CARD_DATA DriverTest::newRecord() {
  CARD_DATA record;
  static_assert(sizeof(record) % sizeof(std::uint64_t) == 0);
  auto* const bytes = reinterpret_cast<unsigned char*>(&record);
  for (std::size_t offset = 0; offset < sizeof(record); offset += sizeof(std::uint64_t)) {
    const std::uint64_t value = 0xC0FFEE0000000000 + offset;
    std::memcpy(bytes + offset, &value, sizeof(value));
  }
  record.dwVersion = CARD_DATA_CURRENT_VERSION;
  record.pbAtr = state_->atr.data();
  record.cbAtr = static_cast<DWORD>(state_->atr.size());
  record.pwszCardName = state_->cardName.data();
  record.pfnCspAlloc = CallerMemory::allocate;
  record.pfnCspReAlloc = CallerMemory::reallocate;
  record.pfnCspFree = CallerMemory::release;
  record.hScard = 0;
  return record;
}

DWORD DriverTest::acquire(CARD_DATA& record, DWORD flags) {
  machine::setResourceManager(resourceManager);
  const auto cardAcquireContext = reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(exportNamed("CardAcquireContext"));
  const DWORD status = cardAcquireContext(&record, flags);
  if (status == SCARD_S_SUCCESS) acquiredContexts().push_back(record.pvVendorSpecific);
  // The device list is asked for right after the monitor was started.
  for (const std::string& call : recordedCalls(kSofttokenOnlyThread, softtoken_thread())) {
    if (call.compare(0, std::strlen(kListCall), kListCall) == 0) state_->isMonitorStarted = true;
  }
  machine::startThreads();
  if (state_->isMonitorStarted && !state_->isMonitorOpen) {
    EXPECT_EQ(softtoken_wait_held(kListCall, kLongMs), 1) << "the monitor thread does not poll";
  }
  return status;
}

void DriverTest::acquireQuietly(CARD_DATA& record) {
  ASSERT_EQ(acquire(record), DWORD{SCARD_S_SUCCESS});
  forget();
}

void DriverTest::reloadDriver() {
  state_->unload();
  state_->load();
}

void* DriverTest::exportNamed(const char* name) { return driverExport(name); }

void DriverTest::defineToken(const char* serial, const std::vector<OrvaneKeyPair>& keys) {
  const SofttokenTokenDefinition definition{serial, "2.1.0", "1234", "12345678", 3, 3, 0, 0, kSofttokenKeep};
  ASSERT_EQ(softtoken_define_token(&definition), 1);
  for (const OrvaneKeyPair& key : keys) ASSERT_EQ(softtoken_add_key(serial, &key), 1);
  addPin("12345678");
}

void DriverTest::queueResult(const char* function, long long result, int attempts, int length, const Bytes& output) {
  const SofttokenReaction reaction{
      kSofttokenAnswer, 0, result, attempts, length, output.empty() ? nullptr : output.data(), output.size()};
  ASSERT_EQ(softtoken_queue(function, &reaction), 1) << function;
}

void DriverTest::queueThrow(const char* function) {
  const SofttokenReaction reaction{kSofttokenThrow, 0, 0, kSofttokenKeep, kSofttokenKeep, nullptr, 0};
  ASSERT_EQ(softtoken_queue(function, &reaction), 1) << function;
}

void DriverTest::signWithPreparedAnswer(CARD_DATA& record) {
  queueResult("orvane_signHash", 0, kSofttokenKeep, 4, {1, 2, 3, 4});
  Bytes hash(32, 0x11);
  CARD_SIGNING_INFO info{};
  info.pbData = hash.data();
  info.cbData = static_cast<DWORD>(hash.size());
  EXPECT_EQ(record.pfnCardSignData(&record, &info), 0u);
  if (info.pbSignedData != nullptr) freeBuffer(info.pbSignedData);
}

Lines DriverTest::takeLog() { return state_->takeLog(); }

unsigned DriverTest::takeMonitorStarts() { return std::exchange(state_->monitorStarts, 0); }

Lines DriverTest::takeCalls() {
  Lines calls = recordedCalls(kSofttokenOnlyThread, softtoken_thread());
  softtoken_clear_calls();
  return calls;
}

void DriverTest::forget() {
  takeLog();
  takeCalls();
}

Lines DriverTest::takeTransmissions() { return machine::takeTransmissions(); }

void DriverTest::failAllocationsAfter(std::optional<unsigned> count) { CallerMemory::instance().failAfter(count); }

std::vector<std::size_t> DriverTest::takeAllocations() { return CallerMemory::instance().takeRequests(); }

Bytes DriverTest::takeBuffer(void* buffer, std::size_t size) {
  const auto allocated = CallerMemory::instance().sizeOf(buffer);
  if (!allocated) {
    ADD_FAILURE() << "not a buffer of the caller's allocator: " << buffer;
    return {};
  }
  EXPECT_EQ(*allocated, size);
  const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
  const Bytes content(bytes, bytes + std::min(*allocated, size));
  freeBuffer(buffer);
  return content;
}

void DriverTest::freeBuffer(void* buffer) { CallerMemory::release(buffer); }

void DriverTest::setLogLevel(const LogLevelValue& value) { machine::setLogLevel(value); }

void DriverTest::setDebugLog(bool on) {
  LogLevelValue value;
  if (on) {
    value.type = LogLevelValue::Type::kNumber;
    value.number = 3;
  }
  setLogLevel(value);
}

void DriverTest::setLocalTime(const std::optional<SYSTEMTIME>& time) { machine::setLocalTime(time); }

std::string DriverTest::tempFolder() const { return state_->tempFolder.string(); }

void DriverTest::setTempFolder(const std::optional<std::string>& folder) { machine::setTempFolder(folder); }

std::string DriverTest::logFile() const {
  const std::string date =
      std::to_string(kFixedTime.wYear) + "-" + twoDigits(kFixedTime.wMonth) + "-" + twoDigits(kFixedTime.wDay);
  return logFolder() + "/" + date + ".LOG";
}

std::string DriverTest::logFolder() const { return tempFolder() + "/Brightfold/" + machine::processName(); }

void DriverTest::pollMonitor() {
  ASSERT_TRUE(state_->isMonitorStarted && !state_->isMonitorOpen) << "no monitor thread is held";
  ASSERT_EQ(softtoken_wait_held(kListCall, kLongMs), 1);
  ASSERT_EQ(softtoken_gate_pass(kListCall, 1), 1);
  ASSERT_EQ(softtoken_wait_held(kListCall, kLongMs), 1) << "the monitor thread does not poll again";
}

void DriverTest::openMonitor() {
  machine::startThreads();
  state_->isMonitorOpen = true;
  softtoken_gate(kListCall, 0);
}

void DriverTest::addPin(const std::string& pin, bool searchShort) {
  if (pin.size() >= kShortPin || searchShort) state_->pins.push_back(pin);
}

}  // namespace orvane::test
