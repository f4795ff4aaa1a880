#include <atomic>
#include <system_error>

#include "platform/windows_api.h"
#include "platform/worker_thread.h"

// The pool takes no work once the process is ending, but raises an exception that C++ code does not catch
// (devblogs.microsoft.com, "Why am I getting an exception from the thread pool during process shutdown?"). So this is
// asked first (Microsoft's page on RtlDllShutdownInProgress); no header of the system declares it.
extern "C" __declspec(dllimport) BOOLEAN NTAPI RtlDllShutdownInProgress();

namespace orvane {
namespace {

constexpr DWORD kNotSuspended = static_cast<DWORD>(-1);  // what SuspendThread answers when it fails

[[noreturn]] void throwLastError() {
  throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "WorkerThread");
}

// Owns one kernel object, or none.
class UniqueHandle {
 public:
  UniqueHandle() = default;
  explicit UniqueHandle(HANDLE handle) : handle_(handle) {}
  ~UniqueHandle() { reset(nullptr); }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  void reset(HANDLE handle) noexcept {
    if (handle_ != nullptr) CloseHandle(handle_);
    handle_ = handle;
  }
  HANDLE get() const noexcept { return handle_; }

 private:
  HANDLE handle_ = nullptr;
};

UniqueHandle newEvent() {
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) throwLastError();
  return UniqueHandle(event);
}

}  // namespace

struct WorkerThread::Held {
  // Throws std::system_error when the system has no memory for one of its objects.
  explicit Held(void (*threadProcedure)()) : procedure(threadProcedure) {
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    // The pool does not count on the thread for the work of others.
    SetThreadpoolCallbackRunsLong(&environment);
    work = CreateThreadpoolWork(Held::run, this, &environment);
    DestroyThreadpoolEnvironment(&environment);
    if (work == nullptr) throwLastError();
  }
  ~Held() { CloseThreadpoolWork(work); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

  // The start decides between the thread, which goes to work, and a join that came first, which cancels the work. A
  // thread that did not start within its bound may be unable to pass the loader's lock and would otherwise be waited
  // for in vain.
  enum class Phase { kCreated, kWorking, kCancelled };

  static void CALLBACK run(PTP_CALLBACK_INSTANCE instance, void* argument, PTP_WORK /*work*/) {
    auto& self = *static_cast<Held*>(argument);
    self.threadId = GetCurrentThreadId();
    HANDLE thread = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    self.thread.reset(thread);
    Phase expected = Phase::kCreated;
    if (!self.phase.compare_exchange_strong(expected, Phase::kWorking)) return;
    // The system announces the end itself, once the thread has left our code for good (devblogs.microsoft.com,
    // "What's the point of the various ...WhenCallbackReturns functions?").
    SetEventWhenCallbackReturns(instance, self.finished.get());
    SetEvent(self.started.get());
    const int priority = GetThreadPriority(GetCurrentThread());
    self.procedure();
    // The pool raises an exception for a thread that comes back with another priority, or as somebody else
    // (STATUS_CALLBACK_RETURNED_THREAD_PRIORITY, STATUS_CALLBACK_RETURNED_WHILE_IMPERSONATING).
    SetThreadPriority(GetCurrentThread(), priority);
    RevertToSelf();
  }

  // Whether the thread is out of our code, at the latest after `milliseconds`.
  bool hasFinished(DWORD milliseconds) const noexcept {
    // The thread itself is waited for as well: one that somebody has ended announces nothing any more.
    const HANDLE ends[] = {finished.get(), thread.get()};
    const DWORD count = thread.get() != nullptr ? 2 : 1;
    return WaitForMultipleObjects(count, ends, FALSE, milliseconds) < WAIT_OBJECT_0 + count;
  }

  // Has the thread stand still for good, unless it comes back in the last moment: the pool needs it then. It is not
  // ended, as the system raises an exception for one of the pool's (STATUS_INVALID_THREAD), and frees the stack that a
  // lock may still refer to.
  void stopThread() const noexcept {
    if (thread.get() == nullptr || SuspendThread(thread.get()) == kNotSuspended) return;
    // Once its registers are known it stands still (devblogs.microsoft.com, "The SuspendThread function suspends a
    // thread, but it does so asynchronously").
    CONTEXT registers{};
    registers.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(thread.get(), &registers);
    if (hasFinished(0)) ResumeThread(thread.get());
  }

  void (*procedure)();
  std::atomic<Phase> phase{Phase::kCreated};
  UniqueHandle started = newEvent();
  UniqueHandle wakeUp = newEvent();
  UniqueHandle finished = newEvent();
  // Written by the thread before the phase.
  std::atomic<DWORD> threadId{0};
  UniqueHandle thread;
  PTP_WORK work = nullptr;
};

WorkerThread::WorkerThread() = default;
WorkerThread::~WorkerThread() = default;

void WorkerThread::start(void (*procedure)()) {
  if (RtlDllShutdownInProgress() != FALSE) {
    throw std::system_error(ERROR_SHUTDOWN_IN_PROGRESS, std::system_category(), "WorkerThread");
  }
  // The thread looks at held_ (through pause) as soon as it runs, so it is set to work after the assignment.
  held_ = std::make_unique<Held>(procedure);
  SubmitThreadpoolWork(held_->work);
  WaitForSingleObject(held_->started.get(), kStartBoundMilliseconds);
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
  if (held_->phase.compare_exchange_strong(expected, Held::Phase::kCancelled)) {
    // Takes the work back; a thread that has just begun it is waited for, and leaves at once.
    WaitForThreadpoolWorkCallbacks(held_->work, TRUE);
  } else if (!held_->hasFinished(kJoinBoundMilliseconds)) {
    held_->stopThread();
  }
  held_.reset();
}

}  // namespace orvane
