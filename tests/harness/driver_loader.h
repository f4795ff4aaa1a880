// Loading and unloading the minidriver: the DLL next to the test program, or, natively, the objects linked into it.
#ifndef ORVANE_TESTS_HARNESS_DRIVER_LOADER_H
#define ORVANE_TESTS_HARNESS_DRIVER_LOADER_H

namespace orvane::test {

// Loads the minidriver, which must not be loaded; everything it keeps for the process is new. Natively the objects are
// there all the time, so the process-wide state is made anew instead. Throws std::runtime_error.
void loadDriver();

// Unloads it. The monitor thread must be able to end: no gate may hold it. Throws std::runtime_error when the module
// stays.
void unloadDriver();

// The address of an export; null when there is none by that name.
void* driverExport(const char* name);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_DRIVER_LOADER_H
