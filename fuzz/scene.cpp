#include "scene.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cache/process_state.h"
#include "harness/caller_memory.h"
#include "harness/machine.h"
#include "harness/plain_record.h"
#include "platform/host/host_control.h"
#include "tokenlib/token_client.h"

namespace orvane::fuzz {
namespace {

using test::CallerMemory;

// An input that contains the mark of all PINs itself may well have it logged.
bool isMarkInInput = false;

std::filesystem::path logs() {
  static const std::filesystem::path folder = [] {
    const auto path = std::filesystem::temp_directory_path() / ("orvane-fuzz-" + std::to_string(getpid()));
    std::filesystem::create_directories(path / "Brightfold" / test::machine::processName());
    return path;
  }();
  return folder;
}

void defineToken(const char* serial) {
  test::defineToken({.serial = serial,
                     .keys = {test::makeKey(1, 1, 1024), test::makeKey(2, 2), test::makeKey(3, 3)},
                     .certificateLength = 64});
}

// The monitor is held at its first library call and never let go: its polls would come at moments of their own.
void holdMonitor() {
  softtoken_set_folder("");
  defineToken(kSerials[0]);
  softtoken_gate("orvane_getConnectedDeviceList", 1);
  // The end of the program waits for the monitor.
  std::atexit([] { softtoken_gate("orvane_getConnectedDeviceList", 0); });
  CARD_DATA record = newRecord();
  require(CardAcquireContext(&record, 0) == 0, "the first acquisition fails");
  require(softtoken_wait_held("orvane_getConnectedDeviceList", 60000) == 1, "the monitor does not come");
  CardDeleteContext(&record);
}

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "fuzzing: %s\n", what);
  std::abort();
}

void checkLog() {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(logs())) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    const std::string content = text.str();
    require(content.empty() || content.back() == '\n', "a log line is cut");
    require(isMarkInInput || content.find(test::kPinMark) == std::string::npos, "a PIN is in the log");
    std::filesystem::remove(entry.path());
  }
}

}  // namespace

std::uint8_t Reader::byte() {
  if (rest_.empty()) return 0;
  const std::uint8_t first = rest_.front();
  rest_ = rest_.subspan(1);
  return first;
}

std::string Reader::textUntil(char end) {
  const auto found = std::find(rest_.begin(), rest_.end(), static_cast<std::uint8_t>(end));
  std::string text(rest_.begin(), found);
  rest_ = rest_.subspan(text.size() + (found != rest_.end() ? 1u : 0u));
  return text;
}

std::string Reader::rest() {
  std::string text(rest_.begin(), rest_.end());
  rest_ = {};
  return text;
}

void require(bool condition, const char* what) {
  if (!condition) fail(what);
}

void startInput(Input input) {
  const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
  isMarkInInput = text.find(test::kPinMark) != std::string_view::npos;
  static const bool isHeld = (holdMonitor(), true);
  static_cast<void>(isHeld);
  {
    host::HostMachine& machine = host::hostMachine();
    const std::lock_guard lock(machine.mutex);
    machine.logLevel.reset();
    machine.tempPath = logs().string() + "/";
    machine.statusResult = SCARD_S_SUCCESS;
    machine.readerName.clear();
    machine.transmitResult = SCARD_S_SUCCESS;
    machine.reply.clear();
  }
  ProcessState& state = processState();
  for (const char* const serial : kSerials) {
    defineToken(serial);
    state.deviceCache.erase(serial);
    state.containerListCache.erase(serial);
  }
  CallerMemory::instance().reset();
  softtoken_clear_calls();
}

void endInput() {
  CallerMemory::instance().failAfter(std::nullopt);
  const std::vector<std::string> faults = CallerMemory::instance().reset();
  require(faults.empty(), faults.empty() ? "" : faults.front().c_str());
  softtoken_clear_calls();
  tokenlib::connectedDeviceList();
  SofttokenCall call{};
  require(softtoken_call(0, &call, nullptr, 0) != 0, "the library was not called");
  require(call.cardHandle == 0, "a card handle is still set");
  checkLog();
}

CARD_DATA newRecord() {
  return test::plainRecord(CallerMemory::allocate, CallerMemory::reallocate, CallerMemory::release);
}

CARD_DATA acquired() {
  CARD_DATA record = newRecord();
  require(CardAcquireContext(&record, 0) == 0, "a plain acquisition fails");
  return record;
}

void setLog(bool isOn) { test::machine::setDebugLog(isOn); }

void release(void* buffer, std::size_t size) {
  if (buffer == nullptr) return;
  const auto actual = CallerMemory::instance().sizeOf(buffer);
  require(actual.has_value(), "a buffer is not from the caller's allocator");
  require(size <= *actual, "a buffer is smaller than its stated size");
  // The address sanitizer looks at what is read.
  volatile unsigned char sum = 0;
  for (std::size_t i = 0; i < size; ++i) {
    sum = static_cast<unsigned char>(sum + static_cast<const unsigned char*>(buffer)[i]);
  }
  CallerMemory::release(buffer);
}

bool isKnownStatus(DWORD status) {
  constexpr std::array<LONG, 19> kKnown = {
      SCARD_S_SUCCESS,           ERROR_FILE_NOT_FOUND,        ERROR_OUTOFMEMORY,           ERROR_INVALID_PASSWORD,
      ERROR_INVALID_PARAMETER,   ERROR_INSUFFICIENT_BUFFER,   ERROR_REVISION_MISMATCH,     SCARD_F_INTERNAL_ERROR,
      SCARD_E_INVALID_PARAMETER, SCARD_E_NO_MEMORY,           SCARD_E_INSUFFICIENT_BUFFER, SCARD_E_NO_SMARTCARD,
      SCARD_E_UNKNOWN_CARD,      SCARD_E_UNSUPPORTED_FEATURE, SCARD_E_DIR_NOT_FOUND,       SCARD_E_FILE_NOT_FOUND,
      SCARD_E_NO_KEY_CONTAINER,  SCARD_W_WRONG_CHV,           SCARD_W_CHV_BLOCKED};
  return status == static_cast<DWORD>(SCARD_W_CARD_NOT_AUTHENTICATED) ||
         std::any_of(kKnown.begin(), kKnown.end(), [&](LONG known) { return static_cast<DWORD>(known) == status; });
}

}  // namespace orvane::fuzz
