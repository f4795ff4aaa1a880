#include <memory>
#include <new>
#include <string_view>

#include "cache/process_state.h"
#include "driver_loader.h"
#include "log/process_name.h"
#include "machine.h"
#include "minidriver/frame/function_table.h"

namespace orvane::test {
namespace {

struct Export {
  std::string_view name;
  void* address;
};

#define ORVANE_TESTS_EXPORT(name) {#name, reinterpret_cast<void*>(&name)},
const Export kExports[] = {
    {"CardAcquireContext", reinterpret_cast<void*>(&CardAcquireContext)},
    ORVANE_FOR_EACH_SLOT(ORVANE_TESTS_EXPORT)  //
};
#undef ORVANE_TESTS_EXPORT

}  // namespace

// The state that the program was started with, or that the last unloading left, has not been used.
void loadDriver() { machine::divertCalls(nullptr); }

void unloadDriver() {
  ProcessState* const state = &processState();
  std::destroy_at(state);
  new (state) ProcessState;
  processName() = ProcessName();
}

void* driverExport(const char* name) {
  for (const Export& entry : kExports) {
    if (entry.name == name) return entry.address;
  }
  return nullptr;
}

}  // namespace orvane::test
