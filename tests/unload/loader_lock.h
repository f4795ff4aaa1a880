// The lock that Windows' loader holds while modules come and go and threads start and end.
#ifndef ORVANE_TESTS_UNLOAD_LOADER_LOCK_H
#define ORVANE_TESTS_UNLOAD_LOADER_LOCK_H

#include <windows.h>

namespace orvane::test {

// The loader's lock, held from construction to destruction: no new thread gets to its procedure meanwhile.
class LoaderLock {
 public:
  LoaderLock() {
    // Exported since Windows XP; described at geoffchappell.com, "LdrLockLoaderLock".
    lock_ = find<Lock>("LdrLockLoaderLock");
    unlock_ = find<Unlock>("LdrUnlockLoaderLock");
    isHeld_ = lock_ != nullptr && unlock_ != nullptr && lock_(0, nullptr, &cookie_) == 0;
  }
  ~LoaderLock() {
    if (isHeld_) unlock_(0, cookie_);
  }
  LoaderLock(const LoaderLock&) = delete;
  LoaderLock& operator=(const LoaderLock&) = delete;
  bool isHeld() const { return isHeld_; }

 private:
  using Lock = LONG(NTAPI*)(ULONG flags, ULONG* disposition, ULONG_PTR* cookie);
  using Unlock = LONG(NTAPI*)(ULONG flags, ULONG_PTR cookie);

  template <typename Function>
  static Function find(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
  }

  Lock lock_ = nullptr;
  Unlock unlock_ = nullptr;
  ULONG_PTR cookie_ = 0;
  bool isHeld_ = false;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_UNLOAD_LOADER_LOCK_H
