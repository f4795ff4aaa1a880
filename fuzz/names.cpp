// Reader names, serial replies, directories and file names.
#include <algorithm>
#include <stdexcept>

#include "cache/process_state.h"
#include "minidriver/file_system/file_names.h"
#include "minidriver/frame/provider_context.h"
#include "minidriver/frame/serial_resolution.h"
#include "platform/host/host_control.h"
#include "scene.h"

namespace orvane::fuzz {
namespace {

constexpr std::size_t kReaderNameSize = 512;

void setReader(const std::string& name, const std::string& reply) {
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  machine.readerName = name;
  machine.reply.assign(reply.begin(), reply.end());
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

void fuzzReaderNames(Input input) {
  startInput(input);
  Reader reader(input);
  const std::string name = reader.textUntil('\n').substr(0, kReaderNameSize - 1);
  const std::string reply = reader.rest();

  bool isIndexTooLarge = false;
  try {
    const auto index = readerIndexOf(name);
    require(!index || !name.empty(), "an empty name has an index");
  } catch (const std::out_of_range&) {
    isIndexTooLarge = true;
  }
  if (const auto serial = serialInReaderName(name)) {
    require(serial->find(' ') == std::string::npos, "a serial with a blank");
    require(std::any_of(serial->begin(), serial->end(), isDigit), "a serial without a digit");
    require(name.find(*serial) != std::string::npos, "a serial that is not in the name");
  }
  for (const SerialCommand command : {SerialCommand::kSle, SerialCommand::kOrvaneKey}) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(reply.data());
    const auto serial = serialInReply(command, {bytes, reply.size()});
    if (serial) require(serial->size() + 2 == reply.size() && !serial->empty(), "a serial of a wrong length");
  }

  setReader(name, reply);
  setLog(!input.empty() && input.back() % 4 == 0);
  CARD_DATA record = newRecord();
  record.hScard = 0x2A;
  const DWORD status = CardAcquireContext(&record, 0);
  const bool isWellFormed = name.find('\0') == std::string::npos;
  if (isWellFormed) {
    require(status == (isIndexTooLarge ? static_cast<DWORD>(SCARD_F_INTERNAL_ERROR) : 0), "an unexpected status");
  }
  require((status == 0) == (record.pvVendorSpecific != nullptr), "a context without success, or the opposite");
  std::string serial;
  if (status == 0) serial = static_cast<ProviderContext*>(record.pvVendorSpecific)->serialNumber;
  require(CardDeleteContext(&record) == 0, "a context that cannot be deleted");
  // What is known about tokens of made-up serials would grow from input to input.
  processState().deviceCache.erase(serial);
  processState().containerListCache.erase(serial);
  endInput();
}

void fuzzFileNames(Input input) {
  startInput(input);
  Reader reader(input);
  std::string directory = reader.textUntil('\n');
  std::string file = reader.rest();

  const auto known = cardFileOf(file);
  if (known && isCertificateFile(*known)) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{300}}) {
      const auto index = containerIndexOf(file, count);
      require(!index || *index < count, "a container that does not exist");
    }
  }
  CARD_DATA record = acquired();
  setLog(!input.empty() && input.front() % 4 == 0);
  PBYTE data = nullptr;
  DWORD size = 0;
  const DWORD status = record.pfnCardReadFile(&record, directory.data(), file.data(), 0, &data, &size);
  require(isKnownStatus(status), "an unknown status");
  require(status == 0 || (data == nullptr && size == 0), "an output of a failed call");
  release(data, size);

  LPSTR names = nullptr;
  DWORD namesSize = 0;
  require(isKnownStatus(record.pfnCardEnumFiles(&record, directory.data(), &names, &namesSize, 0)), "unknown status");
  if (names != nullptr) require(namesSize >= 2 && names[namesSize - 1] == '\0', "a list without an end");
  release(names, namesSize);

  CARD_FILE_INFO info{};
  require(isKnownStatus(record.pfnCardGetFileInfo(&record, directory.data(), file.data(), &info)), "unknown status");
  setLog(false);
  require(CardDeleteContext(&record) == 0, "a context that cannot be deleted");
  endInput();
}

}  // namespace orvane::fuzz
