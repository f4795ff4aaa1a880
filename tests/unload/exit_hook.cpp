#include "exit_hook.h"

#include <windows.h>

namespace {

void (*exitHook)() = nullptr;
void (*threadHook)() = nullptr;

}  // namespace

void setExitHook(void (*hook)()) { exitHook = hook; }
void setThreadHook(void (*hook)()) { threadHook = hook; }

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_DETACH && exitHook != nullptr) exitHook();
  if (reason == DLL_THREAD_ATTACH && threadHook != nullptr) threadHook();
  return TRUE;
}
