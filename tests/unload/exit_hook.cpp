#include "exit_hook.h"

#include <windows.h>

namespace {

void (*exitHook)() = nullptr;

}  // namespace

void setExitHook(void (*hook)()) { exitHook = hook; }

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_DETACH && exitHook != nullptr) exitHook();
  return TRUE;
}
