#include "together/model.h"

#include <algorithm>
#include <string_view>

namespace orvane::test {
namespace {

// Every access is in one order for all threads; under the thread sanitizer in none, since any order that we bring about
// hides races. There the machine must not move a read before a locked write: x86 does not.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr std::memory_order kOrder = std::memory_order_relaxed;
#else
constexpr std::memory_order kOrder = std::memory_order_seq_cst;
#endif
#else
constexpr std::memory_order kOrder = std::memory_order_seq_cst;
#endif

// The call that this thread is in.
thread_local CallNotes* currentNotes = nullptr;

// The arguments of a library call, as the software token writes them; none of ours holds a comma.
std::vector<std::string> argumentsOf(std::string_view text) {
  std::vector<std::string> arguments;
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos) return arguments;
  text = text.substr(open + 1, close - open - 1);
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(", ", begin), text.size());
    std::string_view argument = text.substr(begin, end - begin);
    if (argument.size() >= 2 && argument.front() == '"') argument = argument.substr(1, argument.size() - 2);
    arguments.emplace_back(argument);
    begin = end + 2;
  }
  return arguments;
}

// How many steps lead from one value to another; a byte goes from 255 to 1.
std::uint64_t stepsBetween(std::uint8_t from, std::uint8_t to) { return to >= from ? to - from : to + 255u - from; }
std::uint64_t stepsBetween(std::uint16_t from, std::uint16_t to) { return static_cast<std::uint16_t>(to - from); }

template <typename Value>
std::string differenceOf(const char* name, Value from, Value to, const Changes::Count& beforeFirst,
                         const Changes::Count& afterFirst, const Changes::Count& beforeSecond,
                         const Changes::Count& afterSecond) {
  // What was begun and ended in between has surely come, unless it came to nothing.
  const std::uint64_t surely = beforeSecond.sure.ended - std::min(beforeSecond.sure.ended, afterFirst.sure.begun);
  const std::uint64_t voided = afterSecond.voided - beforeFirst.voided;
  const std::uint64_t least = surely - std::min(surely, voided);
  // Whatever was under way at any time from the first reading to the second may have.
  const std::uint64_t most = afterSecond.possible.begun - beforeFirst.possible.ended;
  if (most >= 255) return "";
  const std::uint64_t steps = stepsBetween(from, to);
  if (steps >= least && steps <= most) return "";
  return std::string(name) + " went from " + std::to_string(from) + " to " + std::to_string(to) + ", which is " +
         std::to_string(steps) + " steps and not " + std::to_string(least) + " to " + std::to_string(most);
}

}  // namespace

void Findings::add(std::string text) {
  const std::lock_guard lock(mutex_);
  texts_.push_back(std::move(text));
}

std::vector<std::string> Findings::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(texts_, {});
}

void Changes::begin(bool isSure) {
  begun_.fetch_add(1, kOrder);
  if (isSure) sureBegun_.fetch_add(1, kOrder);
}

void Changes::end(bool isSure, bool hasCome) {
  if (isSure && !hasCome) voided_.fetch_add(1, kOrder);
  if (isSure) sureEnded_.fetch_add(1, kOrder);
  ended_.fetch_add(1, kOrder);
}

Changes::Count Changes::count() const {
  Count count;
  // The ended ones first: never more of them than of those that had begun.
  count.sure.ended = sureEnded_.load(kOrder);
  count.possible.ended = ended_.load(kOrder);
  count.voided = voided_.load(kOrder);
  count.sure.begun = sureBegun_.load(kOrder);
  count.possible.begun = begun_.load(kOrder);
  return count;
}

std::size_t positionOf(const std::string& serial) {
  return static_cast<std::size_t>(std::find(kRoundTokens.begin(), kRoundTokens.end(), serial) - kRoundTokens.begin());
}

Stamp Model::now() { return clock_.fetch_add(1, kOrder) + 1; }

void Model::beginCall(CallNotes& notes) {
  notes = {};
  for (std::size_t i = 0; i < forgotten_.size(); ++i) notes.forgotten[i] = forgotten_[i].load(kOrder);
  notes.begun = now();
  currentNotes = &notes;
}

void Model::endCall(CallNotes& notes, bool hasRefused) {
  currentNotes = nullptr;
  if (notes.offered.empty()) return;
  const Stamp ended = now();
  const std::lock_guard lock(pinsMutex_);
  for (const auto& offered : notes.offered) {
    Knowledge& knowledge = pins_[offered];
    --knowledge.underWay;
    if (!hasRefused) knowledge.stored = std::max(knowledge.stored, ended);
  }
}

void Model::noteLibraryCall(const char* text) {
  const std::string_view call(text);
  CallNotes* const notes = currentNotes;
  if (notes == nullptr) {
    if (call.starts_with("orvane_getConnectedDeviceList")) foreignPolls_.fetch_add(1, kOrder);
    return;
  }
  if (call.starts_with("orvane_setExternalSmartcardHandle")) {
    if (notes->isHandleSet) findings_.add("a card handle was set while the same call had one set");
    notes->isHandleSet = true;
  } else if (call.starts_with("orvane_clearExternalSmartcardHandle")) {
    notes->isHandleSet = false;
  } else if (call.starts_with("orvane_getKeyPairList")) {
    notes->opened = argumentsOf(call).at(0);
  } else if (call.starts_with("orvane_validatePassword") || call.starts_with("orvane_changeUserPassword")) {
    const std::vector<std::string> arguments = argumentsOf(call);
    notes->offered.emplace_back(arguments.at(0), arguments.at(call.starts_with("orvane_validate") ? 1 : 2));
    const std::lock_guard lock(pinsMutex_);
    ++pins_[notes->offered.back()].underWay;
  } else if (call.starts_with("orvane_signHash") || call.starts_with("orvane_decrypt")) {
    const std::vector<std::string> arguments = argumentsOf(call);
    checkPin(*notes, arguments.at(0), arguments.at(2), call.starts_with("orvane_sign") ? "signature" : "decryption");
  }
}

