#include <filesystem>
#include <stdexcept>

#include "driver_loader.h"
#include "machine.h"

namespace orvane::test {
namespace {

constexpr wchar_t kDriverName[] = L"OrvaneMinidriver.dll";

HMODULE loadedDriver = nullptr;

}  // namespace

void loadDriver() {
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::filesystem::path path = std::filesystem::path(program).parent_path() / kDriverName;
  loadedDriver = LoadLibraryW(path.c_str());
  if (loadedDriver == nullptr) {
    throw std::runtime_error("cannot load " + path.string() + ", error " + std::to_string(GetLastError()));
  }
  machine::divertCalls(loadedDriver);
}

void unloadDriver() {
  FreeLibrary(loadedDriver);
  loadedDriver = nullptr;
  if (GetModuleHandleW(kDriverName) != nullptr) throw std::runtime_error("the minidriver stays loaded");
}

void* driverExport(const char* name) { return reinterpret_cast<void*>(GetProcAddress(loadedDriver, name)); }

}  // namespace orvane::test
