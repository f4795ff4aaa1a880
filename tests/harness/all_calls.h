// Every entry point, called once with arguments that it accepts.
#ifndef ORVANE_TESTS_HARNESS_ALL_CALLS_H
#define ORVANE_TESTS_HARNESS_ALL_CALLS_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/caller_memory.h"
#include "harness/driver_test.h"

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

 private:
  using Block = std::vector<std::uint64_t>;
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
  kListForgotten  // the PIN is unknown and the process-wide container list is gone
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

// All of the 44 entry points in the function table, those with several ways several times. They expect a token
// kFaultSerial with the PINs below and the keys and certificates of FaultTest::startAnew.
std::vector<EntryCall> allCalls();

// The one of them with this name; throws std::out_of_range when there is none.
EntryCall callNamed(std::string_view name);

// The token of the fault tests, its PINs, and those that it is changed to.
inline constexpr char kFaultSerial[] = "0012AB";
inline constexpr char kFaultPin[] = "Tr7-user-pin-for-faults";
inline constexpr char kFaultNewPin[] = "Nq4-fresh-pin-for-faults";
inline constexpr char kFaultSoPin[] = "Ko2-officer-pin-for-faults";
inline constexpr char kFaultNewSoPin[] = "Zu8-officer-pin-for-faults";
inline constexpr SCARDHANDLE kFaultCardHandle = 0x2A;

// FaultTest sets the scene of a call, and looks for what a failure may have left behind.
class FaultTest : public DriverTest {
 protected:
  void TearDown() override;

  // Forgets everything, defines the token and loads the minidriver anew.
  void startAnew();
  // startAnew, and a context as `before` wants it, with kFaultCardHandle.
  CARD_DATA& open(Before before = Before::kPinUnknown);
  // Deletes the contexts.
  void closeAll();

  // Runs one call after open(call.before): what it returned, and whether it wrote to the caller's memory.
  struct Result {
    DWORD status = 0;
    bool isUntouched = false;
  };
  template <typename Arm, typename Disarm>
  Result run(const EntryCall& call, const Arm& arm, const Disarm& disarm) {
    CARD_DATA& record = open(call.before);
    CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(record, outputs);
    outputs.startCall();
    arm();
    const DWORD status = prepared();
    disarm();
    return {status, outputs.isUntouched()};
  }

  // Nothing is left behind: no card handle is set (unless the library refused to forget it), and a new context can be
  // acquired, asked, used with a PIN for a signature, and deleted, which takes every lock there is.
  void expectUsable(bool isHandleForgotten = true);

 private:
  std::deque<CARD_DATA> records_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_ALL_CALLS_H
