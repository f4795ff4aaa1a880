// A background thread that can be stopped while the module is being unloaded.
//
// The obvious ways do not work inside a DLL. A thread started through the C runtime keeps the module loaded, so the
// code that would stop it is never reached. A thread started by the system alone needs the loader's lock to end, and
// the one who waits for it during unloading holds that lock. So the Windows thread announces that it has nothing more
// to do and then sleeps in the kernel, holding nothing; the stopper waits for the announcement and ends the sleeping
// thread.
//
// A thread that has not reached its procedure should not be ended: it may hold a lock of the loader or of the heap,
// which nobody would release any more (Microsoft's page on TerminateThread), and the process would stand still at its
// next allocation. So the start waits for the thread to arrive.
#ifndef ORVANE_PLATFORM_WORKER_THREAD_H
#define ORVANE_PLATFORM_WORKER_THREAD_H

#include <memory>

namespace orvane {

// WorkerThread owns at most one thread. start, join and the destructor must not run at the same time as each other;
// pause belongs to the thread itself.
class WorkerThread {
 public:
  WorkerThread();
  // Does not stop the thread: its owner joins first.
  ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // start runs `procedure` on a new thread (default stack size) and waits until the thread has arrived there, at most
  // kStartBoundMilliseconds: a caller who holds the loader's lock keeps it from arriving. `procedure` must not throw
  // and must return soon after wake() was called. Throws std::system_error when the thread cannot be created; nothing
  // is held then.
  void start(void (*procedure)());

  // holdsThread tells whether a started thread has not been joined yet.
  bool holdsThread() const noexcept;

  // isCurrentThread tells whether the caller runs on the held thread.
  bool isCurrentThread() const noexcept;

  // pause waits for `milliseconds`, or until wake() is or was called.
  void pause(unsigned milliseconds) noexcept;

  // wake ends the current pause and every later one, until the next start.
  void wake() noexcept;

  // join waits until `procedure` has returned, at most kJoinBoundMilliseconds, and lets the thread go. A thread that
  // did not come back by then (the library never returned) is ended where it stands, because its code is about to be
  // unmapped.
  void join() noexcept;

  static constexpr unsigned kStartBoundMilliseconds = 1000;
  static constexpr unsigned kJoinBoundMilliseconds = 15000;

 private:
  struct Held;
  std::unique_ptr<Held> held_;
};

}  // namespace orvane

#endif  // ORVANE_PLATFORM_WORKER_THREAD_H
