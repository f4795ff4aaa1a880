#include "harness/driver_test.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string_view>
#include <utility>

#include "caller_memory.h"
#include "driver_loader.h"
#include "log_reader.h"
#include "plain_record.h"
#include "recorded_calls.h"
#include "support/hex_text.h"

namespace orvane::test {
namespace fs = std::filesystem;
namespace {

constexpr const char* kListCall = "orvane_getConnectedDeviceList";
constexpr const char* kMonitorStart = "D Device monitor thread started.";
constexpr unsigned kLongMs = 120000;  // bounds a test that fails; one that works never waits so long
constexpr unsigned kPollPeriodMs = 1000;
constexpr SYSTEMTIME kFixedTime = {2026, 11, 0, 15, 10, 3, 25, 123};

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

// No token anywhere, nothing prepared.
void emptySofttoken() {
  softtoken_reset();
  softtoken_set_folder("");
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

  std::vector<LogLine> takeLog() {
    machine::startThreads();
    std::vector<LogLine> lines = log.take();
    for (const LogLine& line : lines) allLogText += line.text.substr(2) + "\n";
    monitorStarts +=
        static_cast<unsigned>(std::erase_if(lines, [](const LogLine& line) { return line.text == kMonitorStart; }));
    return lines;
  }

  // As long as the gate holds the monitor, it need not rest between its polls as well.
  void load() {
    softtoken_gate(kListCall, 1);
    machine::setPausesEnd(true);
    machine::takePauses();
    isMonitorStarted = false;
    isMonitorOpen = false;
    loadDriver();
  }

  void unload() {
    machine::startThreads();
    machine::setPausesEnd(false);
    softtoken_gate(kListCall, 0);
    unloadDriver();
  }
};

DriverTest::DriverTest() : state_(std::make_unique<State>()) {}
DriverTest::~DriverTest() = default;

void DriverTest::SetUp() {
  emptySofttoken();
  CallerMemory::instance().reset();
  state_->tempFolder = machineTempFolder() / ("orvane-test-" + std::to_string(std::random_device()()));
  // One by one, so that nobody asks which of them are there.
  const fs::path folder = logFolder();
  for (const fs::path& part : {state_->tempFolder, folder.parent_path(), folder}) fs::create_directory(part);
  state_->log.open(logFolder());
  setTempFolder(tempFolder());
  setLocalTime(kFixedTime);
  setDebugLog(true);
  state_->load();
}

void DriverTest::TearDown() {
  closeAll();
  state_->unload();
  state_->takeLog();
  for (const char* const text : {kUserPin, kNewPin, kWrongPin, kSoPin, kNewSoPin}) {
    const std::string pin = text;
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
  fillCallersMembers(record, CallerMemory::allocate, CallerMemory::reallocate, CallerMemory::release);
  record.hScard = 0;
  return record;
}

DWORD DriverTest::acquire(CARD_DATA& record, DWORD flags) {
  machine::setResourceManager(resourceManager);
  const DWORD status = acquireContextExport()(&record, flags);
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

void DriverTest::reloadDriver() {
  state_->unload();
  state_->load();
}

void* DriverTest::exportNamed(const char* name) { return driverExport(name); }

PFN_CARD_ACQUIRE_CONTEXT DriverTest::acquireContextExport() {
  return reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(exportNamed("CardAcquireContext"));
}

PFN_CARD_DELETE_CONTEXT DriverTest::deleteContextExport() {
  return reinterpret_cast<PFN_CARD_DELETE_CONTEXT>(exportNamed("CardDeleteContext"));
}

CARD_DATA& DriverTest::openContext() {
  CARD_DATA& record = records_.emplace_back(newRecord());
  acquireQuietly(record);
  record.hScard = kCardHandle;
  return record;
}

CARD_DATA& DriverTest::open(const std::vector<OrvaneKeyPair>& keys) {
  defineToken({.keys = keys});
  return openContext();
}

CARD_DATA& DriverTest::openFresh(const std::vector<OrvaneKeyPair>& keys) {
  startAnew({.keys = keys});
  return openContext();
}

void DriverTest::startAnew(const TestToken& token) {
  closeAll();
  state_->unload();
  emptySofttoken();
  state_->load();
  defineToken(token);
  failAllocationsAfter(std::nullopt);
  resourceManager = ResourceManager{};
  setDebugLog(true);
  forget();
}

void DriverTest::closeAll() {
  for (CARD_DATA& record : records_) {
    if (record.pvVendorSpecific != nullptr) EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
  }
  records_.clear();
}

void DriverTest::setKeys(const CARD_DATA& record, std::size_t index, std::vector<OrvaneKeyPair> keyPairs) {
  ProviderContext& context = inside(record);
  auto changed = std::make_shared<ContainerList>(*context.containers);
  changed->at(index).keyPairs = std::move(keyPairs);
  context.containers = std::move(changed);
}

CARD_DATA DriverTest::withoutContext(const CARD_DATA& record) {
  CARD_DATA copy = record;
  copy.pvVendorSpecific = nullptr;
  return copy;
}

void DriverTest::queueResult(const char* function, long long result, int attempts, int length, const Bytes& output) {
  const SofttokenReaction reaction{
      kSofttokenAnswer, 0, result, attempts, length, output.empty() ? nullptr : output.data(), output.size()};
  ASSERT_EQ(softtoken_queue(function, &reaction), 1) << function;
}

void DriverTest::answer(const char* function, const std::optional<Answer>& prepared) {
  if (!prepared) return;
  if (prepared->isException) {
    queueThrow(function);
  } else {
    queueResult(function, prepared->result, prepared->attempts, prepared->length, prepared->output);
  }
}

void DriverTest::queueThrow(const char* function, SofttokenReactionKind kind, const std::string& text) {
  const SofttokenReaction reaction{
      kind, 0, 0, kSofttokenKeep, kSofttokenKeep, reinterpret_cast<const unsigned char*>(text.data()), text.size()};
  ASSERT_EQ(softtoken_queue(function, &reaction), 1) << function;
}

void DriverTest::acquireQuietly(CARD_DATA& record) {
  ASSERT_EQ(acquire(record), DWORD{SCARD_S_SUCCESS});
  forget();
}

void DriverTest::authenticate(CARD_DATA& record, PIN_ID pinId, const std::string& pin) {
  PinBytes bytes(pin);
  ASSERT_EQ(record.pfnCardAuthenticateEx(&record, pinId, 0, bytes.data(), bytes.size(), nullptr, nullptr, nullptr), 0u);
  forget();
}

void DriverTest::dropCachedPin(CARD_DATA& record) {
  PinBytes bytes{std::string(kWrongPin)};
  wchar_t user[] = L"user";
  ASSERT_EQ(record.pfnCardAuthenticatePin(&record, user, bytes.data(), bytes.size(), nullptr), code(SCARD_W_WRONG_CHV));
  forget();
}

void DriverTest::changeUserPin(CARD_DATA& record, const std::string& from, const std::string& to) {
  PinBytes fromBytes(from);
  PinBytes toBytes(to);
  ASSERT_EQ(
      record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, ROLE_USER, fromBytes.data(),
                                          fromBytes.size(), ROLE_USER, toBytes.data(), toBytes.size(), 0, nullptr),
      0u);
  forget();
}

void DriverTest::setSerial(CARD_DATA& record, const std::string& serial) {
  std::wstring wide;
  for (const char c : serial) wide.push_back(static_cast<unsigned char>(c));
  ASSERT_EQ(record.pfnCardSetProperty(&record, CP_CARD_SERIAL_NO, reinterpret_cast<PBYTE>(wide.data()),
                                      static_cast<DWORD>(wide.size() * sizeof(wchar_t)), 0),
            0u);
  forget();
}

void DriverTest::learnFirmware(CARD_DATA& record, const char* firmware) {
  ASSERT_EQ(softtoken_set_firmware(inside(record).serialNumber.c_str(), firmware), 1);
  changeUserPin(record, kUserPin, kNewPin);
  changeUserPin(record, kNewPin, kUserPin);
}

void DriverTest::signWithPreparedAnswer(CARD_DATA& record) {
  queueResult("orvane_signHash", 0, kSofttokenKeep, 4, {1, 2, 3, 4});
  Bytes hash(32, 0x11);
  CARD_SIGNING_INFO info = signingOf(hash);
  EXPECT_EQ(record.pfnCardSignData(&record, &info), 0u);
  if (info.pbSignedData != nullptr) freeBuffer(info.pbSignedData);
}

Lines DriverTest::takeLog() {
  Lines lines;
  for (const LogLine& line : state_->takeLog()) lines.push_back(line.text);
  return lines;
}

unsigned DriverTest::takeMonitorStarts() { return std::exchange(state_->monitorStarts, 0); }

Lines DriverTest::takeCalls() {
  Lines calls = recordedCalls(kSofttokenOnlyThread, softtoken_thread());
  softtoken_clear_calls();
  return calls;
}

Lines DriverTest::takeTrace(const Trace& trace) {
  softtoken_clear_calls();
  return trace.with(state_->takeLog());
}

void DriverTest::forget() {
  takeLog();
  takeCalls();
}

std::string DriverTest::cachedPin(CARD_DATA& record) {
  // A signature that the library refuses: its arguments show the PIN.
  queueResult("orvane_signHash", 1);
  Bytes hash(32, 0x11);
  CARD_SIGNING_INFO info = signingOf(hash);
  const Outcome outcome = observe([&] { return record.pfnCardSignData(&record, &info); });
  EXPECT_EQ(outcome.status, code(SCARD_E_INVALID_PARAMETER));
  if (info.pbSignedData != nullptr) freeBuffer(info.pbSignedData);
  for (const std::string& call : linesWith("orvane_signHash(", outcome.trace)) {
    // The third argument; texts in these tests contain no ", ".
    std::size_t begin = call.find(", ", call.find(", ") + 2) + 2;
    return call.substr(begin + 1, call.find(", ", begin) - begin - 2);
  }
  ADD_FAILURE() << "the library was not asked to sign";
  return "?";
}

PIN_SET DriverTest::authenticatedState(CARD_DATA& record) {
  PIN_SET state = kPoison32;
  DWORD length = 0;
  EXPECT_EQ(record.pfnCardGetProperty(&record, CP_CARD_AUTHENTICATED_STATE, reinterpret_cast<PBYTE>(&state),
                                      sizeof(state), &length, 0),
            0u);
  forget();
  return state;
}

Bytes DriverTest::cardCf(CARD_DATA& record) {
  char name[] = "cardcf";
  PBYTE data = nullptr;
  DWORD size = 0;
  EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, name, 0, &data, &size), 0u);
  forget();
  return data != nullptr ? takeBuffer(data, size) : Bytes();
}

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

std::optional<Bytes> DriverTest::takeBlob(void* blob, std::size_t size) {
  if (blob == nullptr) {
    EXPECT_EQ(size, 0u);
    return std::nullopt;
  }
  return takeBuffer(blob, size);
}

void DriverTest::freeBuffer(void* buffer) { CallerMemory::release(buffer); }

void DriverTest::setLogLevel(const LogLevelValue& value) { machine::setLogLevel(value); }

void DriverTest::setDebugLog(bool on) { machine::setDebugLog(on); }

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
  EXPECT_EQ(machine::takePauses(), std::vector<unsigned>{kPollPeriodMs}) << "between the two polls";
}

void DriverTest::openMonitor() {
  machine::startThreads();
  state_->isMonitorOpen = true;
  machine::setPausesEnd(false);
  softtoken_gate(kListCall, 0);
}

}  // namespace orvane::test
