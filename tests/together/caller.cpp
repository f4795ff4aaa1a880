#include "together/caller.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <system_error>

#include "cache/process_state.h"
#include "harness/all_properties.h"
#include "harness/test_token.h"
#include "together/caller_blocks.h"

namespace orvane::test {
namespace {

// Files, and whether reading one gives bytes.
struct File {
  const char* name;
  const char* directory;
};
constexpr File kFiles[] = {{"cardid", ""},      {"cmapfile", "mscp"}, {"ksc0", "mscp"},
                           {"kxc0", "mscp"},    {"kxc1", "mscp"},     {"ksc9", "mscp"},
                           {"msroots", "mscp"}, {"nothing", "mscp"},  {"cmapfile", "other"}};
constexpr const char* kPins[] = {kUserPin,
                                 kUserPin,
                                 kUserPin,
                                 kNewPin,
                                 kWrongPin,
                                 "1",
                                 "another-user-pin-for-a-test-that-is-longer-than-a-short-text-may-be-here"};
constexpr const wchar_t* kRoles[] = {L"user", L"user", L"ADMIN", L"nobody"};
constexpr DWORD kUntouchedWord = kPoison32;

// Whether an entry point may answer this at all.
bool isKnown(DWORD status) {
  constexpr LONG kKnown[] = {SCARD_S_SUCCESS,        ERROR_FILE_NOT_FOUND,        ERROR_OUTOFMEMORY,
                             ERROR_INVALID_PASSWORD, ERROR_INVALID_PARAMETER,     ERROR_INSUFFICIENT_BUFFER,
                             SCARD_F_INTERNAL_ERROR, SCARD_E_INVALID_PARAMETER,   SCARD_E_NO_MEMORY,
                             SCARD_E_NO_SMARTCARD,   SCARD_E_INSUFFICIENT_BUFFER, SCARD_E_UNSUPPORTED_FEATURE,
                             SCARD_E_DIR_NOT_FOUND,  SCARD_E_FILE_NOT_FOUND,      SCARD_E_NO_KEY_CONTAINER,
                             SCARD_W_WRONG_CHV,      SCARD_W_CHV_BLOCKED,         SCARD_W_CARD_NOT_AUTHENTICATED};
  return std::any_of(std::begin(kKnown), std::end(kKnown), [&](LONG known) { return code(known) == status; });
}

bool isRefusedByToken(DWORD status) { return status == code(SCARD_W_WRONG_CHV) || status == code(SCARD_W_CHV_BLOCKED); }

template <typename Value>
bool isPoisoned(const Value& value) {
  const Value poison = poisoned<Value>();
  return std::memcmp(&value, &poison, sizeof(value)) == 0;
}

// The record but for the slot that another thread may empty at any time.
Bytes withoutSlot(const CARD_DATA& record) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&record);
  constexpr std::size_t kSlot = offsetof(CARD_DATA, pvVendorSpecific);
  Bytes all(bytes, bytes + kSlot);
  all.insert(all.end(), bytes + kSlot + sizeof(record.pvVendorSpecific), bytes + sizeof(record));
  return all;
}

// Calls of the list that have no output, and those that fill a record step by step.
bool hasNoOutput(std::string_view call) {
  return call.starts_with("CardDeauthenticate") || call.starts_with("CardSet") || call == "CardDeleteContext";
}
bool fillsStepByStep(std::string_view call, DWORD status) {
  return call.starts_with("CardGetContainer") && status != code(ERROR_INVALID_PARAMETER) &&
         status != code(SCARD_E_NO_KEY_CONTAINER);
}
bool tellsAttempts(std::string_view call, DWORD status) {
  return (call.starts_with("CardAuthenticate") || call.starts_with("CardChange")) && isRefusedByToken(status);
}

// One that a round makes in its own way.
bool isMadeElsewhere(const EntryCall& call) {
  return call.name == "CardDeleteContext" || call.name == "CardSetProperty Card Serial Number" ||
         call.name.starts_with("CardDeauthenticate") || call.name.starts_with("CardChangeAuthenticator") ||
         call.name.starts_with("CardAuthenticate");
}

}  // namespace

std::vector<EntryCall> callsOfTheRounds() {
  std::vector<EntryCall> calls = allCalls();
  std::erase_if(calls, isMadeElsewhere);
  return calls;
}

Caller::Caller(Scene& scene, std::string name, std::span<CARD_DATA> records) : scene_(scene), name_(std::move(name)) {
  for (CARD_DATA& record : records) records_.push_back({&record, false, {}});
}

