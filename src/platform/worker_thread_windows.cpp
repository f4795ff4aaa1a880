#include <atomic>
#include <system_error>
#include <utility>

#include "platform/windows_api.h"
#include "platform/worker_thread.h"

namespace orvane {
namespace {

// Owns one kernel object, or none.
class UniqueHandle {
 public:
  UniqueHandle() = default;
  // `handle` is what a creating call returned: null means that it failed.
  explicit UniqueHandle(HANDLE handle) : handle_(handle) {
    if (handle_ == nullptr) {
      throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "WorkerThread");
    }
  }
  ~UniqueHandle() {
    if (handle_ != nullptr) CloseHandle(handle_);
  }
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  HANDLE get() const noexcept { return handle_; }

 private:
  HANDLE handle_ = nullptr;
};

UniqueHandle newEvent() { return UniqueHandle(CreateEventA(nullptr, TRUE, FALSE, nullptr)); }

}  // namespace

struct WorkerThread::Held {
  explicit Held(void (*threadProcedure)()) : procedure(threadProcedure) {}

  // The start decides between the thread, which goes to work, and a join that came first, which cancels the work. A
  // thread that did not start within its bound may be unable to pass the loader's lock and would otherwise be waited
  // for in vain.
  enum class Phase { kCreated, kWorking, kCancelled };

  static DWORD WINAPI run(void* argument) {
    auto& self = *static_cast<Held*>(argument);
    Phase expected = Phase::kCreated;
    const bool isWanted = self.phase.compare_exchange_strong(expected, Phase::kWorking);
    // Not before the phase: a join that comes at once must not end the thread where it stands.
    SetEvent(self.started.get());
    if (isWanted) self.procedure();
    // From the announcement on, neither this record nor the module's code may be needed: the wait never ends.
    SignalObjectAndWait(self.finished.get(), self.never.get(), INFINITE, FALSE);
    return 0;
  }

  void (*procedure)();
  std::atomic<Phase> phase{Phase::kCreated};
  UniqueHandle started = newEvent();
  UniqueHandle wakeUp = newEvent();
  UniqueHandle finished = newEvent();
  UniqueHandle never = newEvent();
  DWORD threadId = 0;
  UniqueHandle thread;
};

WorkerThread::WorkerThread() = default;
WorkerThread::~WorkerThread() = default;

void WorkerThread::start(void (*procedure)()) {
  // The thread looks at held_ (through pause) as soon as it runs, so it is created after the assignment.
  held_ = std::make_unique<Held>(procedure);
  try {
    held_->thread = UniqueHandle(CreateThread(nullptr, 0, Held::run, held_.get(), 0, &held_->threadId));
  } catch (...) {
    held_.reset();
    throw;
  }
  const HANDLE starts[] = {held_->started.get(), held_->thread.get()};
  WaitForMultipleObjects(2, starts, FALSE, kStartBoundMilliseconds);
}

bool WorkerThread::holdsThread() const noexcept { return held_ != nullptr; }

bool WorkerThread::isCurrentThread() const noexcept {
  return held_ != nullptr && held_->threadId == GetCurrentThreadId();
}

void WorkerThread::pause(unsigned milliseconds) noexcept { WaitForSingleObject(held_->wakeUp.get(), milliseconds); }

void WorkerThread::wake() noexcept {
  if (held_ != nullptr) SetEvent(held_->wakeUp.get());
}

void WorkerThread::join() noexcept {
  Held::Phase expected = Held::Phase::kCreated;
  if (!held_->phase.compare_exchange_strong(expected, Held::Phase::kCancelled)) {
    // The thread itself is waited for as well: one that somebody has ended announces nothing any more.
    const HANDLE ends[] = {held_->finished.get(), held_->thread.get()};
    WaitForMultipleObjects(2, ends, FALSE, kJoinBoundMilliseconds);
  }
  TerminateThread(held_->thread.get(), 0);
  WaitForSingleObject(held_->thread.get(), kJoinBoundMilliseconds);
  held_.reset();
}

}  // namespace orvane
