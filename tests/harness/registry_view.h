// A registry of the process's own in the place of the machine's, so that the tests need no administrator and change
// nothing.
#ifndef ORVANE_TESTS_HARNESS_REGISTRY_VIEW_H
#define ORVANE_TESTS_HARNESS_REGISTRY_VIEW_H

#include <windows.h>

#include <string>

namespace orvane::test {

// While one lives, HKEY_LOCAL_MACHINE means an empty key of this process for everything in the process, the loaded
// minidriver included. It lies below HKEY_CURRENT_USER, in memory alone, and goes with the object; what a process that
// dies leaves there goes when the user logs off.
class RegistryView {
 public:
  // Throws std::runtime_error when the system refuses.
  RegistryView();
  RegistryView(const RegistryView&) = delete;
  RegistryView& operator=(const RegistryView&) = delete;
  ~RegistryView();

  // Makes the key below HKEY_LOCAL_MACHINE if it is not there and sets the value; throws std::runtime_error.
  void setValue(const char* key, const char* value, DWORD type, const void* data, DWORD size);
  // A value that is not there may be removed, too.
  void removeValue(const char* key, const char* value);

 private:
  std::string name_;  // of the key, below HKEY_CURRENT_USER
  HKEY root_ = nullptr;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_REGISTRY_VIEW_H
