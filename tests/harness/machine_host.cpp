#include "machine.h"
#include "platform/host/host_control.h"
#include "trace.h"
#include "transmission_text.h"

namespace orvane::test::machine {
namespace {

// Applies a change while the minidriver looks elsewhere.
template <typename Change>
void change(const Change& apply) {
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  apply(machine);
}

}  // namespace

void divertCalls(void*) {
  change([](host::HostMachine& machine) {
    machine.statusAsked = [](const host::StatusQuestion& question) {
      Trace::note(statusQuestionText(question.cardHandle, question.nameLength, question.atrLength, question.isZeroed));
    };
    machine.commandSent = [](const host::SentCommand& command) {
      Trace::note(transmissionText(command.cardHandle, command.protocol, command.headerLength, command.hasReceiveHeader,
                                   command.receiveLength, command.bytes));
    };
  });
}

void setLogLevel(const LogLevelValue& value) {
  std::optional<Bytes> data;
  if (value.type == LogLevelValue::Type::kNumber) {
    data = Bytes{static_cast<std::uint8_t>(value.number), static_cast<std::uint8_t>(value.number >> 8),
                 static_cast<std::uint8_t>(value.number >> 16), static_cast<std::uint8_t>(value.number >> 24)};
  } else if (value.type != LogLevelValue::Type::kAbsent) {
    data = value.bytes;
  }
  change([&](host::HostMachine& machine) { machine.logLevel = data; });
}

void setLocalTime(const std::optional<SYSTEMTIME>& time) {
  change([&](host::HostMachine& machine) { machine.localTime = time; });
}

void setTempFolder(const std::optional<std::string>& folder) {
  change([&](host::HostMachine& machine) {
    machine.tempPath.reset();
    if (folder) machine.tempPath = *folder + "/";
  });
}

void setResourceManager(const ResourceManager& manager) {
  change([&](host::HostMachine& machine) {
    machine.statusResult = manager.statusResult;
    machine.readerName = manager.readerName;
    machine.transmitResult = manager.transmitResult;
    machine.reply = manager.reply;
    machine.hasNameNul = manager.hasNameNul;
  });
}

std::string processName() { return "hosttest"; }

void setThreadsFail(bool fail) {
  change([&](host::HostMachine& machine) { machine.threadsFail = fail; });
}

void setPausesEnd(bool end) {
  change([&](host::HostMachine& machine) { machine.pausesEnd = end; });
}

std::vector<unsigned> takePauses() {
  std::vector<unsigned> pauses;
  change([&](host::HostMachine& machine) { pauses.swap(machine.pauses); });
  return pauses;
}

void startThreads() {}

}  // namespace orvane::test::machine
