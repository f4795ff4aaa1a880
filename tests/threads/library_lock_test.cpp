// Which locks are held while the token library works. A call is held inside the library, and the mutexes of the linked
// objects are asked; the entry points here are the linked ones, too.
#include <chrono>
#include <future>
#include <system_error>
#include <thread>

#include "cache/process_state.h"
#include "harness/all_calls.h"
#include "harness/linked_test.h"
#include "support/secret.h"

namespace orvane::test {
namespace {

// Bounds a test that fails; one that works never waits so long.
constexpr unsigned kLongMs = 120000;

bool isFree(Mutex& mutex) {
  if (!mutex.tryLock()) return false;
  mutex.unlock();
  return true;
}

template <typename Result>
bool comesBack(const std::future<Result>& call) {
  return call.wait_for(std::chrono::milliseconds(kLongMs)) == std::future_status::ready;
}

class LibraryLock : public LinkedTest {
 protected:
  void SetUp() override {
    LinkedTest::SetUp();
    defineToken(tokenForCalls());
    for (CARD_DATA* const record : {&record_, &other_}) {
      *record = newRecord();
      ASSERT_EQ(CardAcquireContext(record, 0), 0u);
      record->hScard = kCardHandle;
    }
  }
  void TearDown() override {
    for (CARD_DATA* const record : {&record_, &other_}) EXPECT_EQ(CardDeleteContext(record), 0u);
    LinkedTest::TearDown();
  }

  // The token with its first PINs, and what the call expects.
  void prepareFor(Before before) {
    defineToken(tokenForCalls());
    DeviceCache& devices = processState().deviceCache;
    devices.clearValidatedPassword(kSerial);
    if (before == Before::kPinCached || before == Before::kPinBumped) {
      devices.storeValidatedPassword(kSerial, SecretText(kUserPin, sizeof(kUserPin) - 1));
    }
    if (before == Before::kPinBumped) devices.firstPinsBump(kSerial);
    if (before == Before::kListForgotten) processState().containerListCache.erase(kSerial);
    forget();
  }

  // Runs `look` while the call is held in the library's function, and lets it end.
  template <typename Look>
  void whileHeldIn(const char* function, const EntryCall& call, const Look& look) {
    prepareFor(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record_, outputs);
    outputs.startCall();
    ASSERT_EQ(softtoken_gate(function, 1), 1);
    DWORD status = kPoison32;
    std::thread caller([&] { status = prepared(); });
    EXPECT_EQ(softtoken_wait_held(function, kLongMs), 1);
    look();
    softtoken_gate(function, 0);
    caller.join();
    EXPECT_EQ(status, call.status);
  }

