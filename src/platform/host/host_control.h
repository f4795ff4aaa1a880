// What tests say about the machine that the stand-ins of host_windows.h pretend to be.
#ifndef ORVANE_PLATFORM_HOST_HOST_CONTROL_H
#define ORVANE_PLATFORM_HOST_HOST_CONTROL_H

#include <atomic>
#include <cstddef>
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

// How SCardStatusA was asked: the lengths that came in, and whether both buffers held nothing but zeros.
struct StatusQuestion {
  SCARDHANDLE cardHandle;
  DWORD nameLength;
  DWORD atrLength;
  bool isZeroed;
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
  // What the clock says at its next readings, one after the other, before it says the above.
  std::vector<SYSTEMTIME> nextTimes;
  std::atomic<std::size_t> nextTimesRead{0};
  // Name of the one among GetTempPathA, GetFileAttributesA and CreateDirectoryA that throws std::runtime_error, with
  // this name as its text.
  std::optional<std::string> throwing;
  // Called with their name when SCardStatusA and SCardTransmit begin, if it is set.
  std::function<void(const char* function)> whenAsked;
  // SCardStatusA: its result, the reader name that it gives, with a NUL behind it or without, and who is told how it
  // was asked.
  LONG statusResult = SCARD_S_SUCCESS;
  std::string readerName;
  bool hasNameNul = true;
  std::function<void(const StatusQuestion&)> statusAsked;
  // SCardTransmit: its result and the reply, and who is told the commands.
  LONG transmitResult = SCARD_S_SUCCESS;
  std::vector<BYTE> reply;
  std::function<void(const SentCommand&)> commandSent;
  // What somebody else does at a point on the way to a log file; without it nothing. It is told the point, and called
  // with no lock held: "open NAME" and "make NAME" come right before a folder or file of that name is opened or made,
  // "judge NAME" when a file is open and nothing is known about it yet.
  std::atomic<const std::function<void(const std::string& point)>*> atPoint{nullptr};
  // Whether no thread can be created.
  bool threadsFail = false;
  // Whether the pauses of worker threads end at once, instead of when their time is over.
  bool pausesEnd = false;
  // What was asked of worker threads so far: "start", "pause 1000", "wake", "join".
  std::vector<std::string> threadEvents;
  // The lengths of their pauses so far, in milliseconds, whether they ended at once or not.
  std::vector<unsigned> pauses;
  // Number of registry reads so far.
  std::atomic<std::uint64_t> registryReads{0};
};

// hostMachine returns the pretended machine, made at first use and never destroyed.
HostMachine& hostMachine();

}  // namespace orvane::host

#endif  // ORVANE_PLATFORM_HOST_HOST_CONTROL_H
