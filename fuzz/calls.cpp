// The call-sequence fuzzer: a little language in which a few bytes are a whole session.
//
// Each operation is a letter and its arguments, one byte each: a digit stands for its value, any other byte for itself,
// and what is missing at the end for 0. Blanks and line feeds between operations do nothing, "#" begins a comment that
// ends with its line. `r` is one of four records, `i` a position in the list of the operation, cut to its length.
//
//   A r    acquire        D r    delete       H r v    card handle            U        everything with null arguments
//   P r p  verify PIN p   X r role flags p    verify by the extended call     N r role p q, n r u p q   change PINs
//   d r u  deauthenticate e r s  the set s    S r c f h   sign                R r c k l p   decrypt
//   F r i  read a file    E r i  list         I r i       describe            G r i s f     get a property
//   T r i s  set one      C r c  container    c r c i s   its property        k r c i s     set it
//   a r i  a call of the tests' list, with arguments that it accepts
//   Q r i  query          t i v  token i gone or there (v)                    K i n    token i has n odd keys
//   m      monitor polls  q f kind result attempts length    prepare the library's answer
//   z n    allocations fail from the n-th on, "z-" never     L v   log off or on        r i   reader name
#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <iterator>
#include <set>

#include "cache/device_monitor.h"
#include "harness/all_calls.h"
#include "harness/all_properties.h"
#include "harness/caller_memory.h"
#include "harness/machine.h"
#include "harness/token_replay.h"
#include "minidriver/frame/function_table.h"
#include "scene.h"

namespace orvane::fuzz {
namespace {

using test::CallerMemory;

// Calls an entry point with nothing.
template <typename... Types>
DWORD callWithNothing(DWORD(WINAPI* entryPoint)(Types...)) {
  return entryPoint(Types{}...);
}

template <typename List>
const auto& pick(const List& list, std::uint8_t index) {
  return list[index % std::size(list)];
}

constexpr const char* kPins[] = {test::kUserPin,
                                 test::kWrongPin,
                                 "",
                                 "another-user-pin-for-a-test-that-is-longer-than-a-short-text-may-be-here",
                                 test::kSoPin,
                                 "1",
                                 test::kNewPin,
                                 test::kNewSoPin};
constexpr const wchar_t* kUsers[] = {L"user", L"admin", L"", L"USER", L"nobody"};
constexpr const char* kFiles[] = {"cardid",  "cardcf", "cmapfile", "ksc0", "kxc1",   "ksc2",
                                  "msroots", "kxc9",   "ksc",      "",     "CARDCF", "kxc4294967296"};
constexpr const char* kDirectories[] = {"", "mscp", "MSCP", "other"};
// What can be asked of a card and its containers, or set: the tests' lists, and a name that nobody knows.
constexpr const wchar_t* kUnknownName = L"nothing";
const std::vector<LPCWSTR>& propertyNames() {
  static const std::vector<LPCWSTR> names = [] {
    std::vector<LPCWSTR> all = test::allPropertyNames();
    all.push_back(kUnknownName);
    return all;
  }();
  return names;
}
constexpr LPCWSTR kContainerNames[] = {test::kContainerProperties[0], test::kContainerProperties[1], kUnknownName};
static_assert(std::size(kContainerNames) == std::size(test::kContainerProperties) + 1);
// The calls of the tests, the storm, the soak and the benchmark.
const std::vector<test::EntryCall>& calls() {
  static const std::vector<test::EntryCall> all = test::allCalls();
  return all;
}
constexpr const char* kReaderNames[] = {"",          "Brightfold Orvane 0", "Brightfold Orvane 0012AB 1",
                                        "OrvaneDSC", "SLE reader 2",        "Reader 99999999999"};
constexpr long long kResults[] = {0, 1, -1, 51, 160, 164, 224, INT_MAX, INT_MIN};
constexpr int kNumbers[] = {kSofttokenKeep, 0, -1, 1, 8, 127, 128, 255, 256, 257, 3072, INT_MAX, INT_MIN + 1};

class Session {
 public:
  explicit Session(Input input) : reader_(input) {
    for (CARD_DATA& record : records_) record = newRecord();
  }

  void run() {
    while (!reader_.isAtEnd()) step(static_cast<char>(reader_.byte()));
    setLog(false);
    test::machine::setResourceManager({});
    CallerMemory::instance().failAfter(std::nullopt);
    for (CARD_DATA& record : records_) require(CardDeleteContext(&record) == 0, "a context that cannot be deleted");
    drainReactions();
    // Nothing that happened stands in the way of the next caller.
    for (const char* const serial : kSerials) softtoken_set_connected(serial, 1);
    CARD_DATA last = newRecord();
    require(CardAcquireContext(&last, 0) == 0, "no context to be had any more");
    require(CardDeleteContext(&last) == 0, "the last context cannot be deleted");
  }

