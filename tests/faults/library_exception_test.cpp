// Exceptions of the token library, in every call of every entry point: a status and one line for the caller, the card
// handle cleared, the lock free, and the next call works.
#include <algorithm>

#include "harness/call_test.h"

namespace orvane::test {
namespace {

struct ExceptionCase {
  const char* call = "";          // of allCalls
  const char* function = "";      // that throws
  Lines trace = {};               // between the entry line and the line about the exception
  bool isBufferReturned = false;  // although the call fails
};

// What the library throws, and what becomes of it: the status, and the text in the line.
struct Thrown {
  const char* name = "";
  SofttokenReactionKind kind = kSofttokenThrow;
  std::string text = {};
  DWORD status = code(SCARD_F_INTERNAL_ERROR);
  std::string shown = {};
  bool isFunctionNamed = false;  // the text is ours: the function's name, and `shown`
};

// The texts of the library's runtime, which on Windows is the maker's.
#ifdef _WIN32
constexpr char kBadAlloc[] = "bad allocation";
constexpr char kBadArrayNewLength[] = "bad array new length";
#else
constexpr char kBadAlloc[] = "std::bad_alloc";
constexpr char kBadArrayNewLength[] = "std::bad_array_new_length";
#endif

std::vector<Thrown> allThrown() {
  return {
      {.name = "a type of its own", .shown = ": exception in the token library", .isFunctionNamed = true},
      {.name = "a standard one",
       .kind = kSofttokenThrowRuntimeError,
       .text = "the token was pulled out",
       .shown = "the token was pulled out"},
      {.name = "one without a text", .kind = kSofttokenThrowRuntimeError},
      {.name = "control characters stay in one line",
       .kind = kSofttokenThrowRuntimeError,
       .text = "first\nsecond\r\n\tthird\x7F\x1B\x1F \x20~\xC3\xA9",
       .shown = "first second   third     ~\xC3\xA9"},
      {.name = "as long as can be",
       .kind = kSofttokenThrowRuntimeError,
       .text = std::string(110, 'x') + "y",
       .shown = std::string(110, 'x') + "y"},
      {.name = "longer",
       .kind = kSofttokenThrowRuntimeError,
       .text = std::string(110, 'x') + "yz",
       .shown = std::string(110, 'x') + "y"},
      {.name = "a lack of memory",
       .kind = kSofttokenThrowBadAlloc,
       .status = code(SCARD_E_NO_MEMORY),
       .shown = kBadAlloc},
      {.name = "a kind of it",
       .kind = kSofttokenThrowBadArrayNewLength,
       .status = code(SCARD_E_NO_MEMORY),
       .shown = kBadArrayNewLength},
      {.name = "a null text", .kind = kSofttokenThrowNullText},
  };
}

// The end of the line about it.
std::string shownText(const Thrown& thrown, const char* function) {
  return (thrown.isFunctionNamed ? function : "") + thrown.shown;
}

constexpr char kSet[] = "orvane_setExternalSmartcardHandle(0x2A)";
constexpr char kClear[] = "orvane_clearExternalSmartcardHandle()";

// "CardReadFile" of "CardReadFile ksc0".
std::string entryPointOf(const std::string& call) { return call.substr(0, call.find(' ')); }

// So many of these two digits.
std::string repeated(const char* digits, unsigned count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) text += digits;
  return text;
}

class LibraryExceptionTest : public CallTest {
 protected:
  // Makes the call and tells what it did; on failure nothing may have been written, with or without the pointers that
  // can receive buffers.
  Outcome observeCall(CARD_DATA& record, const EntryCall& call, bool isBufferReturned = false) {
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    Outcome outcome = observe(prepared);
    if (outcome.status != 0) {
      EXPECT_TRUE(outputs.isUntouchedButForBuffers());
      EXPECT_EQ(outputs.isUntouched(), !isBufferReturned);
    }
    return outcome;
  }

