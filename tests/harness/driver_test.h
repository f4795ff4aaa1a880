// Where to begin: the fixture that tests drive the minidriver with, through its CARD_DATA table, against the software
// token.
//
// The same tests run in three ways: natively, with the product's objects linked in; and as a Windows program (Arm and
// x64) against the loaded OrvaneMinidriver.dll, with the real registry and real log files.
//
// There are three fixtures. Most tests take DriverTest. LinkedTest (linked_test.h) is for inner functions, CallTest
// (call_test.h) for what holds for every call; both are DriverTests. Beside them stand
//   test_token.h       the serial, the PINs, the card handle, keys and tokens that everybody uses
//   test_values.h      lines, bytes, the poison
//   outcome.h          what a call did: its status, and its trace
//   trace.h            how the trace comes about
//   all_calls.h        the one list of calls, and all_properties.h the one list of properties
//   machine.h          registry, clock, temporary folder, resource manager
//
// A test is a table, and a function that runs one row: it brings about what the row says was before, poisons all
// outputs, calls, and compares everything. A row states what differs from the struct's own values. This is one of
// AuthenticateExTest:
//
//   {.name = "wrong",
//    .pin = kWrongPin,
//    .status = code(SCARD_W_WRONG_CHV),
//    .trace = {"D empty password for [0012AB]",
//              "orvane_setExternalSmartcardHandle(0x2A)",
//              "orvane_validatePassword(\"0012AB\", \"Wv9-wrong-pin-for-a-test\", 1, 8, null) [card 0x2A]",
//              "orvane_clearExternalSmartcardHandle() [card 0x2A]",
//              "E invalid password for [0012AB] : 160",
//              "E CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV"},
//    .attempts = 2}
//
// Read aloud: "On a fresh context with card handle 0x2A, before which nothing happened, CardAuthenticateEx is called
// for the user's role with the wrong PIN, and all outputs are wanted. It returns SCARD_W_WRONG_CHV. Behind its entry
// line it logs one line at DEBUG. It then calls the token library three times. First it sets card handle 0x2A. Then,
// and that handle is set by now, it has the PIN of role 1 checked on token 0012AB, with a counter of attempts that
// holds 8 when the library gets it, and no library context. Last it clears the handle, which is still set when this
// call arrives. Only then does it log two lines at ERROR. The counter comes back as 2 and goes to the caller.
// Afterwards no role is authenticated, and no PIN is cached, because the row says nothing else."
//
// The trace has everything that the call did, one line for each thing, in the order in which it began; the row holds
// that order, too. Of what other threads do only the log lines are in it. Its lines are
//   D text, E text         a line of the log at DEBUG or ERROR
//   orvane_...             a call to the token library, see below
//   SCardStatusA handle=0x2A name=512 atr=36 zeroed
//   SCardTransmit handle=0x2A protocol=2 pci=8 recv=64 FFFF00D5000000
//                          the resource manager is asked for the reader, or to send a command (transmission_text.h)
//   alloc 276, alloc 276 refused, free 276
//                          the caller's allocator is asked for so many bytes, has none, or gets them back
// inOrder (test_values.h) puts lines and lists of lines one behind the other.
//
// A library call is written as in C, with the name and the arguments as they arrive at the library:
//   "0012AB"               a text; bytes outside 0x20..0x7E, quotes and backslashes in it are \xHH
//   A0A1A2                 bytes, in hexadecimal; "" for none
//   0x2A                   a card handle or another pointer; null for none
//   8, -1                  a number, or a counter by reference with the value that comes in
//   true, false            a truth value
// Pointers that only take a result are left out. " [card 0x2A]" behind it: this card handle was set in the library when
// the call arrived; nothing behind it: none was. withHandle and withoutHandle (outcome.h) write the three lines
// of a call that is made between setting and clearing kCardHandle, and the two of one with card handle 0.
// softtoken_control.h lists the thirteen functions with their arguments, and the answers that can be prepared.
#ifndef ORVANE_TESTS_HARNESS_DRIVER_TEST_H
#define ORVANE_TESTS_HARNESS_DRIVER_TEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "harness/machine.h"
#include "harness/outcome.h"
#include "harness/test_token.h"
#include "harness/test_values.h"
#include "harness/trace.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "softtoken/softtoken_control.h"

namespace orvane::test {

// What one library call does instead of its work: what it returns, stores and hands out (see SofttokenReaction), or
// that it throws.
struct Answer {
  long long result = 0;
  int attempts = kSofttokenKeep;
  int length = kSofttokenKeep;
  Bytes output = {};
  bool isException = false;
};
// One of a signature or a decryption.
inline Answer answerOf(int result, int length = kSofttokenKeep, const Bytes& output = {}) {
  return {.result = result, .length = length, .output = output};
}

// DriverTest gives every test a freshly loaded minidriver (all process-wide state new), a reset software token, the log
// at DEBUG in an empty, existing folder, the local time fixed at 2026-11-15 10:03:25.123, and the monitor thread held
// inside its first library call (see pollMonitor), so that log and calls are exactly those of the test. Tear-down
// deletes the contexts, unloads the minidriver, frees what is left, and fails the test if a log ever contained one of
// the PINs of test_token.h, a buffer is left unfreed, or the caller's allocator was misused.
class DriverTest : public ::testing::Test {
 protected:
  DriverTest();
  ~DriverTest() override;
  void SetUp() override;
  void TearDown() override;

