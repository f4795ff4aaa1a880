// A small DLL that calls back at the very end of the process, and when a thread starts. It is loaded with the program,
// so that the system tells it about the end later than any DLL that was loaded while the program ran.
#ifndef ORVANE_TESTS_UNLOAD_EXIT_HOOK_H
#define ORVANE_TESTS_UNLOAD_EXIT_HOOK_H

#ifdef ORVANE_EXIT_HOOK_BUILD
#define ORVANE_EXIT_HOOK_API __declspec(dllexport)
#else
#define ORVANE_EXIT_HOOK_API __declspec(dllimport)
#endif

// Sets the one function to be called; null for none. It runs under the loader's lock, with all other threads gone.
extern "C" ORVANE_EXIT_HOOK_API void setExitHook(void (*hook)());

// Sets the one function that every new thread calls before its procedure; null for none. It runs under the loader's
// lock.
extern "C" ORVANE_EXIT_HOOK_API void setThreadHook(void (*hook)());

#endif  // ORVANE_TESTS_UNLOAD_EXIT_HOOK_H