  void run(const ExceptionCase& row, const Thrown& thrown) {
    SCOPED_TRACE(std::string(row.call) + ", " + row.function + ", " + thrown.name);
    const EntryCall call = callNamed(row.call);
    CARD_DATA& record = openFor(call.before);
    queueThrow(row.function, thrown.kind, thrown.text);
    const std::string name = entryPointOf(row.call);
    EXPECT_EQ(
        observeCall(record, call, row.isBufferReturned),
        (Outcome{thrown.status, inOrder("D " + name + " :: LOG_FUNCTION_NAME = Entry", row.trace,
                                        "E " + name + ": unhandled exception: " + shownText(thrown, row.function))}));
    EXPECT_EQ(softtoken_queued(row.function), 0u);
    EXPECT_EQ(observeCall(record, call).status, 0u);
  }
};

TEST_F(LibraryExceptionTest, BecomesAStatus) {
  const std::string id = idOf(1);
  const std::string pin = std::string("\"") + kUserPin + "\"";
  const std::string newPin = std::string("\"") + kNewPin + "\"";
  const std::string validate = "orvane_validatePassword(\"0012AB\", " + pin + ", 1, ";
  const std::string reopen = "orvane_initDevice(\"0012AB\", true, null)";
  const std::string signCall =
      "orvane_signHash(\"0012AB\", " + id + ", " + pin + ", " + repeated("68", 32) + ", 32, false, null, false)";
  const std::string decryptCall =
      "orvane_decrypt(\"0012AB\", " + id + ", " + pin + ", " + repeated("63", 256) + ", 256, false, null)";
  const std::string changeUserCall =
      "orvane_changeUserPassword(\"0012AB\", " + pin + ", " + newPin + ", -1, false, false, null)";
  const std::string changeSoCall =
      std::string("orvane_changeSOPassword(\"0012AB\", \"") + kSoPin + "\", \"" + kNewSoPin + "\", null)";
  const Lines asked = {"D empty password for [0012AB]"};
  const Lines fileNamed = {"D CardReadFile filename: ksc0"};
  const Lines signing = {
      "D === CardSignData: serial=[0012AB] containerIndex=0 containerListSize=2 "
      "dwSigningFlags=0x00000000 userPinAuth=1",
      "D CardSignData: using container[0] credId=" + id + ", usage=3, alg=2",
      "D CardSignData: modulus size determined = 256", alloc(256), "D CardSignData: hash length=32"};
  const Lines decrypting = {"D CardRSADecrypt: PaddingType=PKCS1", "D CardRSADecrypt: containerIndex=0, dwKeySpec=1",
                            "D CardRSADecrypt: credentialId=" + id};
  const ExceptionCase cases[] = {
      {.call = "CardAuthenticatePin", .function = "orvane_validatePassword", .trace = {validate + "0, null)"}},
      {.call = "CardAuthenticateEx on the token",
       .function = "orvane_setExternalSmartcardHandle",
       .trace = inOrder(asked, kSet, kClear)},
      {.call = "CardAuthenticateEx on the token",
       .function = "orvane_validatePassword",
       .trace = inOrder(asked, withHandle(validate + "8, null)"))},
      {.call = "CardReadFile ksc0",
       .function = "orvane_setExternalSmartcardHandle",
       .trace = inOrder(fileNamed, kSet, kClear)},
      {.call = "CardReadFile ksc0", .function = "orvane_initDevice", .trace = inOrder(fileNamed, withHandle(reopen))},
      {.call = "CardReadFile ksc0",
       .function = "orvane_findCertificateForKey",
       .trace = inOrder(fileNamed, withHandle(reopen), "D === CardReadFile sig-cert: serial=[0012AB] file=ksc0",
                        "orvane_findCertificateForKey(\"0012AB\", " + id + ", null)")},
      {.call = "CardReadFile cmapfile list forgotten",
       .function = "orvane_getKeyPairList",
       .trace = {"D CardReadFile filename: cmapfile", "D === CardReadFile cmapfile: serial=[0034CD]",
                 "D CMAP: Serial 0034CD missing from cache. Re-populating now...",
                 "orvane_getKeyPairList(\"0034CD\", null)"}},
      {.call = "CardSignData signs",
       .function = "orvane_setExternalSmartcardHandle",
       .trace = inOrder(signing, kSet, kClear),
       .isBufferReturned = true},
      {.call = "CardSignData signs",
       .function = "orvane_signHash",
       .trace = inOrder(signing, withHandle(signCall)),
       .isBufferReturned = true},
      {.call = "CardRSADecrypt",
       .function = "orvane_setExternalSmartcardHandle",
       .trace = inOrder(decrypting, kSet, kClear)},
      {.call = "CardRSADecrypt", .function = "orvane_decrypt", .trace = inOrder(decrypting, withHandle(decryptCall))},
      {.call = "CardChangeAuthenticator user", .function = "orvane_changeUserPassword", .trace = {changeUserCall}},
      {.call = "CardChangeAuthenticator admin", .function = "orvane_changeSOPassword", .trace = {changeSoCall}},
      {.call = "CardChangeAuthenticatorEx 1", .function = "orvane_changeUserPassword", .trace = {changeUserCall}},
      {.call = "CardChangeAuthenticatorEx 2", .function = "orvane_changeSOPassword", .trace = {changeSoCall}},
  };
  for (const ExceptionCase& row : cases) {
    for (const Thrown& thrown : allThrown()) run(row, thrown);
  }
}

// The functions that only an acquisition calls, and those that it shares; the record stays as it was.
TEST_F(LibraryExceptionTest, EndsAnAcquisition) {
  for (const char* const function : {"orvane_init", "orvane_getConnectedDeviceList", "orvane_initDevice",
                                     "orvane_clearExternalSmartcardHandle", "orvane_getKeyPairList"}) {
    for (const Thrown& thrown : allThrown()) {
      SCOPED_TRACE(std::string(function) + ", " + thrown.name);
      startAnew();
      CARD_DATA record = newRecord();
      const Bytes before = bytesOf(record);
      queueThrow(function, thrown.kind, thrown.text);
      forget();
      EXPECT_EQ(acquire(record), thrown.status);
      EXPECT_EQ(bytesOf(record), before);
      EXPECT_EQ(takeLog().back(), "E CardAcquireContext: unhandled exception: " + shownText(thrown, function));
      EXPECT_EQ(softtoken_queued(function), 0u);
      EXPECT_EQ(acquire(record), 0u);
      EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
      forget();
    }
  }
}

// Forgetting the handle is the last thing that a bracketed call does: its result stands.
TEST_F(LibraryExceptionTest, WhileTheHandleIsForgottenChangesNothing) {
  const struct {
    const char* call;
    // The library still holds the handle in the call that comes after the bracket, if there is one.
    const char* behindTheLastCall;
  } rows[] = {{"CardAuthenticateEx on the token", ""},
              {"CardReadFile ksc0", " [card 0x2A]"},
              {"CardSignData signs", ""},
              {"CardRSADecrypt", ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    const EntryCall call = callNamed(row.call);
    Outcome undisturbed = observeCall(openFor(call.before), call);
    EXPECT_EQ(undisturbed.status, 0u);
    // The last call of the library.
    const auto last = std::find_if(undisturbed.trace.rbegin(), undisturbed.trace.rend(),
                                   [](const std::string& line) { return line.starts_with("orvane_"); });
    ASSERT_NE(last, undisturbed.trace.rend());
    *last += row.behindTheLastCall;
    for (const Thrown& thrown : allThrown()) {
      SCOPED_TRACE(thrown.name);
      CARD_DATA& again = openFor(call.before);
      queueThrow("orvane_clearExternalSmartcardHandle", thrown.kind, thrown.text);
      EXPECT_EQ(observeCall(again, call), undisturbed);
      EXPECT_EQ(softtoken_queued("orvane_clearExternalSmartcardHandle"), 0u);
      // The next bracket sets it anew and clears it.
      EXPECT_EQ(observeCall(again, callNamed("CardReadFile ksc0")).status, 0u);
      softtoken_clear_calls();
    }
  }
}

// A PIN that was changed is changed; without the token's word it does not count as validated there.
TEST_F(LibraryExceptionTest, WhileTheTokenIsAskedForItsPinStateCountsAsNo) {
  const EntryCall change = callNamed("CardChangeAuthenticatorEx 1");
  for (const Thrown& thrown : allThrown()) {
    SCOPED_TRACE(thrown.name);
    CARD_DATA& record = openFor(change.before);
    queueThrow("orvane_getTokenInfo", thrown.kind, thrown.text);
    EXPECT_EQ(observeCall(record, change),
              (Outcome{0,
                       {"D CardChangeAuthenticatorEx :: LOG_FUNCTION_NAME = Entry",
                        std::string("orvane_changeUserPassword(\"0012AB\", \"") + kUserPin + "\", \"" + kNewPin +
                            "\", -1, false, false, null)",
                        "D CardChangeAuthenticatorEx: success [0012AB]", "D device reconnect true [0012AB]",
                        "orvane_getTokenInfo(\"0012AB\", null)", "D password validated (device) :: 0",
                        "D password validated (local)  :: 1", "D Not valid - bumping pin freshness",
                        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"}}));
    EXPECT_EQ(cachedPin(record), kNewPin);
  }
}

// A verification that did not come to its end leaves nobody authenticated.
TEST_F(LibraryExceptionTest, LeavesNoCachedPinBehind) {
  const EntryCall verify = callNamed("CardAuthenticateEx on the token");
  CARD_DATA& record = openFor(verify.before);
  queueThrow("orvane_validatePassword");
  EXPECT_EQ(observeCall(record, verify).status, code(SCARD_F_INTERNAL_ERROR));
  EXPECT_EQ(cachedPin(record), "");
  EXPECT_EQ(authenticatedState(record), 0u);
}

}  // namespace
}  // namespace orvane::test
