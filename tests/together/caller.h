// One caller of a round: its records, its calls, and what must hold for each of them by itself.
#ifndef ORVANE_TESTS_TOGETHER_CALLER_H
#define ORVANE_TESTS_TOGETHER_CALLER_H

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "harness/all_calls.h"
#include "together/model.h"
#include "together/tally.h"

namespace orvane::test {

// What all callers of a round share.
struct Scene {
  OwnMemory& memory;
  Model& model;
  Findings& findings;
  // All records of the round, one caller's behind the other's.
  std::span<CARD_DATA> records;
  std::vector<EntryCall> calls;
  PFN_CARD_ACQUIRE_CONTEXT acquireContext = nullptr;
  PFN_CARD_DELETE_CONTEXT deleteContext = nullptr;
  // Calls that all callers have made.
  std::atomic<std::size_t>& progress;
};

// What a caller draws from for Deed::kFromTheList: all calls but those that are deeds of their own.
std::vector<EntryCall> callsOfTheRounds();

// Caller makes the calls of one list. It checks of every call: a status that there is; status 0 with its outputs, any
// other without, but for those that are documented to be written; no card handle left behind and, now and then, no
// lock.
class Caller {
 public:
  // `records` are its own among the scene's.
  Caller(Scene& scene, std::string name, std::span<CARD_DATA> records);

  void perform(const Action& action);
  const Tally& tally() const { return tally_; }
  // What it does just now, for who wonders why it does not come back. Valid for as long as the plan.
  const Action* current() const { return current_.load(std::memory_order_relaxed); }
  const std::string& name() const { return name_; }

 private:
  struct Own {
    CARD_DATA* record;
    bool isAcquired = false;
    std::string serial;
  };

  template <typename Call>
  DWORD make(const Action& action, const Call& call);
  void report(const std::string& what);
  void tryLocks();
  void expect(bool condition, const char* what) {
    if (!condition) report(what);
  }
  void release(void* block, std::size_t size, const char* what);
  // No PIN of this record's token may be known any more to calls that begin from now on.
  void forgetPin() { scene_.model.forgetPin(own_->serial, notes_.begun); }

  void callEntryPoint(const Action& action);
  void acquire(const Action& action);
  void deleteAnother(const Action& action);
  void callFromTheList(const Action& action);
  void readFile(const Action& action, const char* name);
  void checkFile(const char* name, const BYTE* data, DWORD size);
  void compareFreshness(const Reading& reading);
  void enumerate(const Action& action);
  void describeFile(const Action& action);
  void authenticatePin(const Action& action);
  void authenticateEx(const Action& action);
  void changePin(const Action& action);
  void deauthenticate(const Action& action);
  void sign(const Action& action);
  void decrypt(const Action& action);
  void describeContainer(const Action& action);
  void describeContainerByProperty(const Action& action);
  void getProperty(const Action& action);
  void moveToToken(const Action& action);
  void releaseKeys(const CONTAINER_INFO& info, bool isComplete);

  Scene& scene_;
  const std::string name_;
  std::vector<Own> records_;
  Tally tally_;
  std::atomic<const Action*> current_{nullptr};
  DWORD status_ = 0;
  Own* own_ = nullptr;  // of the current action
  CallNotes notes_;
  // The last numbers that this caller has read of each token.
  std::array<std::optional<Reading>, kRoundTokens.size()> readings_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_CALLER_H