 private:
  std::uint8_t value() {
    const std::uint8_t byte = reader_.byte();
    return byte >= '0' && byte <= '9' ? static_cast<std::uint8_t>(byte - '0') : byte;
  }
  CARD_DATA& record() { return pick(records_); }
  CARD_DATA& pick(CARD_DATA (&list)[4]) { return list[value() % 4]; }

  void check(DWORD status) {
    require(isKnownStatus(status), "an unknown status");
    require(mayFailInside_ || status != static_cast<DWORD>(SCARD_F_INTERNAL_ERROR), "an internal error");
  }

  void step(char operation) {
    switch (operation) {
      case '#':
        reader_.textUntil('\n');
        break;
      case 'A':
        acquire(record());
        break;
      case 'D':
        check(CardDeleteContext(&record()));
        break;
      case 'H': {
        CARD_DATA& target = record();
        target.hScard = SCARDHANDLE{0x2A} * value();
        break;
      }
      case 'U':
        callAllWithNothing();
        break;
      case 'P':
      case 'X':
      case 'N':
      case 'n':
      case 'd':
      case 'e':
        stepPin(operation, record());
        break;
      case 'S':
        sign(record());
        break;
      case 'a': {
        CARD_DATA& target = record();
        callFromTheList(target, fuzz::pick(calls(), value()));
        break;
      }
      case 'R':
        decrypt(record());
        break;
      case 'F':
      case 'E':
      case 'I':
        stepFile(operation, record());
        break;
      case 'G':
      case 'T':
      case 'C':
      case 'c':
      case 'k':
      case 'Q':
        stepProperty(operation, record());
        break;
      default:
        stepWorld(operation);
    }
  }

  void acquire(CARD_DATA& target) {
    check(CardDeleteContext(&target));
    const DWORD status = CardAcquireContext(&target, 0);
    check(status);
    require((status == 0) == (target.pvVendorSpecific != nullptr), "a context without success, or the opposite");
  }

  void callAllWithNothing() {
    check(callWithNothing(&CardAcquireContext));
#define ORVANE_FUZZ_CALL(name) check(callWithNothing(&name));
    ORVANE_FOR_EACH_SLOT(ORVANE_FUZZ_CALL)
#undef ORVANE_FUZZ_CALL
  }

  void callFromTheList(CARD_DATA& target, const test::EntryCall& call) {
    // A record that never was acquired has no functions yet.
    if (target.pfnCardDeleteContext == nullptr) return;
    test::CallOutputs outputs;
    const std::function<DWORD()> prepared = call.prepare(target, outputs);
    outputs.startCall();
    check(prepared());
  }

  std::string pin() { return fuzz::pick(kPins, value()); }

  void stepPin(char operation, CARD_DATA& target) {
    DWORD attempts = 0;
    PBYTE sessionPin = nullptr;
    DWORD sessionPinLength = 0;
    const auto bytes = [](std::string& text) { return reinterpret_cast<PBYTE>(text.data()); };
    const auto size = [](const std::string& text) { return static_cast<DWORD>(text.size()); };
    if (operation == 'd') {
      std::wstring user = fuzz::pick(kUsers, value());
      check(CardDeauthenticate(&target, user.data(), 0));
    } else if (operation == 'e') {
      check(CardDeauthenticateEx(&target, value(), 0));
    } else if (operation == 'P') {
      std::wstring user = kUsers[0];
      std::string text = pin();
      check(CardAuthenticatePin(&target, user.data(), bytes(text), size(text), &attempts));
    } else if (operation == 'X') {
      const PIN_ID role = value();
      const DWORD flags = value();
      std::string text = pin();
      check(CardAuthenticateEx(&target, role, flags, text.empty() ? nullptr : bytes(text), size(text), &sessionPin,
                               &sessionPinLength, &attempts));
      require(sessionPin == nullptr, "a session PIN");
    } else {
      std::wstring user = fuzz::pick(kUsers, value());
      std::string from = pin();
      std::string to = pin();
      if (operation == 'n') {
        check(CardChangeAuthenticator(&target, user.data(), bytes(from), size(from), bytes(to), size(to), 0,
                                      CARD_AUTHENTICATE_PIN_PIN, &attempts));
      } else {
        const PIN_ID role = user == kUsers[1] ? ROLE_ADMIN : ROLE_USER;
        check(CardChangeAuthenticatorEx(&target, PIN_CHANGE_FLAG_CHANGEPIN, role, bytes(from), size(from), role,
                                        bytes(to), size(to), 0, &attempts));
      }
    }
  }