void Caller::report(const std::string& what) {
  const Action* const action = current();
  scene_.findings.add(name_ + ", " + (action != nullptr ? textOf(*action) : "at no call") + ": " + what +
                      (status_ != 0 ? ", status " + std::to_string(status_) : ""));
}

template <typename Call>
DWORD Caller::make(const Action& action, const Call& call) {
  callerBlocksFault() = {action.callerMemory, false};
  scene_.model.beginCall(notes_);
  scene_.memory.enter(action.ownMemory);
  status_ = call();
  const bool hasOwnFailed = scene_.memory.leave();
  scene_.model.endCall(notes_, isRefusedByToken(status_));
  if (hasOwnFailed) tally_.count(Kind::kOwnMemoryFailed);
  if (callerBlocksFault().hasFailed) tally_.count(Kind::kCallerMemoryFailed);
  callerBlocksFault() = {};
  tally_.count(Kind::kCalls);
  if (status_ == 0) tally_.count(Kind::kSucceeded);
  if (!notes_.offered.empty()) tally_.count(Kind::kPinsUsed);
  expect(isKnown(status_), "a status that there is not");
  expect(!notes_.isHandleSet, "the call left a card handle behind");
  if (action.areLocksTried) tryLocks();
  scene_.progress.fetch_add(1, std::memory_order_relaxed);
  return status_;
}

// A lock that this thread still holds refuses to be taken once more.
void Caller::tryLocks() {
  ProcessState& state = processState();
  const auto expectFree = [&](const char* what, const auto& use) {
    try {
      use();
    } catch (const std::system_error&) {
      report(std::string(what) + " is still held by the call");
    }
  };
  expectFree("the library lock", [&] { const LockGuard lock(state.libraryMutex); });
  expectFree("the lock of the records' slots", [&] { const LockGuard lock(state.contextSlotMutex); });
  expectFree("the device cache's lock", [&] { static_cast<void>(state.deviceCache.hasRecord(kRoundTokens[0])); });
  expectFree("the lock of the container lists",
             [&] { static_cast<void>(state.containerListCache.find(kRoundTokens[0])); });
}

// The address sanitizer looks at what is read.
void Caller::release(void* block, std::size_t size, const char* what) {
  if (block == nullptr) return;
  expect(size <= callerBlockSize(block), what);
  volatile unsigned sum = 0;
  for (std::size_t i = 0; i < std::min(size, callerBlockSize(block)); ++i) {
    sum = sum + static_cast<const unsigned char*>(block)[i];
  }
  releaseCallerBlock(block);
}

void Caller::perform(const Action& action) {
  current_.store(&action, std::memory_order_relaxed);
  own_ = &records_[action.record % records_.size()];
  switch (action.deed) {
    case Deed::kAcquire:
      acquire(action);
      break;
    case Deed::kDelete:
      make(action, [&] { return scene_.deleteContext(own_->record); });
      expect(status_ == 0, "a context cannot be deleted");
      tally_.count(Kind::kDeleted);
      break;
    case Deed::kDeleteAnother:
      deleteAnother(action);
      break;
    case Deed::kSetCardHandle:
      own_->record->hScard = action.numbers[0] % 3 * kCardHandle;
      break;
    default:
      // A record that never was acquired has no functions yet; the slots of a deleted one stay.
      if (own_->isAcquired) callEntryPoint(action);
  }
  current_.store(nullptr, std::memory_order_relaxed);
}

void Caller::callEntryPoint(const Action& action) {
  switch (action.deed) {
    case Deed::kFromTheList:
      return callFromTheList(action);
    case Deed::kReadFile:
      return readFile(action, pick(kFiles, action.numbers[0]).name);
    case Deed::kReadFreshness:
      return readFile(action, "cardcf");
    case Deed::kEnumerate:
      return enumerate(action);
    case Deed::kDescribeFile:
      return describeFile(action);
    case Deed::kAuthenticatePin:
      return authenticatePin(action);
    case Deed::kAuthenticateEx:
      return authenticateEx(action);
    case Deed::kChangePin:
    case Deed::kChangePinEx:
      return changePin(action);
    case Deed::kDeauthenticate:
    case Deed::kDeauthenticateEx:
      return deauthenticate(action);
    case Deed::kSign:
      return sign(action);
    case Deed::kDecrypt:
      return decrypt(action);
    case Deed::kContainerInfo:
      return describeContainer(action);
    case Deed::kContainerProperty:
      return describeContainerByProperty(action);
    case Deed::kGetProperty:
      return getProperty(action);
    case Deed::kMoveToToken:
      return moveToToken(action);
    default:
      return;
  }
}

