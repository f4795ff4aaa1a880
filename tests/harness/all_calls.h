// The one list of calls: every entry point, called with arguments that it accepts. Faults, storm, soak, benchmark and
// the call-sequence fuzzer draw from it.
#ifndef ORVANE_TESTS_HARNESS_ALL_CALLS_H
#define ORVANE_TESTS_HARNESS_ALL_CALLS_H

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/caller_memory.h"
#include "harness/test_token.h"

namespace orvane::test {

// CallOutputs owns the memory that one call may write to, and notices what became of it.
class CallOutputs {
 public:
  // `release` frees what the record's allocator gave.
  explicit CallOutputs(PFN_CSP_FREE release = CallerMemory::release) : release_(release) {}
  CallOutputs(const CallOutputs&) = delete;
  CallOutputs& operator=(const CallOutputs&) = delete;
  // Frees the buffers that the call left in the pointers of addPointer and addRecord.
  ~CallOutputs();

  // An output of this type, full of poison.
  template <typename Value>
  Value& add() {
    void* const place = addBytes(sizeof(Value));
    return *static_cast<Value*>(place);
  }
  // `size` poisoned bytes, aligned for every record.
  void* addBytes(std::size_t size);
  // A pointer that may receive a buffer of the caller's allocator.
  template <typename Pointer>
  Pointer& addPointer() {
    Pointer& pointer = add<Pointer>();
    buffers_.push_back(&pointer);
    return pointer;
  }
  // A record that goes in and out; its members in `buffers` may receive buffers.
  template <typename Record, typename... Pointers>
  Record& addRecord(const Record& content, Pointers Record::*... buffers) {
    Record& record = add<Record>();
    record = content;
    (buffers_.push_back(&(record.*buffers)), ...);
    return record;
  }
  // A copy of these bytes, for input; outputs all the same, since nothing may write there.
  std::uint8_t* addInput(const void* bytes, std::size_t size);

  // Notes how the memory looks before the call.
  void startCall();
  // Whether it looks the same now.
  bool isUntouched() const;
  // Whether it looks the same but for the pointers that may receive buffers.
  bool isUntouchedButForBuffers();

 private:
  using Block = std::vector<std::uint64_t>;
  std::vector<void*> pointers() const;

  PFN_CSP_FREE release_;
  std::deque<Block> blocks_;
  std::vector<Block> before_;
  // Where pointers to buffers stand, and what stood there before the call.
  std::vector<void*> buffers_;
  std::vector<void*> buffersBefore_;
};

// What the process knows before the call.
enum class Before {
  kPinUnknown,
  kPinCached,
  kPinBumped,     // the same, and the next change of the PIN asks the token about itself
  kListForgotten  // the PIN is unknown, and the record's serial is kOtherSerial, whose container list nobody has read
};

// One call of an entry point, and what it comes to when nothing fails.
struct EntryCall {
  std::string name;
  Before before = Before::kPinUnknown;
  // Makes the arguments and returns the call; the record lives as long as the call.
  std::function<std::function<DWORD()>(CARD_DATA& record, CallOutputs& outputs)> prepare;
  DWORD status = 0;
  // Number of requests to the caller's allocator in a call that succeeds.
  unsigned allocations = 0;
};

// All of the 44 entry points in the function table, those with several ways several times, for contexts on the token of
// tokenForCalls. The fuzz seed "all-calls" has each of them once, by position.
std::vector<EntryCall> allCalls();

// The one of them with this name; throws std::out_of_range when there is none.
EntryCall callNamed(std::string_view name);

// The token that these calls expect: a key of 2048 and one of 4096 bits, both for everything, each with a certificate.
TestToken tokenForCalls(const std::string& serial = kSerial);

// Brings about what a call expects, for a context just acquired on the token of tokenForCalls. Throws
// std::runtime_error when an entry point refuses.
void bringAbout(CARD_DATA& record, Before before);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_ALL_CALLS_H