  void sign(CARD_DATA& target) {
    CARD_SIGNING_INFO info{};
    info.dwVersion = CARD_SIGNING_INFO_CURRENT_VERSION;
    info.bContainerIndex = value();
    info.dwSigningFlags = value() % 2 != 0 ? CARD_BUFFER_SIZE_ONLY : 0;
    std::vector<BYTE> hash(value(), 'h');
    hash.reserve(1);
    info.pbData = hash.data();
    info.cbData = static_cast<DWORD>(hash.size());
    const DWORD status = CardSignData(&target, &info);
    check(status);
    // A buffer can be there after a failure, too; its size is stated only on success.
    release(info.pbSignedData, status == 0 ? info.cbSignedData : 0);
  }

  void decrypt(CARD_DATA& target) {
    CARD_RSA_DECRYPT_INFO info{};
    info.dwVersion = CARD_RSA_KEY_DECRYPT_INFO_CURRENT_VERSION;
    info.bContainerIndex = value();
    info.dwKeySpec = value();
    std::vector<BYTE> block(value() * std::size_t{8}, 'c');
    block.reserve(1);
    info.dwPaddingType = value();
    info.pbData = block.data();
    info.cbData = static_cast<DWORD>(block.size());
    check(CardRSADecrypt(&target, &info));
    require(info.cbData <= block.size(), "a plaintext longer than its block");
  }

  void stepFile(char operation, CARD_DATA& target) {
    const std::uint8_t index = value();
    std::string directory = fuzz::pick(kDirectories, static_cast<std::uint8_t>(operation == 'E' ? index : index / 16));
    std::string file = fuzz::pick(kFiles, index);
    if (operation == 'F') {
      PBYTE data = nullptr;
      DWORD size = 0;
      const DWORD status = CardReadFile(&target, directory.data(), file.data(), 0, &data, &size);
      check(status);
      require(status == 0 || (data == nullptr && size == 0), "an output of a failed call");
      release(data, size);
    } else if (operation == 'E') {
      LPSTR names = nullptr;
      DWORD size = 0;
      check(CardEnumFiles(&target, directory.data(), &names, &size, 0));
      release(names, size);
    } else {
      CARD_FILE_INFO info{};
      check(CardGetFileInfo(&target, directory.data(), file.data(), &info));
    }
  }

  void releaseKeys(const CONTAINER_INFO& info) {
    release(info.pbSigPublicKey, info.cbSigPublicKey);
    release(info.pbKeyExPublicKey, info.cbKeyExPublicKey);
  }

  void stepProperty(char operation, CARD_DATA& target) {
    DWORD length = 0;
    if (operation == 'C') {
      CONTAINER_INFO info{};
      info.dwVersion = CONTAINER_INFO_CURRENT_VERSION;
      check(CardGetContainerInfo(&target, value(), 0, &info));
      releaseKeys(info);
    } else if (operation == 'Q') {
      query(target, value());
    } else if (operation == 'G' || operation == 'T') {
      const wchar_t* const name = fuzz::pick(propertyNames(), value());
      std::vector<BYTE> data(value(), 'x');
      const DWORD flags = value();
      const auto size = static_cast<DWORD>(data.size());
      if (operation == 'G') {
        check(CardGetProperty(&target, name, data.data(), size, &length, flags));
      } else {
        // Texts are read to their end, which the caller provides.
        data.resize(data.size() + 4);
        check(CardSetProperty(&target, name, data.data(), size, flags));
      }
    } else {
      const BYTE container = value();
      const wchar_t* const name = fuzz::pick(kContainerNames, value());
      alignas(CONTAINER_INFO) BYTE data[256] = {};
      const DWORD size = value();
      if (operation == 'k') {
        check(CardSetContainerProperty(&target, container, name, data, size, 0));
      } else {
        const DWORD status = CardGetContainerProperty(&target, container, name, data, size, &length, 0);
        check(status);
        if (std::wstring_view(name) == CCP_CONTAINER_INFO && size >= sizeof(CONTAINER_INFO)) {
          CONTAINER_INFO info;
          std::memcpy(&info, data, sizeof(info));
          releaseKeys(info);
        }
      }
    }
  }