// The old context goes first, so that a refused acquisition leaves nothing of it.
void Caller::acquire(const Action& action) {
  CARD_DATA& record = *own_->record;
  expect(scene_.deleteContext(&record) == 0, "a context cannot be deleted");
  record.hScard = action.numbers[0] % 3 == 0 ? 0 : kCardHandle;
  const Bytes before = withoutSlot(record);
  for (std::size_t token = 0; token < kRoundTokens.size(); ++token) scene_.model.beginListChange(token);
  make(action, [&] { return scene_.acquireContext(&record, 0); });
  for (std::size_t token = 0; token < kRoundTokens.size(); ++token) scene_.model.endListChange(token);
  if (status_ != 0) {
    expect(withoutSlot(record) == before, "a refused acquisition changed the record");
    return;
  }
  expect(record.dwVersion == CARD_DATA_VERSION_SEVEN && record.pfnCardReadFile != nullptr &&
             record.pfnCardCreateContainerEx != nullptr,
         "an acquisition filled nothing in");
  expect(!notes_.opened.empty(), "an acquisition asked for no keys");
  own_->isAcquired = true;
  own_->serial = notes_.opened;
  tally_.count(Kind::kAcquired);
}

void Caller::deleteAnother(const Action& action) {
  CARD_DATA& record = scene_.records[action.numbers[0] % scene_.records.size()];
  make(action, [&] { return scene_.deleteContext(&record); });
  expect(status_ == 0, "a context cannot be deleted");
  tally_.count(Kind::kDeletedByAnother);
}

void Caller::callFromTheList(const Action& action) {
  const EntryCall& call = pick(scene_.calls, action.numbers[0]);
  CallOutputs outputs(releaseCallerBlock);
  const std::function<DWORD()> prepared = call.prepare(*own_->record, outputs);
  outputs.startCall();
  make(action, prepared);
  if (status_ == 0) {
    expect(hasNoOutput(call.name) || !outputs.isUntouched(), ("no output of " + call.name).c_str());
  } else if (!fillsStepByStep(call.name, status_) && !tellsAttempts(call.name, status_)) {
    const bool isSame =
        call.name.starts_with("CardSignData") ? outputs.isUntouchedButForBuffers() : outputs.isUntouched();
    expect(isSame, ("an output of a refused " + call.name).c_str());
  }
}

void Caller::readFile(const Action& action, const char* name) {
  std::string directory = pick(kFiles, action.numbers[0]).directory;
  std::string file = name;
  PBYTE data = poisoned<PBYTE>();
  DWORD size = kUntouchedWord;
  const bool isFreshness = std::string_view(name) == "cardcf";
  const std::size_t token = positionOf(own_->serial);
  Reading reading;
  if (isFreshness) reading.before = scene_.model.moment(token);
  make(action,
       [&] { return own_->record->pfnCardReadFile(own_->record, directory.data(), file.data(), 0, &data, &size); });
  if (status_ != 0) return expect(isPoisoned(data) && size == kUntouchedWord, "an output of a refused call");
  expect(!isPoisoned(data) && size != kUntouchedWord, "no output");
  if (isPoisoned(data)) return;
  if (isFreshness && data != nullptr && size == sizeof(reading.file)) {
    std::memcpy(&reading.file, data, sizeof(reading.file));
    reading.after = scene_.model.moment(token);
    compareFreshness(reading);
  }
  checkFile(name, data, size);
  release(data, size, "a file is smaller than its size");
}

void Caller::checkFile(const char* name, const BYTE* data, DWORD size) {
  const std::string_view file(name);
  const auto expectSize = [&](bool isRight) { expect(isRight, ("an odd size of " + std::string(file)).c_str()); };
  if (file == "cardid") expectSize(size == 16 && data != nullptr);
  if (file == "cardcf") expectSize(size == sizeof(CARD_CACHE_FILE_FORMAT) && data != nullptr);
  if (file == "cmapfile") expectSize(size % sizeof(CONTAINER_MAP_RECORD) == 0 && data != nullptr);
  if (file == "msroots") expectSize(size == 0 && data == nullptr);
}

