// What a call does under which lock, and what another thread may do between two of its lock periods. Nothing here
// depends on how threads are scheduled: the calling thread itself looks, or acts for the other one, whenever it is
// about to lock a mutex or has just unlocked one. Native only: there every mutex can be diverted (see
// tests/CMakeLists.txt).
#include <pthread.h>

#include <functional>
#include <memory>
#include <tuple>
#include <utility>

#include "cache/process_state.h"
#include "harness/all_calls.h"
#include "harness/call_test.h"
#include "platform/host/host_control.h"

namespace {

// What the thread that set them does before it locks a mutex, and after it has unlocked one; nothing while it does.
using Action = std::function<void(const pthread_mutex_t* mutex)>;
thread_local Action beforeLock;
thread_local Action afterUnlock;

void run(Action& action, const pthread_mutex_t* mutex) {
  if (!action) return;
  Action running = std::exchange(action, nullptr);
  running(mutex);
  action = std::move(running);
}

}  // namespace

// Names that begin with two underscores are the linker's.
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  run(beforeLock, mutex);
  return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const int result = __real_pthread_mutex_unlock(mutex);
  run(afterUnlock, mutex);
  return result;
}
}

namespace orvane::test {
namespace {

bool lies(const void* inner, const void* outer, std::size_t size) {
  const auto* const first = static_cast<const char*>(outer);
  return inner >= first && inner < first + size;
}

// The name of one of the minidriver's mutexes, or of the object that it belongs to; empty for all others, which are the
// software token's.
std::string nameOf(const pthread_mutex_t* mutex) {
  ProcessState& state = processState();
  if (lies(mutex, &state.libraryMutex, sizeof(Mutex))) return "libraryMutex";
  if (lies(mutex, &state.contextSlotMutex, sizeof(Mutex))) return "contextSlotMutex";
  if (lies(mutex, &state.deviceCache, sizeof(DeviceCache))) return "deviceCacheMutex";
  if (lies(mutex, &state.containerListCache, sizeof(ContainerListCache))) return "containerListCache";
  return "";
}

// The library function that this thread has called last.
std::string lastCall() {
  for (std::size_t position = softtoken_call_count(); position-- > 0;) {
    SofttokenCall call{};
    std::string text(softtoken_call(position, &call, nullptr, 0), '\0');
    softtoken_call(position, &call, text.data(), text.size());
    if (call.thread == softtoken_thread()) return text.substr(0, text.find('('));
  }
  return "";
}

class BetweenLocks : public CallTest {
 protected:
  void TearDown() override {
    host::hostMachine().whenAsked = nullptr;
    CallTest::TearDown();
  }

