#include "together/round.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

#include "cache/process_state.h"
#include "harness/driver_loader.h"
#include "platform/host/host_control.h"
#include "soak/process_usage.h"
#include "softtoken/softtoken_control.h"
#include "together/caller.h"
#include "together/caller_blocks.h"
#include "together/surroundings.h"
#include "tokenlib/token_client.h"

namespace orvane::test {
namespace {

constexpr const char* kListCall = "orvane_getConnectedDeviceList";
constexpr unsigned kLongMs = 120000;     // bounds a round that hangs
constexpr unsigned kMostLooks = 100000;  // at the threads, until one that was joined is gone
// What the caches hold when no token is left: the map of container lists, which is empty.
constexpr std::size_t kMostBlocksInCaches = 1;

// The software token tells its calls to a plain function.
Model* observingModel = nullptr;
void observe(const char* call) { observingModel->noteLibraryCall(call); }

bool hasMonitorPolled() {
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  return !machine.pauses.empty();
}

// Ends the process when nothing goes on for too long.
class Watch {
 public:
  Watch(const std::deque<Caller>& callers, const std::atomic<std::size_t>& progress, const Plan& plan,
        OwnMemory& memory)
      : thread_([&, this] {
          memory.startOutside();
          std::unique_lock lock(mutex_);
          for (std::size_t seen = progress;; seen = progress) {
            if (ended_.wait_for(lock, std::chrono::milliseconds(kLongMs), [this] { return isOver_; })) return;
            if (progress == seen) break;
          }
          dprintf(STDERR_FILENO, "round seed %llu: no call comes back\n", static_cast<unsigned long long>(plan.seed));
          for (const Caller& caller : callers) {
            const Action* const action = caller.current();
            dprintf(STDERR_FILENO, "  %s: %s\n", caller.name().c_str(),
                    action != nullptr ? textOf(*action).c_str() : "");
          }
          std::abort();
        }) {}
  ~Watch() {
    {
      const std::lock_guard lock(mutex_);
      isOver_ = true;
    }
    ended_.notify_all();
    thread_.join();
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  bool isOver_ = false;
  std::thread thread_;
};

class Round {
 public:
  Round(const Plan& plan, OwnMemory& memory, const std::filesystem::path& folder)
      : plan_(plan),
        memory_(memory),
        model_(findings_),
        surroundings_(memory, model_, findings_, folder, plan.mayKeepHandle),
        records_(plan.callers.size() * plan.recordsPerCaller),
        scene_{memory, model_, findings_, records_, callsOfTheRounds(), nullptr, nullptr, progress_} {
    for (CARD_DATA& record : records_) record = roundRecord(memory);
    scene_.acquireContext = reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(driverExport("CardAcquireContext"));
    scene_.deleteContext = reinterpret_cast<PFN_CARD_DELETE_CONTEXT>(driverExport("CardDeleteContext"));
    for (std::size_t i = 0; i < plan.callers.size(); ++i) {
      callers_.emplace_back(scene_, "caller " + std::to_string(i),
                            std::span(records_).subspan(i * plan.recordsPerCaller, plan.recordsPerCaller));
    }
    observingModel = &model_;
    softtoken_observe(observe);
  }
  ~Round() { softtoken_observe(nullptr); }
  Round(const Round&) = delete;
  Round& operator=(const Round&) = delete;

