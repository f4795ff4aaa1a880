// What tests prepare and read back: the record of calls, the reactions queued for functions, and the gates.
#ifndef ORVANE_SOFTTOKEN_CALL_SCRIPT_H
#define ORVANE_SOFTTOKEN_CALL_SCRIPT_H

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "softtoken/softtoken_control.h"

namespace orvane::softtoken {

// The functions of the library, in the order of their names.
enum class Function : std::size_t {
  kChangeSoPassword,
  kChangeUserPassword,
  kClearExternalSmartcardHandle,
  kDecrypt,
  kFindCertificateForKey,
  kGetConnectedDeviceList,
  kGetKeyPairList,
  kGetTokenInfo,
  kInit,
  kInitDevice,
  kSetExternalSmartcardHandle,
  kSignHash,
  kValidatePassword,
  kCount
};

// Finds a function by its name, for example "orvane_signHash"; false when there is none (also for null).
bool findFunction(const char* name, Function& function);

// A SofttokenReaction that owns its bytes. The default one lets the call through.
struct Reaction {
  int kind = kSofttokenPass;
  unsigned delayMs = 0;
  long long result = 0;
  int attempts = kSofttokenKeep;
  int length = kSofttokenKeep;
  bool hasOutput = false;
  std::vector<unsigned char> output;
};

// One call that arrived.
struct RecordedCall {
  std::string text;  // with the card handle, without a line end
  SofttokenCall details{};
};

// The calling thread's number; never 0 and never used again by another thread of the process.
unsigned long long currentThread();

// Every member function may be called by any thread; one mutex guards everything and is held only inside them.
class CallScript {
 public:
  // Records a call, waits at the function's gate and takes the next reaction, after its delay.
  Reaction enter(Function function, const std::string& text);

  // The card handle that records show; 0 for none.
  void setCardHandle(std::uintptr_t newHandle);
  // How often one was set while another was.
  unsigned long long handleOverlaps();

  // The rest is what the functions of softtoken_control.h do, which only translate names and bytes.
  void queue(Function function, Reaction reaction);
  std::size_t queued(Function function);
  std::vector<RecordedCall> calls();
  void observe(SofttokenObserver newObserver);
  void clearCalls();
  void setGate(Function function, bool closed);
  void passGate(Function function, unsigned count);
  bool waitHeld(Function function, std::chrono::milliseconds timeout);

  // Forgets everything and lets held calls go on.
  void reset();

 private:
  struct Gate {
    bool closed = false;
    unsigned long long owner = 0;  // the thread whose calls are not held
    unsigned held = 0;             // calls that wait
    unsigned passes = 0;           // calls that may still go through
  };

  static std::size_t index(Function function) { return static_cast<std::size_t>(function); }
  void waitAtGate(Gate& gate, std::unique_lock<std::mutex>& lock);

  std::mutex mutex;
  std::condition_variable changed;
  std::uintptr_t cardHandle = 0;
  unsigned long long overlaps = 0;
  std::vector<RecordedCall> recorded;
  SofttokenObserver observer = nullptr;
  std::array<std::deque<Reaction>, static_cast<std::size_t>(Function::kCount)> reactions;
  std::array<Gate, static_cast<std::size_t>(Function::kCount)> gates;
};

// The one of the process. It is never destroyed: threads may still be inside calls when the process ends.
CallScript& callScript();

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_CALL_SCRIPT_H
