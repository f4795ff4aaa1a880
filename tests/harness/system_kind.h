// Whether Windows is the real one: what an emulated one cannot tell is judged on the real one alone.
#ifndef ORVANE_TESTS_HARNESS_SYSTEM_KIND_H
#define ORVANE_TESTS_HARNESS_SYSTEM_KIND_H

#include <windows.h>

namespace orvane::test {

// Wine says so by a function that Windows does not have.
inline bool isRealWindows() {
  const HMODULE system = GetModuleHandleW(L"ntdll.dll");
  return system == nullptr || GetProcAddress(system, "wine_get_version") == nullptr;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_SYSTEM_KIND_H
