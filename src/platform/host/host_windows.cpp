#include "platform/host/host_windows.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "platform/host/host_control.h"

using orvane::host::HostMachine;
using orvane::host::hostMachine;

namespace {

// Copies `text` with its NUL, as the system's calls do; false when it does not fit.
bool copyText(const std::string& text, LPSTR buffer, DWORD capacity) {
  if (text.size() + 1 > capacity) return false;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return true;
}

bool isZero(const void* buffer, DWORD size) {
  const auto* const bytes = static_cast<const BYTE*>(buffer);
  return std::all_of(bytes, bytes + size, [](BYTE byte) { return byte == 0; });
}

void throwIfTold(const HostMachine& machine, const char* function) {
  if (machine.throwing == function) throw std::runtime_error(function);
}

}  // namespace

namespace orvane::host {

HostMachine& hostMachine() {
  static auto* machine = new HostMachine;
  return *machine;
}

}  // namespace orvane::host

LONG SCardStatusA(SCARDHANDLE hCard, LPSTR szReaderName, LPDWORD pcchReaderLen, LPDWORD, LPDWORD, LPBYTE pbAtr,
                  LPDWORD pcbAtrLen) {
  HostMachine& machine = hostMachine();
  if (machine.whenAsked) machine.whenAsked("SCardStatusA");
  const std::lock_guard lock(machine.mutex);
  if (machine.statusAsked) {
    machine.statusAsked(
        {hCard, *pcchReaderLen, *pcbAtrLen, isZero(szReaderName, *pcchReaderLen) && isZero(pbAtr, *pcbAtrLen)});
  }
  if (machine.statusResult != SCARD_S_SUCCESS) return machine.statusResult;
  if (!machine.hasNameNul && machine.readerName.size() <= *pcchReaderLen) {
    *pcchReaderLen = static_cast<DWORD>(machine.readerName.copy(szReaderName, *pcchReaderLen));
    return SCARD_S_SUCCESS;
  }
  if (!copyText(machine.readerName, szReaderName, *pcchReaderLen)) return SCARD_E_INSUFFICIENT_BUFFER;
  *pcchReaderLen = static_cast<DWORD>(machine.readerName.size() + 1);
  return SCARD_S_SUCCESS;
}

LONG SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, LPCBYTE pbSendBuffer, DWORD cbSendLength,
                   LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer, LPDWORD pcbRecvLength) {
  HostMachine& machine = hostMachine();
  if (machine.whenAsked) machine.whenAsked("SCardTransmit");
  const std::lock_guard lock(machine.mutex);
  if (machine.commandSent) {
    machine.commandSent({hCard, pioSendPci->dwProtocol, pioSendPci->cbPciLength, pioRecvPci != nullptr, *pcbRecvLength,
                         std::vector<BYTE>(pbSendBuffer, pbSendBuffer + cbSendLength)});
  }
  if (machine.transmitResult != SCARD_S_SUCCESS) return machine.transmitResult;
  if (machine.reply.size() > *pcbRecvLength) return SCARD_E_INSUFFICIENT_BUFFER;
  std::copy(machine.reply.begin(), machine.reply.end(), pbRecvBuffer);
  *pcbRecvLength = static_cast<DWORD>(machine.reply.size());
  return SCARD_S_SUCCESS;
}

LONG RegGetValueA(HKEY hkey, LPCSTR lpSubKey, LPCSTR lpValue, DWORD, LPDWORD, PVOID pvData, LPDWORD pcbData) {
  HostMachine& machine = hostMachine();
  const std::shared_lock lock(machine.mutex);
  machine.registryReads.fetch_add(1, std::memory_order_relaxed);
  const bool isLogLevel = hkey == HKEY_LOCAL_MACHINE && std::strcmp(lpSubKey, "Software\\Brightfold\\Orvane") == 0 &&
                          std::strcmp(lpValue, "logLevel") == 0;
  if (!isLogLevel || !machine.logLevel) return ERROR_FILE_NOT_FOUND;
  if (machine.logLevel->size() > *pcbData) return ERROR_MORE_DATA;
  std::copy(machine.logLevel->begin(), machine.logLevel->end(), static_cast<BYTE*>(pvData));
  *pcbData = static_cast<DWORD>(machine.logLevel->size());
  return ERROR_SUCCESS;
}

DWORD GetTempPathA(DWORD nBufferLength, LPSTR lpBuffer) {
  HostMachine& machine = hostMachine();
  const std::shared_lock lock(machine.mutex);
  throwIfTold(machine, "GetTempPathA");
  if (!machine.tempPath) return 0;
  const auto length = static_cast<DWORD>(machine.tempPath->size());
  return copyText(*machine.tempPath, lpBuffer, nBufferLength) ? length : length + 1;
}

DWORD GetFileAttributesA(LPCSTR lpFileName) {
  {
    HostMachine& machine = hostMachine();
    const std::shared_lock lock(machine.mutex);
    throwIfTold(machine, "GetFileAttributesA");
  }
  struct stat status {};
  if (stat(lpFileName, &status) != 0) return INVALID_FILE_ATTRIBUTES;
  return S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0u;
}

BOOL CreateDirectoryA(LPCSTR lpPathName, SECURITY_ATTRIBUTES*) {
  HostMachine& machine = hostMachine();
  const std::shared_lock lock(machine.mutex);
  throwIfTold(machine, "CreateDirectoryA");
  return mkdir(lpPathName, 0777) == 0 ? TRUE : FALSE;
}

HANDLE GetCurrentProcess() { return reinterpret_cast<HANDLE>(~ULONG_PTR{0}); }

DWORD K32GetModuleBaseNameA(HANDLE, HMODULE, LPSTR lpBaseName, DWORD nSize) {
  HostMachine& machine = hostMachine();
  const std::shared_lock lock(machine.mutex);
  if (!machine.processName || !copyText(*machine.processName, lpBaseName, nSize)) {
    // What is in the buffer then is not promised.
    std::fill_n(lpBaseName, nSize, '?');
    return 0;
  }
  return static_cast<DWORD>(machine.processName->size());
}

void GetLocalTime(SYSTEMTIME* lpSystemTime) {
  HostMachine& machine = hostMachine();
  const std::shared_lock lock(machine.mutex);
  if (!machine.nextTimes.empty()) {
    const std::size_t reading = machine.nextTimesRead.fetch_add(1, std::memory_order_relaxed);
    if (reading < machine.nextTimes.size()) {
      *lpSystemTime = machine.nextTimes[reading];
      return;
    }
  }
  if (machine.localTime) {
    *lpSystemTime = *machine.localTime;
    return;
  }
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  *lpSystemTime = {static_cast<WORD>(local.tm_year + 1900), static_cast<WORD>(local.tm_mon + 1),
                   static_cast<WORD>(local.tm_wday),        static_cast<WORD>(local.tm_mday),
                   static_cast<WORD>(local.tm_hour),        static_cast<WORD>(local.tm_min),
                   static_cast<WORD>(local.tm_sec),         static_cast<WORD>(milliseconds)};
}