  CARD_DATA record_{};
  CARD_DATA other_{};
};

// An acquisition like any other call; its context goes at once.
EntryCall acquisition() {
  return {.name = "CardAcquireContext",
          .before = Before::kPinUnknown,
          .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> std::function<DWORD()> {
            CARD_DATA& fresh = outputs.addRecord(record);
            // The resource manager is no part of this.
            fresh.hScard = 0;
            return [&fresh] {
              const DWORD status = CardAcquireContext(&fresh, 0);
              if (status == 0) CardDeleteContext(&fresh);
              return status;
            };
          }};
}

EntryCall callOf(const char* name) {
  return std::string(name) == "CardAcquireContext" ? acquisition() : callNamed(name);
}

TEST_F(LibraryLock, IsHeldWhereACardHandleIsSet) {
  struct Row {
    const char* call;
    const char* function;
    bool isLocked;
  };
  const Row rows[] = {
      {"CardSignData signs", "orvane_setExternalSmartcardHandle", true},
      {"CardSignData signs", "orvane_signHash", true},
      {"CardSignData signs", "orvane_clearExternalSmartcardHandle", true},
      {"CardRSADecrypt", "orvane_decrypt", true},
      {"CardAuthenticateEx on the token", "orvane_validatePassword", true},
      {"CardReadFile ksc0", "orvane_initDevice", true},
      {"CardReadFile kxc1", "orvane_initDevice", true},
      {"CardReadFile ksc0", "orvane_findCertificateForKey", false},
      {"CardReadFile cmapfile list forgotten", "orvane_getKeyPairList", false},
      {"CardAuthenticatePin", "orvane_validatePassword", false},
      {"CardChangeAuthenticator user", "orvane_changeUserPassword", false},
      {"CardChangeAuthenticator admin", "orvane_changeSOPassword", false},
      {"CardChangeAuthenticatorEx 1", "orvane_changeUserPassword", false},
      {"CardChangeAuthenticatorEx 1", "orvane_getTokenInfo", false},
      {"CardChangeAuthenticatorEx 2", "orvane_changeSOPassword", false},
      {"CardAcquireContext", "orvane_init", true},
      {"CardAcquireContext", "orvane_clearExternalSmartcardHandle", true},
      {"CardAcquireContext", "orvane_getKeyPairList", true},
  };
  // Acquisitions ask for the list, and are not to be held there.
  openMonitor();
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.call) + " in " + row.function);
    std::future<bool> deviceCache;
    whileHeldIn(row.function, callOf(row.call), [&] {
      ProcessState& state = processState();
      EXPECT_EQ(isFree(state.libraryMutex), !row.isLocked);
      EXPECT_TRUE(isFree(state.contextSlotMutex));
      // Nobody but the cache itself can ask its mutex.
      deviceCache = std::async(std::launch::async, [&] { return state.deviceCache.hasRecord(kSerial); });
      EXPECT_TRUE(comesBack(deviceCache)) << "deviceCacheMutex is held";
    });
  }
}

// Who finds the library lock taken makes no library call before it is free. Here the caller holds it himself, which the
// mutex reports instead of waiting.
TEST_F(LibraryLock, IsTakenBeforeTheFirstLibraryCall) {
  const std::string text =
      std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur), "resource deadlock would occur")
          .what();
  for (const char* const name : {"CardAcquireContext", "CardSignData signs", "CardRSADecrypt",
                                 "CardAuthenticateEx on the token", "CardReadFile ksc0", "CardReadFile kxc1"}) {
    SCOPED_TRACE(name);
    const EntryCall call = callOf(name);
    prepareFor(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record_, outputs);
    outputs.startCall();
    DWORD status = 0;
    {
      const LockGuard held(processState().libraryMutex);
      status = prepared();
    }
    EXPECT_EQ(status, code(SCARD_F_INTERNAL_ERROR));
    EXPECT_EQ(takeCalls(), Lines{});
    const std::string entryPoint = std::string(name).substr(0, std::string(name).find(' '));
    EXPECT_EQ(takeLog().back(), "E " + entryPoint + ": unhandled exception: " + text);
    EXPECT_TRUE(isFree(processState().libraryMutex));
  }
}

// A PIN can be verified or changed in one context while another one still waits for its signature.
TEST_F(LibraryLock, IsNotAskedForByPinCalls) {
  for (const char* const name : {"CardAuthenticatePin", "CardChangeAuthenticator user", "CardChangeAuthenticator admin",
                                 "CardChangeAuthenticatorEx 1", "CardChangeAuthenticatorEx 2"}) {
    SCOPED_TRACE(name);
    const EntryCall call = callNamed(name);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(other_, outputs);
    outputs.startCall();
    std::future<DWORD> pinCall;
    EntryCall signature = callNamed("CardSignData signs");
    signature.before = call.before;
    // Whatever the PIN is by then.
    queueResult("orvane_signHash", 0, kSofttokenKeep, 4, {1, 2, 3, 4});
    whileHeldIn("orvane_signHash", signature, [&] {
      pinCall = std::async(std::launch::async, prepared);
      EXPECT_TRUE(comesBack(pinCall)) << "it waits for the signature";
    });
    EXPECT_EQ(pinCall.get(), call.status);
  }
}

}  // namespace
}  // namespace orvane::test