  // --- the minidriver ---
  // A record as the base provider hands it over: version 7, the right ATR, a card name, the allocator callbacks, hScard
  // 0, and recognisable values in every other member. ATR and name live as long as the program.
  CARD_DATA newRecord();
  // Calls CardAcquireContext, the export, after handing over `resourceManager`. When it started the monitor thread, the
  // thread has come to its first library call at the return.
  DWORD acquire(CARD_DATA& record, DWORD flags = 0);
  // Unloads and loads the minidriver (DLL: FreeLibrary and LoadLibrary), leaving the software token as it is. The
  // monitor may poll once before it ends; its lines stay in the log.
  void reloadDriver();
  // Address of an export by name; on the host of the function itself. Null when there is none.
  void* exportNamed(const char* name);
  // Two exports as they are called, for what acquire and a record's own slot cannot do.
  PFN_CARD_ACQUIRE_CONTEXT acquireContextExport();
  PFN_CARD_DELETE_CONTEXT deleteContextExport();

  // --- contexts that live as long as the test ---
  // A context on the first connected token, with kCardHandle set after the acquisition. Log and calls are forgotten.
  CARD_DATA& openContext();
  // Defines the token kSerial with these keys, then openContext.
  CARD_DATA& open(const std::vector<OrvaneKeyPair>& keys = {makeKey(1, 3)});
  // startAnew on the token kSerial with these keys, then openContext.
  CARD_DATA& openFresh(const std::vector<OrvaneKeyPair>& keys = {makeKey(1, 3)});
  // Nothing is left of what the minidriver and the software token knew, and of what the test has set: deletes all
  // contexts, loads the minidriver anew and defines this one token.
  void startAnew(const TestToken& token);
  // Deletes all contexts and frees their records.
  void closeAll();
  // The context behind a record. Test program and minidriver are built together, so that both know its layout.
  static ProviderContext& inside(const CARD_DATA& record) {
    return *static_cast<ProviderContext*>(record.pvVendorSpecific);
  }
  // Gives a container of the record's context other keys; nobody else who shares its list sees that.
  static void setKeys(const CARD_DATA& record, std::size_t index, std::vector<OrvaneKeyPair> keyPairs);
  // A copy of the record that lost its context.
  static CARD_DATA withoutContext(const CARD_DATA& record);

  // --- what the token library answers ---
  // Queues a plain result (and attempts / length / output) for the next call of the function.
  void queueResult(const char* function, long long result, int attempts = kSofttokenKeep, int length = kSofttokenKeep,
                   const Bytes& output = {});
  // Queues this for the next call of the function; nothing without a value.
  void answer(const char* function, const std::optional<Answer>& prepared);
  // Queues an exception for the next call of the function: one of a type that only the library knows, or another kind.
  void queueThrow(const char* function, SofttokenReactionKind kind = kSofttokenThrow, const std::string& text = {});

  // --- what was before: each asserts success and forgets what was logged and called ---
  // Acquires.
  void acquireQuietly(CARD_DATA& record);
  // Verifies a PIN for these roles; 0 for none, which caches the PIN all the same.
  void authenticate(CARD_DATA& record, PIN_ID pinId = ROLE_USER, const std::string& pin = kUserPin);
  // Drops the cached PIN, as a wrong one does, and leaves the context's flags.
  void dropCachedPin(CARD_DATA& record);
  void changeUserPin(CARD_DATA& record, const std::string& from, const std::string& to);
  void setSerial(CARD_DATA& record, const std::string& serial);
  // Makes the process know the token's firmware version, which it learns with its second look at the token's PIN.
  void learnFirmware(CARD_DATA& record, const char* firmware);
  // Has CardSignData sign a hash with the record's first key and frees the signature. The token's answer is prepared,
  // so that it does not matter which PIN is known. Forgets nothing.
  void signWithPreparedAnswer(CARD_DATA& record);

  // --- what happened ---
  // Runs `call`, in this thread, and tells what it did; what was logged and called before is forgotten.
  template <typename Call>
  Outcome observe(Call call) {
    forget();
    const Trace trace(logFolder());
    const DWORD status = call();
    return {status, takeTrace(trace)};
  }
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

  // --- what the process and the context hold afterwards, asked through the function table; log and calls are
  // forgotten ---
  std::string cachedPin(CARD_DATA& record);
  PIN_SET authenticatedState(CARD_DATA& record);
  Bytes cardCf(CARD_DATA& record);

  // --- the caller's memory ---
  // The next `count` requests succeed and all after them fail; no value: none fails.
  void failAllocationsAfter(std::optional<unsigned> count);
  // The sizes of the requests to the caller's allocator since the last call, failed ones included.
  std::vector<std::size_t> takeAllocations();
  // The bytes of a buffer that the minidriver returned, which must have that size; frees it. None when it is not in
  // use.
  Bytes takeBuffer(void* buffer, std::size_t size);
  // The same for a key blob that may be missing: no value for a null pointer, whose size must be 0.
  std::optional<Bytes> takeBlob(void* blob, std::size_t size);
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
  // monitor is held again in the next one. Between the two it must have asked for one rest, of a second, which ends at
  // once here.
  void pollMonitor();
  // Opens the gate for good: the monitor polls freely, once a second.
  void openMonitor();

 private:
  // The trace with the log; log and calls are forgotten.
  Lines takeTrace(const Trace& trace);

  struct State;
  std::unique_ptr<State> state_;
  std::deque<CARD_DATA> records_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_DRIVER_TEST_H