// The monitor's own thread polls when it likes; from then on nothing is sure.
void Caller::compareFreshness(const Reading& reading) {
  const std::size_t token = positionOf(own_->serial);
  if (token == readings_.size()) return;
  std::optional<Reading>& last = readings_[token];
  if (last && reading.after.isSure) {
    tally_.count(Kind::kReadingsCompared);
    const std::string difference = Model::difference(*last, reading);
    expect(difference.empty(), ("freshness of " + own_->serial + ": " + difference).c_str());
  }
  last = reading;
}

void Caller::enumerate(const Action& action) {
  char directory[] = "mscp";
  directory[0] = action.numbers[0] % 2 == 0 ? 'm' : '\0';
  LPSTR names = poisoned<LPSTR>();
  DWORD size = kUntouchedWord;
  make(action, [&] { return own_->record->pfnCardEnumFiles(own_->record, directory, &names, &size, 0); });
  if (status_ != 0) return expect(isPoisoned(names) && size == kUntouchedWord, "an output of a refused call");
  expect(!isPoisoned(names) && names != nullptr && size > 2 && size != kUntouchedWord, "no output");
  if (!isPoisoned(names)) release(names, size, "a list of names is smaller than its size");
}

void Caller::describeFile(const Action& action) {
  const File& file = pick(kFiles, action.numbers[0]);
  std::string directory = file.directory;
  std::string name = file.name;
  auto info = poisoned<CARD_FILE_INFO>();
  make(action, [&] { return own_->record->pfnCardGetFileInfo(own_->record, directory.data(), name.data(), &info); });
  // A name that there is not leaves an empty description.
  const bool isFilled =
      status_ == 0 || status_ == code(SCARD_E_FILE_NOT_FOUND) || status_ == code(SCARD_E_DIR_NOT_FOUND);
  if (isFilled) {
    expect(!isPoisoned(info.dwVersion) && !isPoisoned(info.cbFileSize), "no output");
  } else {
    expect(isPoisoned(info), "an output of a refused call");
  }
}

void Caller::authenticatePin(const Action& action) {
  std::wstring user = pick(kRoles, action.numbers[0]);
  PinBytes pin{std::string(pick(kPins, action.numbers[1]))};
  DWORD attempts = kUntouchedWord;
  make(action, [&] {
    return own_->record->pfnCardAuthenticatePin(own_->record, user.data(), pin.data(), pin.size(), &attempts);
  });
  const bool isTold = status_ == 0 || isRefusedByToken(status_);
  expect(isTold == (attempts != kUntouchedWord), isTold ? "no output" : "an output of a refused call");
  if (status_ == 0) expect(!notes_.offered.empty(), "a PIN was accepted that the token was not shown");
  if (isRefusedByToken(status_)) forgetPin();
}

void Caller::authenticateEx(const Action& action) {
  const PIN_ID role = action.numbers[0] % 4;
  const bool isSilent = action.numbers[1] % 3 == 0;
  PinBytes pin{std::string(pick(kPins, action.numbers[2]))};
  const bool wantsAll = action.numbers[3] % 2 == 0;
  auto sessionPin = poisoned<PBYTE>();
  DWORD sessionPinLength = kUntouchedWord;
  DWORD attempts = kUntouchedWord;
  make(action, [&] {
    return own_->record->pfnCardAuthenticateEx(own_->record, role, isSilent ? CARD_PIN_SILENT_CONTEXT : 0, pin.data(),
                                               pin.size(), wantsAll ? &sessionPin : nullptr,
                                               wantsAll ? &sessionPinLength : nullptr, wantsAll ? &attempts : nullptr);
  });
  const bool isTold = status_ == 0 || isRefusedByToken(status_);
  if (isTold && wantsAll) {
    expect(sessionPin == nullptr && sessionPinLength == 0 && attempts != kUntouchedWord, "no output");
  } else {
    expect(isPoisoned(sessionPin) && sessionPinLength == kUntouchedWord && attempts == kUntouchedWord,
           "an output of a refused call");
  }
  // Without the token's word the PIN was known already.
  if (status_ == 0 && notes_.offered.empty()) {
    expect(scene_.model.mayKnowPin(notes_, own_->serial),
           "a PIN counts that nobody has shown since it was to be forgotten");
  }
  if (isRefusedByToken(status_)) forgetPin();
}