  void query(CARD_DATA& target, std::uint8_t which) {
    CARD_CAPABILITIES capabilities{};
    CARD_FREE_SPACE_INFO space{};
    CARD_KEY_SIZES sizes{};
    if (which % 3 == 0) check(CardQueryCapabilities(&target, &capabilities));
    if (which % 3 == 1) check(CardQueryFreeSpace(&target, which / 3, &space));
    if (which % 3 == 2) check(CardQueryKeySizes(&target, which / 3, 0, &sizes));
  }

  void stepWorld(char operation) {
    switch (operation) {
      case 't': {
        const char* const serial = fuzz::pick(kSerials, value());
        softtoken_set_connected(serial, value() % 2);
        break;
      }
      case 'K':
        giveOddKeys(fuzz::pick(kSerials, value()), value());
        break;
      case 'm':
        try {
          DeviceMonitor::pollDevices(known_);
        } catch (const std::exception&) {
          require(false, "the monitor's poll throws");
        }
        break;
      case 'q':
        queueReaction();
        break;
      case 'z': {
        const std::uint8_t count = reader_.byte();
        CallerMemory::instance().failAfter(count == '-' ? std::nullopt : std::optional<unsigned>(count % 8));
        break;
      }
      case 'L':
        setLog(value() % 2 != 0);
        break;
      case 'r': {
        test::ResourceManager manager;
        manager.readerName = fuzz::pick(kReaderNames, value());
        manager.reply = {'A', '1', 0x90, 0x00};
        mayFailInside_ = true;
        test::machine::setResourceManager(manager);
        break;
      }
      default:
        break;
    }
  }

  // Keys with lengths, usages and algorithm codes as no real token has them, and certificates that state too much.
  void giveOddKeys(const char* serial, std::uint8_t count) {
    softtoken_clear_keys(serial);
    for (unsigned i = 0; i < count; ++i) {
      OrvaneKeyPair key = test::makeKey(static_cast<std::uint8_t>(i), static_cast<int>(i % 6) - 1);
      constexpr std::uint32_t kLengths[] = {0, 1, 128, 256, 512, 1024, 1025, 0x80000000, 0xFFFFFFFF};
      key.modulusLength = fuzz::pick(kLengths, static_cast<std::uint8_t>(i));
      key.algorithm = i % 7;
      softtoken_add_key(serial, &key);
      OrvaneCertificate certificate = test::makeCertificate(1, 10);
      constexpr std::uint32_t kSizes[] = {0, 1, 3072, 3073, 0xFFFFFFFF};
      certificate.certLength = fuzz::pick(kSizes, static_cast<std::uint8_t>(i));
      softtoken_set_certificate(serial, key.credentialId, &certificate);
    }
  }

  void queueReaction() {
    const std::string function(fuzz::pick(test::kTokenFunctions, value()));
    SofttokenReaction reaction{};
    reaction.kind = value() % 3;
    reaction.result = fuzz::pick(kResults, value());
    reaction.attempts = fuzz::pick(kNumbers, value());
    reaction.length = fuzz::pick(kNumbers, value());
    std::string output;
    if (function == "orvane_getConnectedDeviceList") output = std::string(kSerials[1]) + "\nsomebody else\n";
    if (function == "orvane_signHash") output = std::string(64, 's');
    // As many bytes as the longest block of this language: a library that states more than it has cannot be found out.
    // A failing one hands nothing over.
    if (function == "orvane_decrypt" && reaction.result == 0 && reaction.attempts != 0) {
      output = std::string(8 * 255, 'p');
    }
    if (function == "orvane_findCertificateForKey") output = std::string(sizeof(OrvaneCertificate), '\xEE');
    if (function == "orvane_getKeyPairList") output = std::string(3 * sizeof(OrvaneKeyPair), '\x7F');
    if (!output.empty()) reaction.output = reinterpret_cast<const unsigned char*>(output.data());
    reaction.outputLength = output.size();
    if (reaction.kind == kSofttokenThrow) mayFailInside_ = true;
    softtoken_queue(function.c_str(), &reaction);
  }

  // Uses up what was prepared and not met.
  void drainReactions() {
    for (const std::string_view function : test::kTokenFunctions) {
      while (softtoken_queued(std::string(function).c_str()) != 0) {
        try {
          test::replayTokenCall(function);
        } catch (const std::exception&) {
          // It was prepared to throw.
        }
      }
    }
    softtoken_clear_calls();
  }

  Reader reader_;
  CARD_DATA records_[4];
  DeviceMonitor::KnownDevices known_;
  bool mayFailInside_ = false;
};

}  // namespace

void fuzzCalls(Input input) {
  startInput(input);
  Session(input).run();
  endInput();
}

}  // namespace orvane::fuzz
