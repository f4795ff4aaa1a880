#include "softtoken/call_script.h"

#include <algorithm>
#include <atomic>
#include <string_view>
#include <thread>
#include <utility>

#include "softtoken/call_text.h"

namespace orvane::softtoken {
namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Function::kCount)> kNames = {
    "orvane_changeSOPassword",
    "orvane_changeUserPassword",
    "orvane_clearExternalSmartcardHandle",
    "orvane_decrypt",
    "orvane_findCertificateForKey",
    "orvane_getConnectedDeviceList",
    "orvane_getKeyPairList",
    "orvane_getTokenInfo",
    "orvane_init",
    "orvane_initDevice",
    "orvane_setExternalSmartcardHandle",
    "orvane_signHash",
    "orvane_validatePassword",
};

}  // namespace

bool findFunction(const char* name, Function& function) {
  if (name == nullptr) return false;
  const auto found = std::find(kNames.begin(), kNames.end(), std::string_view(name));
  if (found == kNames.end()) return false;
  function = static_cast<Function>(found - kNames.begin());
  return true;
}

unsigned long long currentThread() {
  static std::atomic<unsigned long long> lastNumber{0};
  thread_local const unsigned long long number = ++lastNumber;
  return number;
}

Reaction CallScript::enter(Function function, const std::string& text) {
  Reaction reaction;
  {
    std::unique_lock<std::mutex> lock(mutex);
    RecordedCall call;
    call.text = cardHandle == 0 ? text : text + " [card " + handleText(cardHandle) + "]";
    call.details = {currentThread(), cardHandle};
    if (observer != nullptr) observer(call.text.c_str());
    recorded.push_back(std::move(call));
    waitAtGate(gates[index(function)], lock);
    std::deque<Reaction>& prepared = reactions[index(function)];
    if (!prepared.empty()) {
      reaction = std::move(prepared.front());
      prepared.pop_front();
    }
  }
  if (reaction.delayMs != 0) std::this_thread::sleep_for(std::chrono::milliseconds(reaction.delayMs));
  return reaction;
}

void CallScript::waitAtGate(Gate& gate, std::unique_lock<std::mutex>& lock) {
  if (!gate.closed || gate.owner == currentThread()) return;
  ++gate.held;
  changed.notify_all();
  changed.wait(lock, [&] { return !gate.closed || gate.passes > 0; });
  --gate.held;
  if (gate.closed) --gate.passes;
}

void CallScript::setCardHandle(std::uintptr_t newHandle) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (cardHandle != 0 && newHandle != 0) ++overlaps;
  cardHandle = newHandle;
}

unsigned long long CallScript::handleOverlaps() {
  const std::lock_guard<std::mutex> lock(mutex);
  return overlaps;
}

void CallScript::queue(Function function, Reaction reaction) {
  const std::lock_guard<std::mutex> lock(mutex);
  reactions[index(function)].push_back(std::move(reaction));
}

std::size_t CallScript::queued(Function function) {
  const std::lock_guard<std::mutex> lock(mutex);
  return reactions[index(function)].size();
}

std::vector<RecordedCall> CallScript::calls() {
  const std::lock_guard<std::mutex> lock(mutex);
  return recorded;
}

void CallScript::observe(SofttokenObserver newObserver) {
  const std::lock_guard<std::mutex> lock(mutex);
  observer = newObserver;
}

void CallScript::clearCalls() {
  const std::lock_guard<std::mutex> lock(mutex);
  recorded.clear();
}

void CallScript::setGate(Function function, bool closed) {
  const std::lock_guard<std::mutex> lock(mutex);
  Gate& gate = gates[index(function)];
  gate.closed = closed;
  gate.owner = closed ? currentThread() : 0;
  gate.passes = 0;
  changed.notify_all();
}

void CallScript::passGate(Function function, unsigned count) {
  const std::lock_guard<std::mutex> lock(mutex);
  gates[index(function)].passes += count;
  changed.notify_all();
}

bool CallScript::waitHeld(Function function, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex);
  const Gate& gate = gates[index(function)];
  return changed.wait_for(lock, timeout, [&] { return gate.held > gate.passes; });
}

void CallScript::reset() {
  const std::lock_guard<std::mutex> lock(mutex);
  cardHandle = 0;
  overlaps = 0;
  recorded.clear();
  for (std::deque<Reaction>& prepared : reactions) prepared.clear();
  for (Gate& gate : gates) {
    gate.closed = false;
    gate.owner = 0;
    gate.passes = 0;
  }
  changed.notify_all();
}

CallScript& callScript() {
  static CallScript* const script = new CallScript;
  return *script;
}

}  // namespace orvane::softtoken