void Model::settle() { settledPolls_ = foreignPolls_.load(kOrder); }

void Model::forgetPin(const std::string& serial, Stamp begun) {
  const std::size_t token = positionOf(serial);
  if (token == forgotten_.size()) return;
  Stamp seen = forgotten_[token].load(kOrder);
  while (seen < begun && !forgotten_[token].compare_exchange_weak(seen, begun, kOrder)) {
  }
}

// A call that ended before the PIN was forgotten has not stored it since.
bool Model::mayBeKnown(const CallNotes& notes, const std::string& serial, const std::string* pin) {
  const std::size_t token = positionOf(serial);
  const Stamp forgotten = token < notes.forgotten.size() ? notes.forgotten[token] : 0;
  const std::lock_guard lock(pinsMutex_);
  return std::any_of(pins_.begin(), pins_.end(), [&](const auto& entry) {
    const auto& [key, knowledge] = entry;
    return key.first == serial && (pin == nullptr || key.second == *pin) &&
           (knowledge.underWay != 0 || knowledge.stored > forgotten);
  });
}

bool Model::mayKnowPin(const CallNotes& notes, const std::string& serial) { return mayBeKnown(notes, serial, nullptr); }

void Model::checkPin(const CallNotes& notes, const std::string& serial, const std::string& pin, const char* function) {
  if (pin.empty() || mayBeKnown(notes, serial, &pin)) return;
  findings_.add("a " + std::string(function) + " on " + serial +
                " came with a PIN that nobody has shown since it was to be forgotten");
}

void Model::beginPinChange(std::size_t token, bool isSure) {
  if (token < pinChanges_.size()) pinChanges_[token].begin(isSure);
}

void Model::endPinChange(std::size_t token, bool isSure, bool hasCome) {
  if (token < pinChanges_.size()) pinChanges_[token].end(isSure, hasCome);
}

void Model::beginListChange(std::size_t token) {
  if (token < listChanges_.size()) listChanges_[token].begin(false);
}

void Model::endListChange(std::size_t token) {
  if (token < listChanges_.size()) listChanges_[token].end(false, false);
}

Reading::Moment Model::moment(std::size_t token) const {
  Reading::Moment moment;
  if (token >= pinChanges_.size()) return moment;
  const std::uint64_t ended = pollsEnded_.load(kOrder);
  moment.removals = removals_[token].load(kOrder);
  moment.version = version_.count();
  moment.pins = pinChanges_[token].count();
  moment.lists = listChanges_[token].count();
  moment.isSure = foreignPolls_.load(kOrder) == settledPolls_;
  moment.isPolled = pollsBegun_.load(kOrder) != ended;
  return moment;
}

std::string Model::difference(const Reading& first, const Reading& second) {
  const auto differenceIn = [&](const char* name, auto from, auto to, Changes::Count Reading::Moment::*changes) {
    return differenceOf(name, from, to, first.before.*changes, first.after.*changes, second.before.*changes,
                        second.after.*changes);
  };
  const auto& from = first.file;
  const auto& to = second.file;
  std::string text = differenceIn("the version", from.bVersion, to.bVersion, &Reading::Moment::version);
  // The token's own numbers begin anew when it goes, and before its record is there they are others.
  const bool isSameRecord =
      first.before.removals == second.after.removals && !second.after.isPolled && from.wContainersFreshness != 0;
  if (!text.empty() || !isSameRecord) return text;
  text = differenceIn("the PIN number", from.bPinsFreshness, to.bPinsFreshness, &Reading::Moment::pins);
  if (!text.empty()) return text;
  text =
      differenceIn("the container number", from.wContainersFreshness, to.wContainersFreshness, &Reading::Moment::lists);
  if (!text.empty()) return text;
  return differenceIn("the file number", from.wFilesFreshness, to.wFilesFreshness, &Reading::Moment::lists);
}

void Model::beginPoll(const Serials& present) {
  pollBegun_ = now();
  pollsBegun_.fetch_add(1, kOrder);
  if (!present.contains(kStranger)) version_.begin(true);
  for (std::size_t token = 0; token < kRoundTokens.size(); ++token) {
    if (present.contains(kRoundTokens[token])) continue;
    version_.begin(true);
    pinChanges_[token].begin(false);
    listChanges_[token].begin(true);
  }
}

void Model::endPoll(const Serials& before, const Serials& after) {
  if (!before.contains(kStranger)) version_.end(true, after.contains(kStranger));
  for (std::size_t token = 0; token < kRoundTokens.size(); ++token) {
    const bool wasThere = before.contains(kRoundTokens[token]);
    const bool isThere = after.contains(kRoundTokens[token]);
    if (wasThere && !isThere) {
      forgetPin(kRoundTokens[token], pollBegun_);
      removals_[token].fetch_add(1, kOrder);
    }
    if (wasThere) continue;
    version_.end(true, isThere);
    pinChanges_[token].end(false, false);
    listChanges_[token].end(true, isThere);
  }
  pollsEnded_.fetch_add(1, kOrder);
}

}  // namespace orvane::test
