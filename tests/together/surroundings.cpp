#include "together/surroundings.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <string_view>
#include <system_error>

#include "harness/all_calls.h"
#include "harness/log_reader.h"
#include "harness/machine.h"
#include "platform/host/host_control.h"
#include "softtoken/softtoken_control.h"

namespace orvane::test {
namespace fs = std::filesystem;
namespace {

constexpr SYSTEMTIME kTime = {2026, 11, 0, 15, 10, 3, 25, 123};
constexpr const char* kLogName = "2026-11-15.LOG";
// A file system where nothing can be made, not even by the administrator.
constexpr const char* kUnwritable = "/proc";

constexpr const char* kAnswering[] = {"orvane_init",
                                      "orvane_initDevice",
                                      "orvane_getConnectedDeviceList",
                                      "orvane_getTokenInfo",
                                      "orvane_validatePassword",
                                      "orvane_getKeyPairList",
                                      "orvane_changeUserPassword",
                                      "orvane_changeSOPassword",
                                      "orvane_signHash",
                                      "orvane_decrypt",
                                      "orvane_findCertificateForKey"};
// These may keep a handle from being forgotten.
constexpr const char* kHandles[] = {"orvane_setExternalSmartcardHandle", "orvane_clearExternalSmartcardHandle"};

std::string bytesOfRecord(const void* record, std::size_t size) {
  return std::string(static_cast<const char*>(record), size);
}

// A key's length is a matter of its identifier, whoever tells it: the library writes signatures of its own keys'
// lengths.
OrvaneKeyPair keyOf(unsigned index) {
  return makeKey(static_cast<std::uint8_t>(index + 1), 3, index == 1 ? 4096 : 2048);
}

// What a function that hands something out hands out when it succeeds.
std::string outputOf(std::string_view function, unsigned number) {
  if (function == "orvane_getConnectedDeviceList") {
    return number % 3 == 0 ? "" : std::string(pick(kRoundTokens, number)) + "\n" + kStranger + "\n";
  }
  if (function == "orvane_getTokenInfo") return number % 2 == 0 ? "1.9.9" : "2.0.0";
  if (function == "orvane_signHash") return std::string(64, 's');
  // As long as the longest block of a round: nobody can find out that a library states more than it has.
  if (function == "orvane_decrypt") return std::string(512, 'p');
  if (function == "orvane_findCertificateForKey") {
    const OrvaneCertificate certificate = makeCertificate(9, number % 3 == 0 ? 4000 : 70);
    return bytesOfRecord(&certificate, sizeof(certificate));
  }
  std::string keys;
  if (function == "orvane_getKeyPairList") {
    for (unsigned i = 0; i < number % 4; ++i) {
      const OrvaneKeyPair key = keyOf(i);
      keys += bytesOfRecord(&key, sizeof(key));
    }
  }
  return keys;
}

void giveKeys(const char* serial, unsigned count) {
  softtoken_clear_keys(serial);
  for (unsigned i = 0; i < count; ++i) {
    const OrvaneKeyPair key = keyOf(i);
    softtoken_add_key(serial, &key);
    setCertificate(serial, key, makeCertificate(key.credentialId[0], 100));
  }
}

// The pretended machine's memory of the monitor's thread, which that thread has asked for.
void forgetThreadEvents() {
  machine::takePauses();
  host::HostMachine& machine = host::hostMachine();
  const std::lock_guard lock(machine.mutex);
  std::vector<std::string>().swap(machine.threadEvents);
}

}  // namespace

Surroundings::Surroundings(OwnMemory& memory, Model& model, Findings& findings, const fs::path& folder,
                           bool mayKeepHandle)
    : memory_(memory), model_(model), findings_(findings), folder_(folder / "log"), mayKeepHandle_(mayKeepHandle) {
  fs::create_directories(folder_ / "Brightfold" / machine::processName());
  {
    host::HostMachine& machine = host::hostMachine();
    const std::lock_guard lock(machine.mutex);
    machine.statusAsked = nullptr;
    machine.commandSent = nullptr;
  }
  machine::setLocalTime(kTime);
  makeWell();
}

Surroundings::~Surroundings() {
  machine::setLogLevel({});
  machine::setLocalTime(std::nullopt);
  machine::setTempFolder(std::nullopt);
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Surroundings::makeWell() {
  softtoken_reset();
  softtoken_set_folder("");
  for (std::size_t i = 0; i < kRoundTokens.size(); ++i) {
    TestToken token = tokenForCalls(kRoundTokens[i]);
    token.tries = 100000000;
    // One of them takes no short hashes.
    token.isFips = i == 3;
    defineToken(token);
    isConnected_[i] = true;
  }
  machine::setResourceManager({});
  machine::setThreadsFail(false);
  machine::setTempFolder(folder_.string());
  machine::setDebugLog(false);
  forgetThreadEvents();
}

void Surroundings::bring(const Trouble& trouble) {
  switch (trouble.kind) {
    case TroubleKind::kToken:
      return changeToken(trouble);
    case TroubleKind::kPoll:
      return poll(trouble.ownMemory);
    case TroubleKind::kAnswer:
      return prepareAnswer(trouble);
    case TroubleKind::kException:
      return prepareException(trouble);
    case TroubleKind::kReader:
      return changeReader(trouble);
    case TroubleKind::kLogLevel:
      return changeLogLevel(trouble);
    case TroubleKind::kLogPlace:
      return changeLogPlace(trouble);
    case TroubleKind::kNoThreads:
      tally_.count(Kind::kThreadFailures);
      return machine::setThreadsFail(trouble.numbers[0] % 2 == 0);
    case TroubleKind::kKeys:
      return changeKeys(trouble);
    case TroubleKind::kOpening:
      tally_.count(Kind::kOpeningChanges);
      softtoken_set_init_result(pick(kRoundTokens, trouble.numbers[0]), trouble.numbers[1] % 2 == 0 ? 0 : 7);
      return;
    case TroubleKind::kCount:
      return;
  }
}

void Surroundings::poll(const std::optional<MemoryFault>& fault) {
  const std::set<std::string> before = known_.present;
  model_.beginPoll(before);
  model_.beginCall(notes_);
  memory_.enter(fault);
  try {
    DeviceMonitor::pollDevices(known_);
  } catch (const std::bad_alloc&) {
    tally_.count(Kind::kPollsOutOfMemory);
  } catch (const std::exception& error) {
    findings_.add(std::string("a poll throws: ") + error.what());
  }
  memory_.leave();
  model_.endCall(notes_, false);
  model_.endPoll(before, known_.present);
  tally_.count(Kind::kPolls);
  for (const char* const serial : kRoundTokens) {
    if (before.contains(serial) && !known_.present.contains(serial)) tally_.count(Kind::kRemovalsSeen);
    if (!before.contains(serial) && known_.present.contains(serial)) tally_.count(Kind::kAppearancesSeen);
  }
  // What was recorded would fill the memory.
  softtoken_clear_calls();
}

void Surroundings::changeToken(const Trouble& trouble) {
  const std::size_t token = trouble.numbers[0] % kRoundTokens.size();
  const bool isConnected = trouble.numbers[1] % 5 >= 2;
  if (isConnected != isConnected_[token]) tally_.count(isConnected ? Kind::kTokensBack : Kind::kTokensGone);
  isConnected_[token] = isConnected;
  softtoken_set_connected(kRoundTokens[token], isConnected ? 1 : 0);
}

void Surroundings::prepareAnswer(const Trouble& trouble) {
  const std::string_view function = pick(kAnswering, trouble.numbers[0]);
  constexpr long long kResults[] = {0, 0, 1, 51, 160, 164, 224, -1};
  constexpr int kNumbers[] = {kSofttokenKeep, 0, 1, 128, 256, 512, 513, -1};
  const std::string output = outputOf(function, trouble.numbers[1]);
  SofttokenReaction reaction{kSofttokenAnswer,
                             0,
                             pick(kResults, trouble.numbers[1]),
                             pick(kNumbers, trouble.numbers[2]),
                             pick(kNumbers, trouble.numbers[3]),
                             reinterpret_cast<const unsigned char*>(output.data()),
                             output.size()};
  // The other way round than an error code: these answer whether it worked.
  if (function.starts_with("orvane_change")) reaction.result = trouble.numbers[1] % 2;
  // A failing library hands nothing over.
  if (function == "orvane_decrypt" && reaction.result != 0) reaction.output = nullptr;
  tally_.count(Kind::kAnswers);
  softtoken_queue(std::string(function).c_str(), &reaction);
}

void Surroundings::prepareException(const Trouble& trouble) {
  const bool isHandle = trouble.numbers[3] % 6 == 0;
  const char* const function =
      isHandle ? kHandles[mayKeepHandle_ ? trouble.numbers[0] % 2 : 0] : pick(kAnswering, trouble.numbers[0]);
  constexpr int kKinds[] = {kSofttokenThrow, kSofttokenThrowRuntimeError, kSofttokenThrowBadAlloc,
                            kSofttokenThrowBadArrayNewLength, kSofttokenThrowNullText};
  constexpr std::string_view kText = "the library's own words";
  const SofttokenReaction reaction{pick(kKinds, trouble.numbers[1]),
                                   0,
                                   0,
                                   kSofttokenKeep,
                                   kSofttokenKeep,
                                   reinterpret_cast<const unsigned char*>(kText.data()),
                                   kText.size()};
  tally_.count(Kind::kExceptions);
  softtoken_queue(function, &reaction);
}

void Surroundings::changeReader(const Trouble& trouble) {
  ResourceManager manager;
  const std::string serial = pick(kRoundTokens, trouble.numbers[1]);
  switch (trouble.numbers[0] % 7) {
    case 0:
      break;
    case 1:
      manager.statusResult = SCARD_E_INVALID_HANDLE;
      break;
    case 2:
      manager.readerName = "OrvaneDSC " + std::to_string(trouble.numbers[1] % 5);
      manager.reply.assign(serial.begin(), serial.end());
      manager.reply.insert(manager.reply.end(), {0x90, 0x00});
      break;
    case 3:
      manager.readerName = "Reader " + std::to_string(trouble.numbers[1] % 5);
      manager.transmitResult = SCARD_E_NO_SMARTCARD;
      break;
    case 4:
      manager.readerName = "Reader 99999999999";
      break;
    default:
      manager.readerName = "Reader of " + serial;
  }
  tally_.count(Kind::kReaders);
  machine::setResourceManager(manager);
}

void Surroundings::changeLogLevel(const Trouble& trouble) {
  LogLevelValue value;
  const unsigned number = trouble.numbers[0] % 8;
  // Everything is logged half the time.
  value.type = number == 0   ? LogLevelValue::Type::kAbsent
               : number == 1 ? LogLevelValue::Type::kText
               : number == 2 ? LogLevelValue::Type::kBinary
                             : LogLevelValue::Type::kNumber;
  if (number == 1) value.bytes = {'3', 0};
  value.number = number >= 4 ? 3 : trouble.numbers[1] % 6;
  tally_.count(Kind::kLogLevels);
  machine::setLogLevel(value);
}

fs::path Surroundings::aside() { return folder_ / ("aside-" + std::to_string(++moved_)); }

// Whatever stands there is moved aside, so that its lines are read in the end. A step that fails, since the minidriver
// made something there at the same time, is left out.
void Surroundings::changeLogPlace(const Trouble& trouble) {
  const fs::path outer = folder_ / "Brightfold";
  const fs::path inner = outer / machine::processName();
  const fs::path file = inner / kLogName;
  const fs::path& place = trouble.numbers[1] % 3 == 0 ? outer : trouble.numbers[1] % 3 == 1 ? inner : file;
  std::error_code ignored;
  const fs::path old = aside();
  tally_.count(Kind::kLogPlaces);
  switch (trouble.numbers[0] % 6) {
    case 0:  // what stands in the place is gone
      fs::rename(place, old, ignored);
      break;
    case 1:  // a folder in the file's place
      fs::rename(file, old, ignored);
      fs::create_directories(file, ignored);
      break;
    case 2:  // a file in a folder's place
      fs::rename(outer, old, ignored);
      fs::copy_file("/dev/null", outer, ignored);
      break;
    case 3:  // a link
      fs::rename(place, old, ignored);
      fs::create_symlink(folder_, place, ignored);
      break;
    case 4:  // nothing can be written
      machine::setTempFolder(kUnwritable);
      break;
    default:  // all is well again
      machine::setTempFolder(folder_.string());
      fs::rename(outer, old, ignored);
      fs::create_directories(inner, ignored);
  }
}

void Surroundings::changeKeys(const Trouble& trouble) {
  tally_.count(Kind::kKeyChanges);
  giveKeys(pick(kRoundTokens, trouble.numbers[0]), trouble.numbers[1] % 4);
}

void Surroundings::takeTokensAway() {
  // The monitor's thread may have rested once more before it was stopped.
  forgetThreadEvents();
  softtoken_reset();
  softtoken_set_folder("");
  isConnected_ = {};
  poll(std::nullopt);
}

void Surroundings::forgetMonitor() {
  known_ = {};
  forgetThreadEvents();
}

void Surroundings::checkLog() {
  for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
    if (entry.is_symlink() || !entry.is_regular_file()) continue;
    const std::string bytes = fileBytes(entry.path());
    if (bytes.find(kPinMark) != std::string::npos) findings_.add("the log contains a PIN");
    for (std::size_t begin = 0; begin < bytes.size();) {
      const std::size_t end = bytes.find('\n', begin);
      const std::string line = bytes.substr(begin, end == std::string::npos ? end : end - begin);
      if (end == std::string::npos || logLineText(line)[0] == '?') findings_.add("no whole log line: " + line);
      tally_.count(Kind::kLogLines);
      begin = end == std::string::npos ? bytes.size() : end + 1;
    }
  }
}

}  // namespace orvane::test
