#include "doctor/windows_services.h"

#include "platform/windows_api.h"
#include "text/bytes.h"
// After the system's own header, which it relies on.
#include <winsvc.h>

namespace orvane::tool {
namespace {

// Closes a handle of the service manager.
class ServiceHandle {
 public:
  explicit ServiceHandle(SC_HANDLE handle) : handle_(handle) {}
  ~ServiceHandle() {
    if (handle_) CloseServiceHandle(handle_);
  }
  ServiceHandle(const ServiceHandle&) = delete;
  ServiceHandle& operator=(const ServiceHandle&) = delete;

  SC_HANDLE get() const { return handle_; }

 private:
  SC_HANDLE handle_;
};

bool isDisabled(SC_HANDLE service) {
  // Microsoft Learn, QueryServiceConfigW: never larger than this.
  constexpr DWORD kLargestConfig = 8192;
  alignas(QUERY_SERVICE_CONFIGW) std::uint8_t buffer[kLargestConfig];
  auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
  DWORD size = 0;
  return QueryServiceConfigW(service, config, kLargestConfig, &size) && config->dwStartType == SERVICE_DISABLED;
}

}  // namespace

ServiceState serviceState(const std::wstring& name) {
  const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager.get()) return ServiceState::kUnknown;
  const ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG));
  if (!service.get())
    return GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? ServiceState::kMissing : ServiceState::kUnknown;
  SERVICE_STATUS status{};
  if (!QueryServiceStatus(service.get(), &status)) return ServiceState::kUnknown;
  if (status.dwCurrentState != SERVICE_STOPPED) return ServiceState::kRunning;
  return isDisabled(service.get()) ? ServiceState::kDisabled : ServiceState::kStopped;
}

bool isRemoteSession() { return GetSystemMetrics(SM_REMOTESESSION) != 0; }

}  // namespace orvane::tool
