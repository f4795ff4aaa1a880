// What tests say about the machine that the stand-ins of host_windows.h pretend to be.
#ifndef ORVANE_PLATFORM_HOST_HOST_CONTROL_H
#define ORVANE_PLATFORM_HOST_HOST_CONTROL_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "platform/windows_api.h"

namespace orvane::host {

// One command sent through SCardTransmit, with the header that went with it.
struct SentCommand {
  SCARDHANDLE cardHandle;
  DWORD protocol;
  DWORD headerLength;
  bool hasReceiveHeader;
  DWORD receiveLength;
  std::vector<BYTE> bytes;
};

// The pretended machine. `hostMachine()` is the only instance; every access outside the stand-ins happens under `mutex`
// or while no other thread of the program is running. The stand-ins that only read share it: threads that did nothing
// but read the registry must not look synchronised to the thread sanitizer.
struct HostMachine {
  std::shared_mutex mutex;
  // Data of the registry value "logLevel"; without it the value is absent. Longer than the caller's buffer: more data.
  std::optional<std::vector<BYTE>> logLevel;
  // What GetTempPathA answers, ending in a separator; without it the call fails.
  std::optional<std::string> tempPath;
  // Base name of the process; without it the name cannot be obtained.
  std::optional<std::string> processName{"hosttest.exe"};
  // Fixed local time; without it the machine's clock is read.
  std::optional<SYSTEMTIME> localTime;
  // SCardStatusA: its result, and the reader name that it gives.
  LONG statusResult = SCARD_S_SUCCESS;
  std::string readerName;
  // SCardTransmit: its result and the reply; the commands that were sent.
  LONG transmitResult = SCARD_S_SUCCESS;
  std::vector<BYTE> reply;
  std::vector<SentCommand> sent;
  // Whether no thread can be created.
  bool threadsFail = false;
  // Number of registry reads so far.
  std::atomic<std::uint64_t> registryReads{0};
};

// hostMachine returns the pretended machine, made at first use and never destroyed.
HostMachine& hostMachine();

}  // namespace orvane::host

#endif  // ORVANE_PLATFORM_HOST_HOST_CONTROL_H
