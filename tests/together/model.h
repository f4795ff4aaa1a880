// The promises that a round holds the minidriver to, as far as they span several calls: whose PIN may still be known,
// and how far a freshness number must have gone and may have gone.
#ifndef ORVANE_TESTS_TOGETHER_MODEL_H
#define ORVANE_TESTS_TOGETHER_MODEL_H

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/card_module.h"
#include "together/plan.h"

namespace orvane::test {

// What was found, in the words of a report.
class Findings {
 public:
  void add(std::string text);
  std::vector<std::string> take();

 private:
  std::mutex mutex_;
  std::vector<std::string> texts_;
};

// A moment of a round. Of two calls, one was over before the other began only if its last moment is the smaller one.
using Stamp = std::uint64_t;

// What one call showed of itself at the token library's border.
struct CallNotes {
  Stamp begun = 0;
  // Until when each token's PIN is known to have been forgotten.
  std::array<Stamp, kRoundTokens.size()> forgotten{};
  // The PINs that the library was asked to accept, with their tokens.
  std::vector<std::pair<std::string, std::string>> offered;
  // The token whose keys were asked for last.
  std::string opened;
  // A card handle was set and not cleared.
  bool isHandleSet = false;
};

// How often something was begun and was done until a moment.
struct Done {
  std::uint64_t begun = 0;
  std::uint64_t ended = 0;
};

// One number of "cardcf": what changes it surely, and what may change it (which counts everything).
class Changes {
 public:
  void reset();
  void begin(bool isSure);
  // `hasCome`: what began as a sure change was one.
  void end(bool isSure, bool hasCome);

  // Both kinds at one moment, and those that were thought sure and were not.
  struct Count {
    Done sure;
    Done possible;
    std::uint64_t voided = 0;
  };
  Count count() const;

 private:
  std::atomic<std::uint64_t> sureBegun_{0}, sureEnded_{0}, begun_{0}, ended_{0}, voided_{0};
};

// The numbers of a token, with the moments around the call that read them.
struct Reading {
  struct Moment {
    Changes::Count version, pins, lists;
    std::uint64_t removals = 0;
    bool isPolled = false;  // a poll is under way
    bool isSure = true;     // the monitor's own thread has not polled since it was settled
  };
  Moment before, after;
  CARD_CACHE_FILE_FORMAT file{};
};

// Model follows a round. Each thread begins and ends its calls with it; the observer of the software token tells it
// every library call. Nothing in it makes one thread wait for another unless PINs are in play: under the thread
// sanitizer that would order them, and hide what it looks for.
class Model {
 public:
  explicit Model(Findings& findings) : findings_(findings) {}
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  // --- calls ---
  // From here to endCall the calling thread's library calls are noted there.
  void beginCall(CallNotes& notes);
  // `hasRefused`: the library's answer was no, so that no PIN was kept.
  void endCall(CallNotes& notes, bool hasRefused);
  // A library call of the calling thread, as the software token writes it. A thread that is in no call of ours is the
  // monitor's.
  void noteLibraryCall(const char* text);
  // The monitor's own thread has done what it began. When it goes on, nobody knows what changed when.
  void settle();

  // --- PINs ---
  // The PIN of this token was forgotten by a call that began then.
  void forgetPin(const std::string& serial, Stamp begun);
  // Whether a PIN of this token may be known to a call, at its end.
  bool mayKnowPin(const CallNotes& notes, const std::string& serial);

  // --- freshness, by the token's position; nothing happens for a position behind the last one ---
  void beginPinChange(std::size_t token, bool isSure);
  void endPinChange(std::size_t token, bool isSure, bool hasCome);
  void beginListChange(std::size_t token);
  void endListChange(std::size_t token);
  Reading::Moment moment(std::size_t token) const;
  // What is wrong with the second of two readings of a token; empty when nothing is, or nothing can be said.
  static std::string difference(const Reading& first, const Reading& second);

  // --- the monitor's polls, one at a time ---
  using Serials = std::set<std::string>;
  void beginPoll(const Serials& present);
  void endPoll(const Serials& before, const Serials& after);

 private:
  struct Knowledge {
    unsigned underWay = 0;  // calls that may still store it
    Stamp stored = 0;       // the end of the last one that may have
  };
  bool mayBeKnown(const CallNotes& notes, const std::string& serial, const std::string* pin);
  void checkPin(const CallNotes& notes, const std::string& serial, const std::string& pin, const char* function);
  Stamp now();

  Findings& findings_;
  std::atomic<Stamp> clock_{0};
  std::atomic<std::uint64_t> foreignPolls_{0};
  std::uint64_t settledPolls_ = 0;
  std::array<std::atomic<Stamp>, kRoundTokens.size()> forgotten_{};
  std::mutex pinsMutex_;
  std::map<std::pair<std::string, std::string>, Knowledge> pins_;
  Changes version_;
  std::array<Changes, kRoundTokens.size()> pinChanges_, listChanges_;
  std::array<std::atomic<std::uint64_t>, kRoundTokens.size()> removals_{};
  std::atomic<std::uint64_t> pollsBegun_{0}, pollsEnded_{0};
  Stamp pollBegun_ = 0;
};

// The token's position in kRoundTokens; its size for another serial.
std::size_t positionOf(const std::string& serial);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_MODEL_H
