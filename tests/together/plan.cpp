#include "together/plan.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <span>

namespace orvane::test {
namespace {

constexpr unsigned kFewestCalls = 40;
constexpr unsigned kMostCalls = 300;
constexpr unsigned kCallsPerTrouble = 5;

struct Share {
  const char* name;
  unsigned weight;
};

// In the order of Deed.
constexpr Share kDeeds[] = {{"acquire", 9},
                            {"delete", 2},
                            {"delete somebody's", 3},
                            {"call of the list", 18},
                            {"read a file", 8},
                            {"read cardcf", 8},
                            {"enumerate files", 2},
                            {"describe a file", 2},
                            {"CardAuthenticatePin", 5},
                            {"CardAuthenticateEx", 9},
                            {"CardChangeAuthenticator", 3},
                            {"CardChangeAuthenticatorEx", 3},
                            {"CardDeauthenticate", 2},
                            {"CardDeauthenticateEx", 4},
                            {"sign", 10},
                            {"decrypt", 5},
                            {"container info", 3},
                            {"container property", 3},
                            {"get a property", 4},
                            {"move to another token", 2},
                            {"set the card handle", 1}};
static_assert(std::size(kDeeds) == static_cast<std::size_t>(Deed::kCount));

// In the order of TroubleKind.
constexpr Share kTroubles[] = {{"token", 24},    {"poll", 30},     {"answer", 10}, {"exception", 8}, {"reader", 8},
                               {"log level", 6}, {"log place", 8}, {"threads", 2}, {"keys", 5},      {"opening", 3}};
static_assert(std::size(kTroubles) == static_cast<std::size_t>(TroubleKind::kCount));

unsigned drawShare(Draws& draws, std::span<const Share> shares) {
  unsigned left = draws.below(std::accumulate(shares.begin(), shares.end(), 0u,
                                              [](unsigned sum, const Share& share) { return sum + share.weight; }));
  unsigned index = 0;
  for (; left >= shares[index].weight; ++index) left -= shares[index].weight;
  return index;
}

template <typename Numbers>
void drawNumbers(Draws& draws, Numbers& numbers) {
  for (unsigned& number : numbers) number = draws.below(1u << 16);
}

std::optional<MemoryFault> drawFault(Draws& draws, unsigned rarity) {
  // All is drawn in any case: the next draw does not depend on this one.
  const bool isThere = draws.oneIn(rarity);
  // Most calls make few allocations; with the log on, many.
  const unsigned successes = draws.oneIn(3) ? draws.below(60) : draws.below(8);
  const bool isOnce = draws.oneIn(2);
  if (!isThere) return std::nullopt;
  return MemoryFault{successes, isOnce};
}

Action drawAction(Draws& draws, unsigned records) {
  Action action;
  action.deed = static_cast<Deed>(drawShare(draws, kDeeds));
  action.record = draws.below(records);
  drawNumbers(draws, action.numbers);
  action.ownMemory = drawFault(draws, 6);
  const unsigned granted = draws.below(2);
  if (draws.oneIn(12)) action.callerMemory = granted;
  action.areLocksTried = draws.oneIn(8);
  return action;
}

// Makes the actions of a caller ones that change and read the numbers of the first token, but for one in eight.
void makeAboutNumbers(Draws& draws, std::vector<Action>& actions) {
  for (Action& action : actions) {
    const bool isOther = draws.oneIn(8);
    const bool isChange = !draws.oneIn(3);
    if (!isOther) {
      action = {};
      action.deed = isChange ? Deed::kDeauthenticateEx : Deed::kReadFreshness;
    }
    // Without a card handle it is the first token.
    if (action.deed == Deed::kAcquire) action.numbers[0] = 0;
    if (action.deed == Deed::kMoveToToken) action = {};
  }
  actions.front() = {};
}

std::string numbersText(const std::array<unsigned, 4>& numbers) {
  std::string text;
  for (const unsigned number : numbers) text += " " + std::to_string(number);
  return text;
}

std::string faultText(const std::optional<MemoryFault>& fault) {
  if (!fault) return "";
  return ", own memory ends after " + std::to_string(fault->successes) + (fault->isOnce ? " once" : "");
}

}  // namespace

std::uint64_t Draws::next() {
  state_ += 0x9E3779B97F4A7C15u;
  std::uint64_t mixed = state_;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
  return mixed ^ (mixed >> 31);
}

std::uint64_t derivedSeed(std::uint64_t seed, std::uint64_t index) {
  Draws draws(seed);
  return Draws(draws.next() ^ (index * 0xD1342543DE82EF95u)).next();
}

std::string textOf(const Action& action) {
  std::string text = kDeeds[static_cast<std::size_t>(action.deed)].name;
  text +=
      " on record " + std::to_string(action.record) + ":" + numbersText(action.numbers) + faultText(action.ownMemory);
  if (action.callerMemory) text += ", the caller's memory after " + std::to_string(*action.callerMemory);
  return text;
}

std::string textOf(const Trouble& trouble) {
  return kTroubles[static_cast<std::size_t>(trouble.kind)].name + (":" + numbersText(trouble.numbers)) +
         faultText(trouble.ownMemory);
}

std::size_t Plan::callCount() const {
  return std::accumulate(callers.begin(), callers.end(), std::size_t{0},
                         [](std::size_t sum, const auto& actions) { return sum + actions.size(); });
}

Plan drawPlan(std::uint64_t seed, unsigned threads, bool isSingleThreaded) {
  Plan plan;
  plan.seed = seed;
  plan.isSingleThreaded = isSingleThreaded;
  Draws draws(seed);
  const unsigned drawnThreads = 2 + draws.below(5);
  plan.callers.resize(threads != 0 ? threads : drawnThreads);
  plan.startsCold = draws.oneIn(4);
  plan.mayKeepHandle = draws.oneIn(4);
  plan.endsWithoutMonitor = draws.oneIn(2);
  const auto callerCount = static_cast<unsigned>(plan.callers.size());
  plan.isAboutNumbers = draws.oneIn(8);
  plan.recordsPerCaller = 1 + draws.below(std::max(1u, kMostContexts / callerCount));
  if (plan.isAboutNumbers) plan.recordsPerCaller = 1;
  for (unsigned i = 0; i < callerCount; ++i) {
    Draws own(derivedSeed(seed, i + 1));
    plan.callers[i].resize(kFewestCalls + own.below(kMostCalls - kFewestCalls));
    for (Action& action : plan.callers[i]) action = drawAction(own, plan.recordsPerCaller);
    if (plan.isAboutNumbers) makeAboutNumbers(own, plan.callers[i]);
  }
  Draws around(derivedSeed(seed, 0));
  plan.troubles.resize(plan.callCount() / kCallsPerTrouble);
  for (Trouble& trouble : plan.troubles) {
    trouble.kind = static_cast<TroubleKind>(drawShare(around, kTroubles));
    drawNumbers(around, trouble.numbers);
    trouble.ownMemory = drawFault(around, 4);
    if (plan.isAboutNumbers && trouble.kind == TroubleKind::kToken) trouble.numbers[0] |= 1;
  }
  for (unsigned i = 0; i < callerCount; ++i) plan.turns.insert(plan.turns.end(), plan.callers[i].size(), i);
  plan.turns.insert(plan.turns.end(), plan.troubles.size(), callerCount);
  for (std::size_t left = plan.turns.size(); left > 1; --left) {
    std::swap(plan.turns[left - 1], plan.turns[around.below(static_cast<unsigned>(left))]);
  }
  return plan;
}

}  // namespace orvane::test