void Caller::changePin(const Action& action) {
  const bool isAdmin = action.numbers[0] % 3 == 0;
  PinBytes from{std::string(isAdmin ? kSoPin : pick(kPins, action.numbers[1]))};
  PinBytes to{std::string(isAdmin ? kSoPin : pick(kPins, action.numbers[2]))};
  std::wstring user = isAdmin ? L"admin" : L"user";
  const PIN_ID role = isAdmin ? ROLE_ADMIN : ROLE_USER;
  DWORD attempts = kUntouchedWord;
  const std::size_t token = positionOf(own_->serial);
  scene_.model.beginPinChange(token, false);
  make(action, [&] {
    CARD_DATA* const record = own_->record;
    if (action.deed == Deed::kChangePin) {
      return record->pfnCardChangeAuthenticator(record, user.data(), from.data(), from.size(), to.data(), to.size(), 0,
                                                CARD_AUTHENTICATE_PIN_PIN, &attempts);
    }
    return record->pfnCardChangeAuthenticatorEx(record, PIN_CHANGE_FLAG_CHANGEPIN, role, from.data(), from.size(), role,
                                                to.data(), to.size(), 0, &attempts);
  });
  scene_.model.endPinChange(token, false, false);
  // Refused for the new PIN's length, the call tells that nothing is known.
  const bool isTold = status_ == 0 || isRefusedByToken(status_) || status_ == code(SCARD_E_INVALID_PARAMETER);
  expect(isTold == (attempts != kUntouchedWord), isTold ? "no output" : "an output of a refused call");
  if (isRefusedByToken(status_) && !isAdmin) forgetPin();
}

void Caller::deauthenticate(const Action& action) {
  const bool isAll = action.numbers[0] % 2 == 0;
  const PIN_SET pins = isAll ? PIN_SET_ALL_ROLES : 1 + action.numbers[1] % 3;
  std::wstring user = isAll ? L"all" : L"user";
  const std::size_t token = positionOf(own_->serial);
  scene_.model.beginPinChange(token, isAll);
  make(action, [&] {
    CARD_DATA* const record = own_->record;
    return action.deed == Deed::kDeauthenticate ? record->pfnCardDeauthenticate(record, user.data(), 0)
                                                : record->pfnCardDeauthenticateEx(record, pins, 0);
  });
  scene_.model.endPinChange(token, isAll, status_ == 0);
  if (isAll && status_ == 0) forgetPin();
}

void Caller::sign(const Action& action) {
  constexpr unsigned kHashLengths[] = {32, 32, 20, 64, 5};
  Bytes hash(pick(kHashLengths, action.numbers[0]), 0x68);
  const bool isSizeOnly = action.numbers[1] % 6 == 0;
  CARD_SIGNING_INFO info = signingOf(hash, isSizeOnly ? CARD_BUFFER_SIZE_ONLY : 0);
  info.bContainerIndex = action.numbers[2] % 8 == 0 ? 9 : static_cast<BYTE>(action.numbers[2] % 2);
  info.pbSignedData = poisoned<PBYTE>();
  info.cbSignedData = kUntouchedWord;
  const CARD_SIGNING_INFO before = info;
  make(action, [&] { return own_->record->pfnCardSignData(own_->record, &info); });
  // A buffer can be there after a failure, too; its size is stated only on success.
  PBYTE const signature = isPoisoned(info.pbSignedData) ? nullptr : info.pbSignedData;
  if (status_ == 0) {
    expect(signature != nullptr && info.cbSignedData != kUntouchedWord && info.cbSignedData != 0, "no output");
    const bool isBlank = signature == nullptr || std::all_of(signature, signature + callerBlockSize(signature),
                                                             [](BYTE byte) { return byte == 0; });
    expect(isBlank == isSizeOnly, "a signature without a signature");
    release(signature, info.cbSignedData, "a signature is smaller than its size");
  } else {
    CARD_SIGNING_INFO after = info;
    after.pbSignedData = before.pbSignedData;
    expect(std::memcmp(&after, &before, sizeof(after)) == 0, "an output of a refused call");
    release(signature, 0, "");
  }
}

void Caller::decrypt(const Action& action) {
  Bytes block(256);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(7 * i + 1);
  const Bytes before = block;
  CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
  constexpr DWORD kPaddings[] = {CARD_PADDING_PKCS1, CARD_PADDING_PKCS1, CARD_PADDING_OAEP, CARD_PADDING_NONE};
  info.dwPaddingType = pick(kPaddings, action.numbers[0]);
  info.bContainerIndex = action.numbers[1] % 8 == 0 ? 9 : static_cast<BYTE>(action.numbers[1] % 2);
  const CARD_RSA_DECRYPT_INFO infoBefore = info;
  make(action, [&] { return own_->record->pfnCardRSADecrypt(own_->record, &info); });
  if (status_ == 0) {
    expect(info.cbData <= block.size(), "a plaintext longer than its block");
    expect(info.cbData == 0 || block != before, "no output");
  } else {
    expect(block == before && std::memcmp(&info, &infoBefore, sizeof(info)) == 0, "an output of a refused call");
  }
}

