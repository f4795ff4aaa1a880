// The machine around the minidriver: registry, temporary folder, clock, smart-card resource manager. Natively these are
// the stand-ins; on Windows the real ones, with some calls of the loaded DLL diverted in its import table.
#ifndef ORVANE_TESTS_HARNESS_MACHINE_H
#define ORVANE_TESTS_HARNESS_MACHINE_H

#include <optional>
#include <string>

#include "driver_test.h"

namespace orvane::test::machine {

// Diverts the calls of a module that was just loaded (an HMODULE; null natively).
void divertCalls(void* module);

// Everything here holds until it is set again. Any thread may be inside the minidriver meanwhile.
void setLogLevel(const LogLevelValue& value);
void setLocalTime(const std::optional<SYSTEMTIME>& time);
// Path without a separator at the end; no value: there is none.
void setTempFolder(const std::optional<std::string>& folder);
void setResourceManager(const ResourceManager& manager);

// The process name in log paths.
std::string processName();
// What was sent since the last call; see DriverTest::takeTransmissions.
Lines takeTransmissions();

// How SCardStatusA was asked last since the last call, as "handle=0x2A name=512 atr=36 zeroed": the lengths that came
// in, and whether both buffers were. Empty when it was not asked.
std::string takeStatusQuestion();

// Whether the minidriver can create threads; it can at first.
void setThreadsFail(bool fail);

// Lets threads go that the minidriver has started: on Windows a new thread stands still until then.
void startThreads();

}  // namespace orvane::test::machine

#endif  // ORVANE_TESTS_HARNESS_MACHINE_H
