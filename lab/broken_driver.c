// A minidriver with a fault, for lab/trial_tests.py: FAULT is 0 for one that crashes, 1 for one that never comes back
// in one suite of tests, and refuses everything in the others.
__declspec(dllimport) void __stdcall Sleep(unsigned long milliseconds);
__declspec(dllimport) char* __stdcall GetCommandLineA(void);

// Whether the program was called with a text in its arguments.
static int isAskedFor(const char* text) {
  for (const char* at = GetCommandLineA(); *at != 0; ++at) {
    unsigned same = 0;
    while (text[same] != 0 && at[same] == text[same]) ++same;
    if (text[same] == 0) return 1;
  }
  return 0;
}

__declspec(dllexport) unsigned long __stdcall CardAcquireContext(void* record, unsigned long flags) {
  (void)record;
  (void)flags;
#if FAULT == 0
  *(volatile int*)8 = 1;
#endif
  while (isAskedFor("=Unload.")) Sleep(1000);
  return 1;
}
