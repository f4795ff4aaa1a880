// A mutex that the compiler's thread-safety analysis knows and that reports re-entry instead of hanging.
#ifndef ORVANE_SUPPORT_MUTEX_H
#define ORVANE_SUPPORT_MUTEX_H

#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>

#include "support/thread_annotations.h"

namespace orvane {

// Mutex is a plain, non-recursive mutex. A thread that locks it twice gets a std::system_error with
// std::errc::resource_deadlock_would_occur, which the guard around the entry points turns into a status: a host thread
// is never left hanging on itself.
class ORVANE_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // lock waits until the mutex is free. Throws std::system_error on re-entry by the holding thread.
  void lock() ORVANE_ACQUIRE() {
    const std::thread::id self = std::this_thread::get_id();
    // Only this thread can have stored its own id, so a relaxed read cannot mistake another holder for it.
    if (holder_.load(std::memory_order_relaxed) == self) {
      throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                              "resource deadlock would occur");
    }
    mutex_.lock();
    holder_.store(self, std::memory_order_relaxed);
  }

  // tryLock takes the mutex if nobody holds it, the calling thread included, and tells whether it did.
  bool tryLock() ORVANE_TRY_ACQUIRE(true) {
    const std::thread::id self = std::this_thread::get_id();
    if (holder_.load(std::memory_order_relaxed) == self || !mutex_.try_lock()) return false;
    holder_.store(self, std::memory_order_relaxed);
    return true;
  }

  // unlock releases the mutex, which the calling thread must hold.
  void unlock() ORVANE_RELEASE() {
    holder_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
  }

 private:
  std::mutex mutex_;
  std::atomic<std::thread::id> holder_{};
};

// LockGuard holds a Mutex for its own lifetime.
class ORVANE_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Mutex& mutex) ORVANE_ACQUIRE(mutex) : mutex_(mutex) { mutex.lock(); }
  ~LockGuard() ORVANE_RELEASE() { mutex_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace orvane

#endif  // ORVANE_SUPPORT_MUTEX_H
