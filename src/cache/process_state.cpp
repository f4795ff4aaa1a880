#include "cache/process_state.h"

#include <cstddef>
#include <new>

namespace orvane {
namespace {

// Set by the loader's notification, before the module's own static objects are destroyed.
std::atomic<bool> processEnding{false};

// Makes the instance when the module is loaded and destroys it when the module is freed, but not when the whole process
// ends. It is the module's only static object with a destructor, so no other order has to be thought of.
class ProcessStateHolder {
 public:
  ProcessStateHolder() : state_(new (storage_) ProcessState) {}
  ~ProcessStateHolder() {
    if (!processEnding.load()) state_->~ProcessState();
  }
  ProcessStateHolder(const ProcessStateHolder&) = delete;
  ProcessStateHolder& operator=(const ProcessStateHolder&) = delete;
  ProcessState& state() noexcept { return *state_; }

 private:
  alignas(ProcessState) std::byte storage_[sizeof(ProcessState)];
  ProcessState* state_;
};

ProcessStateHolder holder;

}  // namespace

ProcessState& processState() noexcept { return holder.state(); }

void markProcessEnding() noexcept { processEnding.store(true); }

bool isProcessEnding() noexcept { return processEnding.load(); }

}  // namespace orvane
