// The machine around the minidriver: registry, temporary folder, clock, smart-card resource manager. Natively these are
// stand-ins; on Windows a registry of the process's own and the rest real, with some calls of the loaded DLL diverted.
#ifndef ORVANE_TESTS_HARNESS_MACHINE_H
#define ORVANE_TESTS_HARNESS_MACHINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "harness/test_values.h"

namespace orvane::test {

// The value of "logLevel": a number, a text, other bytes, or absent.
struct LogLevelValue {
  enum class Type { kAbsent, kNumber, kText, kBinary } type = Type::kAbsent;
  std::uint32_t number = 0;
  Bytes bytes = {};  // of a text (with its NUL) or of a binary value
};

// What the pretended resource manager answers to the minidriver (SCardStatusA, SCardTransmit).
struct ResourceManager {
  LONG statusResult = SCARD_S_SUCCESS;
  std::string readerName;
  LONG transmitResult = SCARD_S_SUCCESS;
  Bytes reply;
  bool hasNameNul = true;  // false: the reader name is given without a NUL behind it
};

}  // namespace orvane::test

namespace orvane::test::machine {

// Diverts the calls of a module that was just loaded (an HMODULE; null natively). Those to the resource manager are
// noted in the Trace.
void divertCalls(void* module);

// Everything here holds until it is set again. Any thread may be inside the minidriver meanwhile.
void setLogLevel(const LogLevelValue& value);
// Everything is logged ("logLevel" is 3), or errors alone (it is absent).
inline void setDebugLog(bool isOn) {
  LogLevelValue value;
  if (isOn) value = {.type = LogLevelValue::Type::kNumber, .number = 3, .bytes = {}};
  setLogLevel(value);
}
void setLocalTime(const std::optional<SYSTEMTIME>& time);
// Path without a separator at the end; no value: there is none.
void setTempFolder(const std::optional<std::string>& folder);
void setResourceManager(const ResourceManager& manager);

// The process name in log paths.
std::string processName();
// Whether the minidriver can create threads; it can at first.
void setThreadsFail(bool fail);
// Whether the pauses of the minidriver's own threads end at once; at first they take their time. One that has begun is
// not shortened.
void setPausesEnd(bool end);
// The lengths of these pauses since the last call, in milliseconds, as the minidriver asked for them.
std::vector<unsigned> takePauses();

#ifdef _WIN32
// How the minidriver asked the system for its threads since the last call, as "pool=default long=1", and "its end is
// announced by the pool" for each that has asked for that.
Lines takeThreadCreations();
// How often the minidriver itself has given this block back to the C heap since the last call for it.
unsigned takeFrees(const void* block);
#endif

// Lets threads go that the minidriver has started: on Windows a new thread stands still until then.
void startThreads();

}  // namespace orvane::test::machine

#endif  // ORVANE_TESTS_HARNESS_MACHINE_H