void Caller::releaseKeys(const CONTAINER_INFO& info, bool isComplete) {
  if (isComplete) {
    expect(info.pbSigPublicKey != nullptr && info.cbSigPublicKey > 20, "no signature key");
    expect(info.pbKeyExPublicKey != nullptr && info.cbKeyExPublicKey > 20, "no key-exchange key");
  }
  if (!isPoisoned(info.pbSigPublicKey)) release(info.pbSigPublicKey, info.cbSigPublicKey, "a key blob is too small");
  if (!isPoisoned(info.pbKeyExPublicKey)) {
    release(info.pbKeyExPublicKey, info.cbKeyExPublicKey, "a key blob is too small");
  }
}

void Caller::describeContainer(const Action& action) {
  auto info = poisoned<CONTAINER_INFO>();
  const BYTE index = action.numbers[0] % 8 == 0 ? 9 : static_cast<BYTE>(action.numbers[0] % 2);
  make(action, [&] { return own_->record->pfnCardGetContainerInfo(own_->record, index, 0, &info); });
  // Refused before anything else, the record is as it was; later it may be empty or have the first of two keys.
  if (status_ == code(ERROR_INVALID_PARAMETER) || status_ == code(SCARD_E_NO_KEY_CONTAINER)) {
    return expect(isPoisoned(info), "an output of a refused call");
  }
  releaseKeys(info, status_ == 0);
}

void Caller::describeContainerByProperty(const Action& action) {
  auto info = poisoned<CONTAINER_INFO>();
  DWORD length = kUntouchedWord;
  const BYTE index = action.numbers[0] % 8 == 0 ? 9 : static_cast<BYTE>(action.numbers[0] % 2);
  const bool isShort = action.numbers[1] % 6 == 0;
  make(action, [&] {
    return own_->record->pfnCardGetContainerProperty(own_->record, index, CCP_CONTAINER_INFO,
                                                     reinterpret_cast<PBYTE>(&info),
                                                     isShort ? sizeof(info) - 1 : sizeof(info), &length, 0);
  });
  if (status_ == code(ERROR_INVALID_PARAMETER) || status_ == code(SCARD_E_NO_KEY_CONTAINER)) {
    return expect(isPoisoned(info) && length == kUntouchedWord, "an output of a refused call");
  }
  if (status_ == code(ERROR_INSUFFICIENT_BUFFER)) {
    return expect(isPoisoned(info) && length == sizeof(info), "an output of a refused call");
  }
  expect(status_ != 0 || length == sizeof(info), "no output");
  releaseKeys(info, status_ == 0);
}

void Caller::getProperty(const Action& action) {
  const CardProperty& property = pick(kCardProperties, action.numbers[0]);
  constexpr DWORD kSizes[] = {64, 64, 64, 4, 3, 0};
  const DWORD size = pick(kSizes, action.numbers[1]);
  Bytes data(64, kPoison);
  DWORD length = kUntouchedWord;
  make(action, [&] {
    return own_->record->pfnCardGetProperty(own_->record, property.name, data.data(), size, &length, property.flags);
  });
  const auto isPoison = [](std::uint8_t byte) { return byte == kPoison; };
  if (status_ != 0) {
    expect(std::all_of(data.begin(), data.end(), isPoison), "an output of a refused call");
    const bool isTold = status_ == code(ERROR_INSUFFICIENT_BUFFER);
    return expect(isTold == (length != kUntouchedWord), isTold ? "no output" : "an output of a refused call");
  }
  expect(length <= size, "a property larger than its buffer");
  const auto end = data.begin() + std::min<DWORD>(length, 64);
  expect(std::none_of(data.begin(), end, isPoison), "no output");
  expect(std::all_of(end, data.end(), isPoison), "a property behind its end");
}

// As the caller of CardSetProperty may.
void Caller::moveToToken(const Action& action) {
  const std::string serial = pick(kRoundTokens, action.numbers[0]);
  Bytes wide = wideBytes(std::wstring(serial.begin(), serial.end()));
  make(action, [&] {
    return own_->record->pfnCardSetProperty(own_->record, CP_CARD_SERIAL_NO, wide.data(),
                                            static_cast<DWORD>(wide.size()), 0);
  });
  if (status_ == 0) own_->serial = serial;
}

}  // namespace orvane::test
