// The fixture that tests drive the minidriver with: through its CARD_DATA table, against the software token.
//
// The same tests run in three ways: natively, with the product's objects linked in; and as a Windows program (Arm and
// x64) against the loaded OrvaneMinidriver.dll, with the real registry and real log files.
#ifndef ORVANE_TESTS_HARNESS_DRIVER_TEST_H
#define ORVANE_TESTS_HARNESS_DRIVER_TEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/card_module.h"
#include "softtoken/softtoken_control.h"

namespace orvane::test {

using Lines = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

// The status as entry points return it.
constexpr DWORD code(LONG status) { return static_cast<DWORD>(status); }

// The value of "logLevel": a number, a text, other bytes, or absent.
struct LogLevelValue {
  enum class Type { kAbsent, kNumber, kText, kBinary } type = Type::kAbsent;
  std::uint32_t number = 0;
  Bytes bytes;  // of a text (with its NUL) or of a binary value
};

// A key record with readable bytes: credentialId = 16 times `id`, modulus = 01 02 03 ... FF 00 01 ..., the algorithm
// code and the modulus length of `bits` (1024, 2048, 3072, 4096), and the usage.
OrvaneKeyPair makeKey(std::uint8_t id, int usage, unsigned bits = 2048);
// The 32 hexadecimal digits of such a key's credentialId.
std::string guidOf(std::uint8_t id);
// A request to decrypt the block with the first key, with a padding that is not named. The block stays the caller's,
// takes the plaintext and must outlive the request.
CARD_RSA_DECRYPT_INFO decryptionOf(Bytes& block, DWORD keySpec = AT_KEYEXCHANGE);
// A certificate record whose bytes count up from `first`.
OrvaneCertificate makeCertificate(std::uint8_t first, std::uint32_t length);

// What the pretended resource manager answers to the minidriver (SCardStatusA, SCardTransmit) and what it was sent.
// Used natively and, through hooks in the loaded DLL's import table, on Windows.
struct ResourceManager {
  LONG statusResult = SCARD_S_SUCCESS;
  std::string readerName;
  LONG transmitResult = SCARD_S_SUCCESS;
  Bytes reply;
  bool hasNameNul = true;  // false: the reader name is given without a NUL behind it
};

// DriverTest gives every test a freshly loaded minidriver (all process-wide state new), a reset software token, the log
// at DEBUG in an empty, existing folder, the local time fixed at 2026-11-15 10:03:25.123, and the monitor thread held
// inside its first library call (see pollMonitor), so that log and calls are exactly those of the test. Tear-down
// unloads the minidriver, frees what is left, and fails the test if a log ever contained one of the PINs used (addPin),
// a buffer is left unfreed, or the caller's allocator was misused.
class DriverTest : public ::testing::Test {
 protected:
  DriverTest();
  ~DriverTest() override;
  void SetUp() override;
  void TearDown() override;

  // --- the minidriver ---
  // A record as the base provider hands it over: version 7, the right ATR, a card name, the allocator callbacks, hScard
  // 0, and recognisable values in every other member. ATR and name live as long as the test.
  CARD_DATA newRecord();
  // Calls CardAcquireContext, the export, after handing over `resourceManager`. When it started the monitor thread, the
  // thread has come to its first library call at the return.
  DWORD acquire(CARD_DATA& record, DWORD flags = 0);
  // Acquires with success (asserted), then forgets the log lines and calls so far.
  void acquireQuietly(CARD_DATA& record);
  // Unloads and loads the minidriver (DLL: FreeLibrary and LoadLibrary), leaving the software token as it is. The
  // monitor may poll once before it ends; its lines stay in the log.
  void reloadDriver();
  // Address of an export by name; on the host of the function itself. Null when there is none.
  void* exportNamed(const char* name);

  // --- the token ---
  // Defines a token in memory with PIN "1234", SO PIN "12345678", 3 tries each, firmware "2.1.0", and these keys.
  void defineToken(const char* serial, const std::vector<OrvaneKeyPair>& keys = {});
  // Queues a plain result (and attempts / length / output) for the next call of the function.
  void queueResult(const char* function, long long result, int attempts = kSofttokenKeep, int length = kSofttokenKeep,
                   const Bytes& output = {});
  // Queues an exception for the next call of the function.
  void queueThrow(const char* function);
  // Has CardSignData sign a hash with the record's first key, asserts success and frees the signature. The token's
  // answer is prepared, so that it does not matter which PIN is known.
  void signWithPreparedAnswer(CARD_DATA& record);

  // --- what happened ---
  // The log lines of all threads since the last call, oldest first, as "D text", "E text" ("?" for another tag); each
  // line's prefix is checked for its form. UTF-8 as in the file. "D Device monitor thread started." is left out: it
  // comes from another thread at no fixed place (see takeMonitorStarts).
  Lines takeLog();
  // Number of lines "D Device monitor thread started." that takeLog left out since the last call.
  unsigned takeMonitorStarts();
  // The library calls made by the test's own thread since the last call, as softtoken_calls writes them.
  Lines takeCalls();
  // takeLog and takeCalls, thrown away.
  void forget();
  // The commands sent through SCardTransmit since the last call, as "handle=0x2A protocol=2 pci=8 recv=64
  // FFFF00D5000000".
  Lines takeTransmissions();

  // --- the caller's memory ---
  // The next `count` requests succeed and all after them fail; no value: none fails.
  void failAllocationsAfter(std::optional<unsigned> count);
  // The sizes of the requests to the caller's allocator since the last call, failed ones included.
  std::vector<std::size_t> takeAllocations();
  // The bytes of a buffer that the minidriver returned, which must have that size; frees it. None when it is not in
  // use.
  Bytes takeBuffer(void* buffer, std::size_t size);
  // Frees a buffer.
  void freeBuffer(void* buffer);

  // --- the machine ---
  ResourceManager resourceManager;  // handed over by acquire
  void setLogLevel(const LogLevelValue& value);
  void setDebugLog(bool on);  // number 3, or absent
  // A fixed local time for the log; no value: the machine's clock.
  void setLocalTime(const std::optional<SYSTEMTIME>& time);
  // The test's own folder (host path syntax of the running tier, without separator at the end), which stands for the
  // temporary folder unless setTempFolder names another one; no value: the machine has none.
  std::string tempFolder() const;
  void setTempFolder(const std::optional<std::string>& folder);
  // Path of the log file of the fixed local time below tempFolder(), and of its folder.
  std::string logFile() const;
  std::string logFolder() const;

  // --- the monitor ---
  // The monitor thread is held in orvane_getConnectedDeviceList. pollMonitor lets one poll happen and returns when the
  // monitor is held again in the next one; it takes about a second (the poll period).
  void pollMonitor();
  // Opens the gate for good: the monitor polls freely.
  void openMonitor();

  // Registers a PIN that the logs must never contain, neither as text nor in hexadecimal. PINs of fewer than 6
  // characters are looked for only when `searchShort`, since they may stand in a log by chance. The SO PIN of
  // defineToken is registered.
  void addPin(const std::string& pin, bool searchShort = false);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_DRIVER_TEST_H