  std::vector<std::string> run(Tally& tally) {
    // A sanitizer has a thread of its own, which comes with the first one of ours.
    static const bool hasHadThreads = (std::thread([] {}).join(), true);
    static_cast<void>(hasHadThreads);
    const ProcessUsage before = processUsage();
    {
      const Watch watch(callers_, progress_, plan_, memory_);
      if (plan_.isSingleThreaded || !plan_.startsCold) startMonitor();
      if (plan_.isSingleThreaded) {
        takeTurns();
      } else {
        runThreads();
      }
      checkRest();
      unload();
    }
    surroundings_.checkLog();
    // A thread that has been joined is still there for the moment that its last system call needs to end.
    ProcessUsage after = processUsage();
    for (unsigned i = 0; i < kMostLooks && after.threads > before.threads; ++i) {
      std::this_thread::yield();
      after = processUsage();
    }
    expectSame("open files", before.handles, after.handles);
    expect(after.threads <= before.threads, "a thread is left after the round");
    expectSame("blocks of the caller", 0, callerBlocksInUse());
    for (std::string& fault : takeCallerBlockFaults()) findings_.add(std::move(fault));
    for (const Caller& caller : callers_) tally.add(caller.tally());
    tally.add(surroundings_.tally());
    tally.count(Kind::kUnloads);
    return findings_.take();
  }

 private:
  void expect(bool condition, const char* what) {
    if (!condition) findings_.add(what);
  }
  void expectSame(const char* what, std::size_t before, std::size_t after) {
    if (before != after) {
      findings_.add(std::string(what) + ": " + std::to_string(after) + " after the round, and not " +
                    std::to_string(before));
    }
  }

  // A context is acquired and deleted; from then on the monitor has polled, or, in a single thread, is held.
  void startMonitor() {
    if (plan_.isSingleThreaded) softtoken_gate(kListCall, 1);
    CARD_DATA record = roundRecord(memory_);
    memory_.enter(std::nullopt);
    expect(scene_.acquireContext(&record, 0) == 0, "no context at the beginning");
    expect(scene_.deleteContext(&record) == 0, "a context cannot be deleted");
    memory_.leave();
    if (plan_.isSingleThreaded) {
      expect(softtoken_wait_held(kListCall, kLongMs) == 1, "the monitor does not come");
    } else {
      // The round is bounded by its watch.
      while (!hasMonitorPolled()) std::this_thread::yield();
    }
    model_.settle();
  }

  void takeTurns() {
    std::vector<std::size_t> next(plan_.callers.size() + 1);
    for (const unsigned turn : plan_.turns) {
      const std::size_t position = next[turn]++;
      if (turn < plan_.callers.size()) {
        callers_[turn].perform(plan_.callers[turn][position]);
      } else {
        surroundings_.bring(plan_.troubles[position]);
      }
    }
  }

  void runThreads() {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < callers_.size(); ++i) {
      threads.emplace_back([this, i] {
        memory_.startOutside();
        for (const Action& action : plan_.callers[i]) callers_[i].perform(action);
        running_.fetch_sub(1, std::memory_order_relaxed);
      });
    }
    std::thread trouble([this] {
      memory_.startOutside();
      bringTroubles();
    });
    for (std::thread& thread : threads) thread.join();
    trouble.join();
  }

  // Spread over the calls; the rest at once when there are none any more.
  void bringTroubles() {
    const std::size_t calls = plan_.callCount();
    for (std::size_t i = 0; i < plan_.troubles.size(); ++i) {
      const std::size_t due = calls * i / plan_.troubles.size();
      while (progress_.load(std::memory_order_relaxed) < due && running_.load(std::memory_order_relaxed) != 0) {
        std::this_thread::yield();
      }
      surroundings_.bring(plan_.troubles[i]);
    }
  }

  // Nobody calls any more.
  void checkRest() {
    for (CARD_DATA& record : records_) deleteContext(record);
    checkLocks();
    checkHandle();
    surroundings_.makeWell();
    checkUsable();
    if (plan_.endsWithoutMonitor) {
      // From here on our polls are the only ones.
      processState().monitor.stopDeviceMonitor();
      checkForgotten();
    }
  }

  void deleteContext(CARD_DATA& record) {
    memory_.enter(std::nullopt);
    expect(scene_.deleteContext(&record) == 0, "a context cannot be deleted at the end");
    memory_.leave();
    expect(record.pvVendorSpecific == nullptr, "a deleted context is still in its record");
  }

