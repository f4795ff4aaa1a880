// A background thread that can be stopped while the module is being unloaded.
//
// The obvious ways do not work inside a DLL. A thread started through the C runtime keeps the module loaded, so the
// code that would stop it is never reached. A thread of our own needs the loader's lock to end, and the one who waits
// for it during unloading holds that lock; ended from outside, it leaves behind what every module of the process keeps
// for each thread, each time that a host frees the minidriver. So the Windows thread is lent by the system's thread
// pool, which takes it back when it has left our code and tells us so: nothing has to end while the module goes.
//
// The start waits for the thread to arrive: once it has returned, the work is being done. Only a thread that the
// loader's lock or a busy pool keeps away for longer than a bound is left to come when it can.
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

  // start has `procedure` run on a thread of its own (default stack size) and waits until it has arrived there, at most
  // kStartBoundMilliseconds: a caller who holds the loader's lock keeps it from arriving, and a pool without a free
  // thread delays it. No thread is held before. `procedure` must not throw and must return soon after wake() was
  // called. What it changes of the thread stays with the pool, but for its priority and its rights. Throws
  // std::system_error when the system does not take the work, which it never does while the process ends, and
  // std::bad_alloc; nothing is held then.
  void start(void (*procedure)());

  // holdsThread tells whether a started thread has not been joined yet.
  bool holdsThread() const noexcept;

  // isCurrentThread tells whether the caller runs on the held thread.
  bool isCurrentThread() const noexcept;

  // pause waits for `milliseconds`, or until wake() is or was called.
  void pause(unsigned milliseconds) noexcept;

  // wake ends the current pause and every later one, until the next start.
  void wake() noexcept;

  // join waits until `procedure` has returned, at most kJoinBoundMilliseconds, and lets the thread go; work that has
  // not begun is taken back. A thread that did not come back by then (the library never returned) is made to stand
  // still for good, because its code is about to be unmapped; one for which the system had no handle when it began
  // goes on.
  void join() noexcept;

  static constexpr unsigned kStartBoundMilliseconds = 1000;
  static constexpr unsigned kJoinBoundMilliseconds = 15000;

 private:
  struct Held;
  std::unique_ptr<Held> held_;
};

}  // namespace orvane

#endif  // ORVANE_PLATFORM_WORKER_THREAD_H
