// Many threads at once: every entry point in a random order on contexts of several tokens, while tokens come and go,
// PINs change, and contexts are deleted and acquired again, sometimes by another thread while a call runs on them.
//
// The order is random but seeded, the amount is a number of calls. What happens is the business of the thread and
// address sanitizers; beyond that every status must be one that the situation explains, and the log must consist of
// whole lines where the system appends in one step.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <thread>

#include "harness/call_test.h"
#include "harness/machine.h"
#ifndef _WIN32
#include "cache/device_monitor.h"
#endif

namespace orvane::test {
namespace {

constexpr unsigned kThreads = 16;
constexpr unsigned kContextsPerThread = 2;
constexpr const char* kTokens[] = {"0012AA", "0012AB", "0012AC", "0012AD"};
// Calls of each thread: with the log, which is read line by line in the end, and without. On Windows the system under
// test is emulated.
#ifdef _WIN32
constexpr unsigned kLoggedCalls = 60;
constexpr unsigned kSilentCalls = 200;
#else
constexpr unsigned kLoggedCalls = 500;
constexpr unsigned kSilentCalls = 5000;
#endif

// An allocator without a lock: one would order the threads and hide races from the sanitizer.
LPVOID WINAPI allocatePlain(SIZE_T size) { return std::malloc(size != 0 ? size : 1); }
LPVOID WINAPI reallocatePlain(LPVOID block, SIZE_T size) { return std::realloc(block, size); }
void WINAPI releasePlain(LPVOID block) { std::free(block); }

// The statuses that a storm explains.
bool isExplained(DWORD status) {
  static const std::set<DWORD> statuses = {
      0,
      ERROR_FILE_NOT_FOUND,                 // the token is gone
      ERROR_INVALID_PARAMETER,              // the context is gone
      ERROR_INSUFFICIENT_BUFFER,            // a longer serial
      code(SCARD_E_NO_SMARTCARD),           // all tokens are gone
      code(SCARD_E_INVALID_PARAMETER),      // the token refused
      code(SCARD_E_UNSUPPORTED_FEATURE),    // not offered
      code(SCARD_E_FILE_NOT_FOUND),         // no such container now
      code(SCARD_E_NO_KEY_CONTAINER),       // no such container now
      code(SCARD_W_WRONG_CHV),              // the PIN was changed meanwhile
      code(SCARD_W_CARD_NOT_AUTHENTICATED)  // no PIN known
  };
  return statuses.count(status) != 0;
}

class Storm : public CallTest {
 protected:
  void defineTokens() {
    for (const char* const serial : kTokens) {
      TestToken token = tokenForCalls(serial);
      token.tries = 1000000;
      defineToken(token);
    }
  }

  void run(unsigned seed, unsigned calls) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    defineTokens();
    // The first acquisition starts the monitor, which then polls freely.
    CARD_DATA first = newRecord();
    ASSERT_EQ(acquire(first), 0u);
    openMonitor();
    records_ = std::make_unique<std::array<CARD_DATA, kThreads * kContextsPerThread>>();
    for (CARD_DATA& record : *records_) {
      record = newRecord();
      record.pvVendorSpecific = nullptr;
      record.pfnCspAlloc = allocatePlain;
      record.pfnCspReAlloc = reallocatePlain;
      record.pfnCspFree = releasePlain;
    }
    acquireContext_ = acquireContextExport();
    deleteContext_ = deleteContextExport();

    std::vector<std::thread> workers;
    workers.reserve(kThreads);
    for (unsigned i = 0; i < kThreads; ++i) workers.emplace_back([this, i, seed, calls] { work(i, seed + i, calls); });
    std::thread weather([this, seed] { changeWeather(seed); });
    for (std::thread& worker : workers) worker.join();
    isOver_ = true;
    weather.join();

    for (CARD_DATA& record : *records_) EXPECT_EQ(deleteContext_(&record), 0u);
    EXPECT_EQ(deleteContext_(&first), 0u);
    EXPECT_EQ(unexplained_.load(), 0u);
    EXPECT_EQ(softtoken_handle_overlaps(), 0u) << "two calls talked to the card at once";
    // Nobody was left out.
    EXPECT_GT(acquired_.load(), kThreads);
    softtoken_clear_calls();
    for (const char* const serial : kTokens) softtoken_set_connected(serial, 1);
    machine::setResourceManager({});
    CARD_DATA last = newRecord();
    EXPECT_EQ(acquireContext_(&last, 0), 0u);
    EXPECT_EQ(deleteContext_(&last), 0u);
#ifndef _WIN32
    // The emulated Windows systems look for the end of the file and write there in two steps, so that lines of several
    // threads may overwrite each other there; here, as on the real system, an append is one step.
    for (const std::string& line : takeLog()) EXPECT_NE(line[0], '?') << line;
#endif
  }