  void checkLocks() {
    ProcessState& state = processState();
    for (Mutex* const mutex : {&state.libraryMutex, &state.contextSlotMutex}) {
      const bool isFree = mutex->tryLock();
      expect(isFree, "a lock is held although nobody calls");
      if (isFree) mutex->unlock();
    }
  }

  // What the library knows is shown by its next call.
  void checkHandle() {
    if (plan_.mayKeepHandle) return;
    expect(softtoken_handle_overlaps() == 0, "two calls talked to the card at once");
    softtoken_clear_calls();
    CallNotes notes;
    model_.beginCall(notes);
    try {
      tokenlib::connectedDeviceList();
    } catch (const std::exception&) {
      // It was prepared to throw; the call is recorded all the same.
    }
    model_.endCall(notes, false);
    SofttokenCall call{};
    expect(softtoken_call(0, &call, nullptr, 0) != 0 && call.cardHandle == 0, "a card handle is still set");
  }

  // After all that a caller gets what it wants.
  void checkUsable() {
    CARD_DATA record = roundRecord(memory_);
    CallNotes notes;
    model_.beginCall(notes);
    memory_.enter(std::nullopt);
    const DWORD acquired = scene_.acquireContext(&record, 0);
    record.hScard = kCardHandle;
    PinBytes pin{std::string(kUserPin)};
    DWORD verified = 1;
    DWORD done = 1;
    Bytes hash(32, 1);
    CARD_SIGNING_INFO info = signingOf(hash);
    if (acquired == 0) {
      // Whatever PIN is known: the right one is wanted.
      record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0);
      verified = record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr, nullptr);
      done = record.pfnCardSignData(&record, &info);
    }
    scene_.deleteContext(&record);
    memory_.leave();
    model_.endCall(notes, false);
    if (info.pbSignedData != nullptr) releaseCallerBlock(info.pbSignedData);
    expect(acquired == 0 && verified == 0 && done == 0, "after the round nobody can sign");
  }

  // The monitor sees all tokens go.
  void checkForgotten() {
    // It must have seen them first.
    surroundings_.poll(std::nullopt);
    for (const char* const serial : kRoundTokens) expect(surroundings_.hasSeen(serial), "the monitor misses a token");
    surroundings_.takeTokensAway();
    ProcessState& state = processState();
    for (const char* const serial : kRoundTokens) {
      expect(state.deviceCache.getCachedPassword(serial).empty(), "a PIN outlives its token");
      expect(!state.deviceCache.hasRecord(serial), "a token's record outlives it");
      expect(state.containerListCache.find(serial) == nullptr, "a token's container list outlives it");
    }
    // Whom the monitor did not see go: prepared answers named it.
    state.deviceCache.erase(kStranger);
    state.containerListCache.erase(kStranger);
    judgeBlocks("without contexts and tokens", kMostBlocksInCaches);
  }

  // What the minidriver has in use, at most so many blocks.
  void judgeBlocks(const std::string& when, std::size_t most) {
    const auto blocks = memory_.blocksInUse();
    if (!blocks || blocks->size() <= most) return;
    std::string text = when + " there are blocks of the minidriver's in use:";
    for (const std::size_t size : *blocks) text += " " + std::to_string(size);
    findings_.add(text);
  }

  void unload() {
    unloadDriver();
    surroundings_.forgetMonitor();
    judgeBlocks("after the unloading", 0);
  }

  const Plan& plan_;
  OwnMemory& memory_;
  Findings findings_;
  Model model_;
  Surroundings surroundings_;
  std::vector<CARD_DATA> records_;
  std::atomic<std::size_t> progress_{0};
  Scene scene_;
  std::deque<Caller> callers_;
  std::atomic<std::size_t> running_{plan_.callers.size()};
};

}  // namespace

std::vector<std::string> runRound(const Plan& plan, OwnMemory& memory, const std::filesystem::path& folder,
                                  Tally& tally) {
  return Round(plan, memory, folder).run(tally);
}

}  // namespace orvane::test