  // Makes the call and tells what it did one after the other: which of its mutexes it unlocked and what it asked of the
  // library and the resource manager, each with " (locked)" when the library lock was held.
  Lines stepsOf(const std::function<DWORD()>& call, DWORD status) {
    Lines steps;
    const auto note = [&steps](const std::string& step) {
      // The allocator of the caller, before the first library call; and a lock as long as a pointer is copied.
      if (step.empty() || step == "containerListCache") return;
      Mutex& libraryMutex = processState().libraryMutex;
      const bool isFree = libraryMutex.tryLock();
      if (isFree) libraryMutex.unlock();
      const std::string line = step + (isFree ? "" : " (locked)");
      // The software token locks its own mutexes several times in a call.
      if (steps.empty() || steps.back() != line || line.starts_with("deviceCacheMutex")) steps.push_back(line);
    };
    host::hostMachine().whenAsked = [&](const char* function) {
      const Action suspended = std::exchange(afterUnlock, nullptr);
      note(function);
      afterUnlock = suspended;
    };
    afterUnlock = [&](const pthread_mutex_t* mutex) {
      const std::string name = nameOf(mutex);
      note(name.empty() ? lastCall() : name);
    };
    EXPECT_EQ(call(), status);
    afterUnlock = nullptr;
    host::hostMachine().whenAsked = nullptr;
    return steps;
  }
};

// The reader is looked up before, keys are counted and made known after: only what talks to the token excludes others.
TEST_F(BetweenLocks, AnAcquisitionExcludesOthersWhileItTalksToTheToken) {
  DriverTest::startAnew({.keys = {makeKey(1, 3)}});
  resourceManager.readerName = "Brightfold Smart Token";
  resourceManager.reply = {'0', '0', '1', '2', 'A', 'B', 0x90, 0};
  // So that the monitor runs and its start does not show.
  CARD_DATA first = newRecord();
  ASSERT_EQ(acquire(first), 0u);
  ASSERT_EQ(first.pfnCardDeleteContext(&first), 0u);
  defineToken({.keys = {makeKey(1, 3), makeKey(2, 3)}});
  processState().deviceCache.erase(kSerial);
  processState().containerListCache.erase(kSerial);
  CARD_DATA record = newRecord();
  record.hScard = kCardHandle;
  forget();
  const Lines steps = stepsOf(
      [&] {
        const Action look = afterUnlock;
        afterUnlock = [look](const pthread_mutex_t* mutex) {
          look(mutex);
          // The new list is made known to other contexts when the library lock is free again, and not before.
          if (nameOf(mutex) == "libraryMutex") EXPECT_EQ(processState().containerListCache.find(kSerial), nullptr);
        };
        return CardAcquireContext(&record, 0);
      },
      0);
  EXPECT_EQ(steps, (Lines{"SCardStatusA", "orvane_init (locked)", "orvane_getConnectedDeviceList (locked)",
                          "SCardTransmit (locked)",
                          // The context is attached, and the device is not initialised yet.
                          "deviceCacheMutex (locked)", "deviceCacheMutex (locked)", "orvane_initDevice (locked)",
                          // It is now.
                          "deviceCacheMutex (locked)", "orvane_clearExternalSmartcardHandle (locked)",
                          "orvane_getKeyPairList (locked)",
                          // It is initialised.
                          "deviceCacheMutex (locked)", "libraryMutex",
                          // The key count, the freshness of containers and files.
                          "deviceCacheMutex", "deviceCacheMutex", "deviceCacheMutex", "contextSlotMutex"}));
  EXPECT_NE(processState().containerListCache.find(kSerial), nullptr);
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
}

// The cached PIN is fetched before the library lock is taken, and never while it is held.
TEST_F(BetweenLocks, ThePinIsFetchedBeforeTheLibraryLockIsTaken) {
  const struct {
    const char* call;
    const char* function;
  } rows[] = {{"CardSignData signs", "orvane_signHash (locked)"}, {"CardRSADecrypt", "orvane_decrypt (locked)"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    const EntryCall call = callNamed(row.call);
    CARD_DATA& record = openFor(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    EXPECT_EQ(stepsOf(prepared, call.status),
              (Lines{"contextSlotMutex", "deviceCacheMutex", "orvane_setExternalSmartcardHandle (locked)", row.function,
                     "orvane_clearExternalSmartcardHandle (locked)", "libraryMutex"}));
  }
}

// The system replaces the handle in the record while a call waits for the library lock.
TEST_F(BetweenLocks, TheCardHandleIsReadOnceTheLibraryLockIsThere) {
  for (const char* const name :
       {"CardSignData signs", "CardRSADecrypt", "CardAuthenticateEx on the token", "CardReadFile ksc0"}) {
    SCOPED_TRACE(name);
    const EntryCall call = callNamed(name);
    CARD_DATA& record = openFor(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    forget();
    beforeLock = [&](const pthread_mutex_t* mutex) {
      if (nameOf(mutex) == "libraryMutex") record.hScard = 0x77;
    };
    EXPECT_EQ(prepared(), call.status);
    beforeLock = nullptr;
    const Lines calls = takeCalls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front(), "orvane_setExternalSmartcardHandle(0x77)");
  }
}

// A right PIN that another context forgets meanwhile is not refused: either it still counts or the token is asked.
TEST_F(BetweenLocks, ARightPinThatIsForgottenMeanwhileIsNotRefused) {
  for (const bool isCached : {false, true}) {
    unsigned number = 0;
    for (bool isForgotten = true; isForgotten; ++number) {
      SCOPED_TRACE(::testing::Message() << "cached " << isCached << ", after unlocking " << number + 1);
      CARD_DATA& record = openFresh();
      CARD_DATA& other = openContext();
      if (isCached) authenticate(record);
      PinBytes pin{kUserPin};
      isForgotten = false;
      afterUnlock = [&, left = number + 1](const pthread_mutex_t*) mutable {
        if (--left != 0) return;
        isForgotten = true;
        EXPECT_EQ(other.pfnCardDeauthenticateEx(&other, PIN_SET_ALL_ROLES, 0), 0u);
      };
      EXPECT_EQ(record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr, nullptr),
                0u);
      afterUnlock = nullptr;
      forget();
    }
    // The context's slot and the token's record at least.
    EXPECT_GE(number, 3u);
  }
}

// A PIN that the token refuses takes back what another context's right one left while this call waited its turn.
TEST_F(BetweenLocks, ARefusedPinForgetsTheOneThatWasAcceptedMeanwhile) {
  CARD_DATA& record = openFresh();
  CARD_DATA& other = openContext();
  forget();
  bool isAccepted = false;
  beforeLock = [&](const pthread_mutex_t* mutex) {
    if (isAccepted || nameOf(mutex) != "libraryMutex") return;
    isAccepted = true;
    authenticate(other);
    EXPECT_TRUE(processState().deviceCache.pinState(kSerial).isValidatedLocal);
    forget();
  };
  PinBytes pin{kWrongPin};
  DWORD attempts = 0xABCD;
  EXPECT_EQ(record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr, &attempts),
            code(SCARD_W_WRONG_CHV));
  beforeLock = nullptr;
  EXPECT_TRUE(isAccepted);
  EXPECT_EQ(attempts, 2u);
  EXPECT_EQ(takeLog(), (Lines{"E invalid password for [0012AB] : 160",
                              "E CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV"}));
  const PinState state = processState().deviceCache.pinState(kSerial);
  EXPECT_FALSE(state.isCached);
  EXPECT_FALSE(state.isValidatedLocal);
  forget();
}

// The map of lists is copied, changed and put in the old one's place; what another thread put there meanwhile stays.
TEST_F(BetweenLocks, AListThatChangesMeanwhileIsNotLost) {
  const auto list = std::make_shared<const ContainerList>();
  using Change = void (*)(ContainerListCache&, const std::shared_ptr<const ContainerList>&);
  const Change replace = [](auto& lists, const auto& with) { lists.replace("ours", with); };
  const Change erase = [](auto& lists, const auto&) { lists.erase("ours"); };
  const Change otherReplace = [](auto& lists, const auto& with) { lists.replace("other", with); };
  const Change otherErase = [](auto& lists, const auto&) { lists.erase("other"); };
  const struct {
    const char* name;
    Change change;
    Change meanwhile;
    bool hasOurs;
    bool hasOther;
  } rows[] = {{"replaced, and another replaced", replace, otherReplace, true, true},
              {"replaced, and another erased", replace, otherErase, true, false},
              {"erased, and another replaced", erase, otherReplace, false, true},
              {"erased, and another erased", erase, otherErase, false, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ContainerListCache lists;
    if (!row.hasOurs) replace(lists, list);
    if (!row.hasOther) otherReplace(lists, list);
    unsigned times = 0;
    afterUnlock = [&](const pthread_mutex_t* mutex) {
      // The first time the map has just been looked at.
      if (lies(mutex, &lists, sizeof(lists)) && times++ == 0) row.meanwhile(lists, list);
    };
    row.change(lists, list);
    afterUnlock = nullptr;
    EXPECT_EQ(times, 4u) << "looked, put in vain, looked again, put";
    EXPECT_EQ(lists.find("ours"), row.hasOurs ? list : nullptr);
    EXPECT_EQ(lists.find("other"), row.hasOther ? list : nullptr);
  }
}

}  // namespace
}  // namespace orvane::test