 private:
  // One thread: its own contexts by turns, now and then the deletion of somebody else's.
  void work(unsigned index, unsigned seed, unsigned count) {
    std::minstd_rand random(seed);
    const std::vector<EntryCall> calls = allCalls();
    for (unsigned i = 0; i < kContextsPerThread; ++i) acquireAnew(mine(index, i), random);
    for (unsigned i = 0; i < count; ++i) {
      CARD_DATA& record = mine(index, static_cast<unsigned>(random() % kContextsPerThread));
      const auto choice = random() % 100;
      if (choice < 4) {
        check(deleteContext_(&(*records_)[random() % records_->size()]));
      } else if (choice < 14) {
        acquireAnew(record, random);
      } else {
        const EntryCall& call = calls[random() % calls.size()];
        // A record that never was acquired has no functions yet.
        if (record.pfnCardDeleteContext == untouched_) continue;
        CallOutputs outputs(releasePlain);
        const std::function<DWORD()> prepared = call.prepare(record, outputs);
        outputs.startCall();
        check(prepared());
      }
    }
  }

  template <typename Random>
  void acquireAnew(CARD_DATA& record, Random& random) {
    check(deleteContext_(&record));
    record.hScard = random() % 4 == 0 ? 0 : kCardHandle;
    const DWORD status = acquireContext_(&record, 0);
    check(status);
    if (status == 0) ++acquired_;
  }

  // Tokens come and go, readers change places.
  void changeWeather(unsigned seed) {
    std::minstd_rand random(seed);
#ifndef _WIN32
    DeviceMonitor::KnownDevices known;
#endif
    while (!isOver_) {
      softtoken_set_connected(kTokens[random() % std::size(kTokens)], random() % 3 != 0);
      ResourceManager manager;
      manager.readerName = std::string("Reader of ") + kTokens[random() % std::size(kTokens)];
      machine::setResourceManager(manager);
      machine::startThreads();
#ifndef _WIN32
      // The monitor's own period is too long for a storm; its polls are the same.
      DeviceMonitor::pollDevices(known);
#endif
      softtoken_clear_calls();
      std::this_thread::sleep_for(std::chrono::milliseconds(1 + random() % 3));
    }
  }

  void check(DWORD status) {
    if (isExplained(status)) return;
    ++unexplained_;
    ADD_FAILURE() << "status 0x" << std::hex << status;
  }

  CARD_DATA& mine(unsigned thread, unsigned index) { return (*records_)[thread * kContextsPerThread + index]; }

  std::unique_ptr<std::array<CARD_DATA, kThreads * kContextsPerThread>> records_;
  PFN_CARD_ACQUIRE_CONTEXT acquireContext_ = nullptr;
  PFN_CARD_DELETE_CONTEXT deleteContext_ = nullptr;
  const PFN_CARD_DELETE_CONTEXT untouched_ = newRecord().pfnCardDeleteContext;
  std::atomic<bool> isOver_{false};
  std::atomic<unsigned> unexplained_{0};
  std::atomic<unsigned> acquired_{0};
};

TEST_F(Storm, WithTheLog) { run(20261115, kLoggedCalls); }

// Without the log's system calls the threads meet elsewhere.
TEST_F(Storm, WithoutTheLog) {
  setDebugLog(false);
  run(7, kSilentCalls);
}

// The end of a context while a call runs on it: neither waits for the other, and the call ends as if nothing happened.
TEST_F(Storm, DeletesAContextUnderARunningCall) {
  struct Row {
    const char* call;
    const char* function;  // the call is held in it
  };
  const Row rows[] = {
      {"CardSignData signs", "orvane_signHash"},
      {"CardRSADecrypt", "orvane_decrypt"},
      {"CardAuthenticatePin", "orvane_validatePassword"},
      {"CardChangeAuthenticatorEx 1", "orvane_changeUserPassword"},
      {"CardReadFile ksc0", "orvane_findCertificateForKey"},
      {"CardReadFile cmapfile list forgotten", "orvane_getKeyPairList"},
  };
  for (const Row& row : rows) {
    const EntryCall call = callNamed(row.call);
    SCOPED_TRACE(row.call);
    CARD_DATA& record = openFor(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    ASSERT_EQ(softtoken_gate(row.function, 1), 1);
    DWORD status = kPoison32;
    std::thread caller([&] { status = prepared(); });
    EXPECT_EQ(softtoken_wait_held(row.function, 120000), 1);
    EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
    EXPECT_EQ(record.pvVendorSpecific, nullptr);
    EXPECT_EQ(takeLog().back(), "D Delete Context Success");
    softtoken_gate(row.function, 0);
    caller.join();
    EXPECT_EQ(status, call.status);
    expectUsable();
  }
}

}  // namespace
}  // namespace orvane::test
