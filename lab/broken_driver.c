// A minidriver with a fault, for lab/trial_tests.py: FAULT is 0 for one that crashes, 1 for one that never comes back.
__declspec(dllimport) void __stdcall Sleep(unsigned long milliseconds);

__declspec(dllexport) unsigned long __stdcall CardAcquireContext(void* record, unsigned long flags) {
  (void)record;
  (void)flags;
#if FAULT == 0
  *(volatile int*)8 = 1;
#else
  for (;;) Sleep(1000);
#endif
  return 0;
}
