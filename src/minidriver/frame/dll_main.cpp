// The loader's notifications.
#include "cache/process_state.h"
#include "platform/windows_api.h"

// Called under the loader's lock, before the module's static objects are destroyed. A reserved pointer that is not null
// means that the process is ending, as opposed to FreeLibrary.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_DETACH && reserved != nullptr) orvane::markProcessEnding();
  return TRUE;
}
