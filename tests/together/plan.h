// What happens in a round: drawn from a seed before it begins, so that nothing depends on how the threads get on.
#ifndef ORVANE_TESTS_TOGETHER_PLAN_H
#define ORVANE_TESTS_TOGETHER_PLAN_H

#include <array>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "together/own_memory.h"

namespace orvane::test {

// The tokens of a round; a position in this list is how the rest speaks of one.
inline constexpr std::array<const char*, 4> kRoundTokens = {"0012AA", "0012AB", "0012AC", "0012AD"};
// A serial that prepared answers name beside them, and that no token has.
inline constexpr const char* kStranger = "somebody else";
inline constexpr unsigned kMostContexts = 32;

// Draws gives the same numbers for a seed on every machine (the generator is splitmix64).
class Draws {
 public:
  explicit Draws(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next();
  // A number below `bound`, which is not 0.
  unsigned below(unsigned bound) { return static_cast<unsigned>(next() % bound); }
  // True once in `count` times.
  bool oneIn(unsigned count) { return below(count) == 0; }

 private:
  std::uint64_t state_;
};

// The one of a list that a drawn number stands for.
template <typename List>
const auto& pick(const List& list, unsigned number) {
  return list[number % std::size(list)];
}

// The seed of something that belongs to what has `seed`: a round of a run, a thread of a round.
std::uint64_t derivedSeed(std::uint64_t seed, std::uint64_t index);

// What a caller does. Beside its own records it knows those of all callers, to delete them.
enum class Deed : unsigned {
  kAcquire,
  kDelete,
  kDeleteAnother,
  kFromTheList,  // a call of allCalls
  kReadFile,
  kReadFreshness,
  kEnumerate,
  kDescribeFile,
  kAuthenticatePin,
  kAuthenticateEx,
  kChangePin,
  kChangePinEx,
  kDeauthenticate,
  kDeauthenticateEx,
  kSign,
  kDecrypt,
  kContainerInfo,
  kContainerProperty,
  kGetProperty,
  kMoveToToken,  // sets another token's serial
  kSetCardHandle,
  kCount
};

// One deed. What its numbers stand for is the deed's business.
struct Action {
  Deed deed = Deed::kAcquire;
  unsigned record = 0;
  std::array<unsigned, 4> numbers{};
  std::optional<MemoryFault> ownMemory;
  std::optional<unsigned> callerMemory;  // requests that the caller's allocator grants
  bool areLocksTried = false;
};
std::string textOf(const Action& action);

// What happens around the callers.
enum class TroubleKind : unsigned {
  kToken,      // goes, or is there
  kPoll,       // the monitor looks
  kAnswer,     // the library answers its next call of a function with something else
  kException,  // or throws
  kReader,     // another reader, or none, or one that does not answer
  kLogLevel,
  kLogPlace,   // something happens to the log's folder or file
  kNoThreads,  // none can be started, or again they can
  kKeys,       // a token has other keys
  kOpening,    // a token does not open, or opens again
  kCount
};
struct Trouble {
  TroubleKind kind = TroubleKind::kPoll;
  std::array<unsigned, 4> numbers{};
  std::optional<MemoryFault> ownMemory;  // of a poll
};
std::string textOf(const Trouble& trouble);

// A whole round.
struct Plan {
  std::uint64_t seed = 0;
  // Everything in one thread, in one order; else each caller has its own, and trouble one more.
  bool isSingleThreaded = false;
  // The monitor is started by whichever caller comes first; else before them all, and it has polled once.
  bool startsCold = false;
  // The library may refuse to forget a card handle, which then stays there.
  bool mayKeepHandle = false;
  // The monitor's thread ends before the minidriver is unloaded, and what is left in the caches is looked at.
  bool endsWithoutMonitor = false;
  // All callers mostly change and read the numbers of one token, which stays.
  bool isAboutNumbers = false;
  unsigned recordsPerCaller = 1;
  std::vector<std::vector<Action>> callers;
  std::vector<Trouble> troubles;
  // Single-threaded: whose turn it is; the number of callers stands for trouble.
  std::vector<unsigned> turns;

  std::size_t callCount() const;
};

// Draws a round. `threads` is the number of callers, or 0 for one that is drawn (2 to 6).
Plan drawPlan(std::uint64_t seed, unsigned threads, bool isSingleThreaded);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_PLAN_H
