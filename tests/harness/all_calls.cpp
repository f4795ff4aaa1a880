#include "harness/all_calls.h"

#include <iterator>
#include <stdexcept>

#include "harness/all_properties.h"
#include "harness/unsupported_calls.h"

namespace orvane::test {
namespace {

using Call = std::function<DWORD()>;

template <typename Text>
LPSTR narrow(CallOutputs& outputs, const Text& text) {
  const std::string copy(text);
  return reinterpret_cast<LPSTR>(outputs.addInput(copy.c_str(), copy.size() + 1));
}

LPWSTR wide(CallOutputs& outputs, std::wstring_view text) {
  const std::wstring copy(text);
  return reinterpret_cast<LPWSTR>(outputs.addInput(copy.c_str(), (copy.size() + 1) * sizeof(wchar_t)));
}

PBYTE bytesOf(CallOutputs& outputs, std::string_view text) { return outputs.addInput(text.data(), text.size()); }

DWORD sizeOf(std::string_view text) { return static_cast<DWORD>(text.size()); }

template <typename Type>
Type nothing() {
  return Type{};
}

// An entry point that looks at none of its arguments.
template <typename... Types>
EntryCall unsupported(const char* name, DWORD (WINAPI* CARD_DATA::*slot)(Types...)) {
  return {.name = name,
          .prepare = [slot](CARD_DATA& record, CallOutputs&) -> Call {
            return [entryPoint = record.*slot] { return entryPoint(nothing<Types>()...); };
          },
          .status = code(SCARD_E_UNSUPPORTED_FEATURE)};
}

EntryCall readFile(const char* directory, const char* file, unsigned allocations, Before before = Before::kPinUnknown) {
  return {.name = std::string("CardReadFile ") + file + (before == Before::kListForgotten ? " list forgotten" : ""),
          .before = before,
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            PBYTE& data = outputs.addPointer<PBYTE>();
            DWORD& size = outputs.add<DWORD>();
            LPSTR const directoryName = narrow(outputs, directory);
            LPSTR const fileName = narrow(outputs, file);
            return [&record, &data, &size, directoryName, fileName] {
              return record.pfnCardReadFile(&record, directoryName, fileName, 0, &data, &size);
            };
          },
          .allocations = allocations};
}

EntryCall enumFiles(const char* directory) {
  return {.name = std::string("CardEnumFiles \"") + directory + "\"",
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            LPSTR& names = outputs.addPointer<LPSTR>();
            DWORD& size = outputs.add<DWORD>();
            LPSTR const name = narrow(outputs, directory);
            return [&record, &names, &size, name] { return record.pfnCardEnumFiles(&record, name, &names, &size, 0); };
          },
          .allocations = 1};
}

EntryCall getProperty(LPCWSTR name, DWORD flags) {
  const std::wstring_view text(name);
  return {.name = "CardGetProperty " + std::string(text.begin(), text.end()),
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            auto* const data = static_cast<PBYTE>(outputs.addBytes(64));
            DWORD& length = outputs.add<DWORD>();
            return [&record, &length, name, data, flags] {
              return record.pfnCardGetProperty(&record, name, data, 64, &length, flags);
            };
          }};
}

EntryCall setProperty(LPCWSTR name) {
  const std::wstring_view text(name);
  return {.name = "CardSetProperty " + std::string(text.begin(), text.end()),
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            const std::string value(40, 'x');
            PBYTE const data = bytesOf(outputs, value);
            return [&record, name, data, size = sizeOf(value)] {
              return record.pfnCardSetProperty(&record, name, data, size, 0);
            };
          }};
}

template <typename Record>
EntryCall query(const char* name, DWORD (WINAPI* CARD_DATA::*slot)(PCARD_DATA, Record*)) {
  return {.name = name, .prepare = [slot](CARD_DATA& record, CallOutputs& outputs) -> Call {
            Record& result = outputs.add<Record>();
            return [&record, &result, entryPoint = record.*slot] { return entryPoint(&record, &result); };
          }};
}

EntryCall authenticatePin() {
  return {.name = "CardAuthenticatePin", .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            DWORD& attempts = outputs.add<DWORD>();
            LPWSTR const user = wide(outputs, L"user");
            PBYTE const pin = bytesOf(outputs, kUserPin);
            return [&record, &attempts, user, pin] {
              return record.pfnCardAuthenticatePin(&record, user, pin, sizeOf(kUserPin), &attempts);
            };
          }};
}

EntryCall authenticateEx(const char* what, DWORD flags, Before before) {
  return {.name = std::string("CardAuthenticateEx ") + what,
          .before = before,
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            PBYTE& sessionPin = outputs.add<PBYTE>();
            DWORD& sessionPinLength = outputs.add<DWORD>();
            DWORD& attempts = outputs.add<DWORD>();
            PBYTE const pin = bytesOf(outputs, kUserPin);
            return [&record, &sessionPin, &sessionPinLength, &attempts, pin, flags] {
              return record.pfnCardAuthenticateEx(&record, ROLE_USER, flags, pin, sizeOf(kUserPin), &sessionPin,
                                                  &sessionPinLength, &attempts);
            };
          }};
}

EntryCall changeAuthenticator(std::wstring_view role, std::string_view from, std::string_view to, Before before) {
  return {.name = "CardChangeAuthenticator " + std::string(role.begin(), role.end()),
          .before = before,
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            DWORD& attempts = outputs.add<DWORD>();
            LPWSTR const user = wide(outputs, role);
            PBYTE const oldPin = bytesOf(outputs, from);
            PBYTE const newPin = bytesOf(outputs, to);
            return [&record, &attempts, user, oldPin, newPin, oldSize = sizeOf(from), newSize = sizeOf(to)] {
              return record.pfnCardChangeAuthenticator(&record, user, oldPin, oldSize, newPin, newSize, 0,
                                                       CARD_AUTHENTICATE_PIN_PIN, &attempts);
            };
          }};
}

EntryCall changeAuthenticatorEx(PIN_ID role, std::string_view from, std::string_view to, Before before) {
  return {.name = "CardChangeAuthenticatorEx " + std::to_string(role),
          .before = before,
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            DWORD& attempts = outputs.add<DWORD>();
            PBYTE const oldPin = bytesOf(outputs, from);
            PBYTE const newPin = bytesOf(outputs, to);
            return [&record, &attempts, role, oldPin, newPin, oldSize = sizeOf(from), newSize = sizeOf(to)] {
              return record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, role, oldPin, oldSize,
                                                         role, newPin, newSize, 0, &attempts);
            };
          }};
}

EntryCall signData(DWORD flags, const char* what) {
  return {.name = std::string("CardSignData ") + what,
          .before = Before::kPinCached,
          .prepare = [=](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CARD_SIGNING_INFO content{};
            content.dwVersion = 2;
            content.dwSigningFlags = flags;
            content.pbData = bytesOf(outputs, std::string(32, 'h'));
            content.cbData = 32;
            // Never looked at: a null pointer in its place is the call's doing.
            content.pbSignedData = bytesOf(outputs, "earlier");
            CARD_SIGNING_INFO& info = outputs.addRecord(content, &CARD_SIGNING_INFO::pbSignedData);
            return [&record, &info] { return record.pfnCardSignData(&record, &info); };
          },
          .allocations = 1};
}

EntryCall rsaDecrypt() {
  return {.name = "CardRSADecrypt",
          .before = Before::kPinCached,
          .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CARD_RSA_DECRYPT_INFO content{};
            content.dwVersion = 2;
            content.dwKeySpec = AT_KEYEXCHANGE;
            content.pbData = bytesOf(outputs, std::string(256, 'c'));
            content.cbData = 256;
            content.dwPaddingType = CARD_PADDING_PKCS1;
            CARD_RSA_DECRYPT_INFO& info = outputs.addRecord(content);
            return [&record, &info] { return record.pfnCardRSADecrypt(&record, &info); };
          }};
}

EntryCall getContainerInfo() {
  return {.name = "CardGetContainerInfo",
          .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CONTAINER_INFO& info =
                outputs.addRecord(CONTAINER_INFO{1, 0, 0, nullptr, 0, nullptr}, &CONTAINER_INFO::pbSigPublicKey,
                                  &CONTAINER_INFO::pbKeyExPublicKey);
            return [&record, &info] { return record.pfnCardGetContainerInfo(&record, 0, 0, &info); };
          },
          .allocations = 2};
}

EntryCall containerInfoProperty() {
  return {.name = "CardGetContainerProperty Container Info",
          .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CONTAINER_INFO& info =
                outputs.addRecord(CONTAINER_INFO{}, &CONTAINER_INFO::pbSigPublicKey, &CONTAINER_INFO::pbKeyExPublicKey);
            DWORD& length = outputs.add<DWORD>();
            return [&record, &info, &length] {
              return record.pfnCardGetContainerProperty(&record, 0, CCP_CONTAINER_INFO, reinterpret_cast<PBYTE>(&info),
                                                        sizeof(info), &length, 0);
            };
          },
          .allocations = 2};
}

EntryCall pinIdentifierProperty() {
  return {.name = "CardGetContainerProperty PIN Identifier",
          .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            PIN_ID& id = outputs.add<PIN_ID>();
            DWORD& length = outputs.add<DWORD>();
            return [&record, &id, &length] {
              return record.pfnCardGetContainerProperty(&record, 0, CCP_PIN_IDENTIFIER, reinterpret_cast<PBYTE>(&id),
                                                        sizeof(id), &length, 0);
            };
          }};
}

EntryCall setContainerProperty() {
  return {.name = "CardSetContainerProperty", .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            PBYTE const data = bytesOf(outputs, "\x01xyz");
            return [&record, data] {
              return record.pfnCardSetContainerProperty(&record, 0, CCP_PIN_IDENTIFIER, data, 4, 0);
            };
          }};
}

EntryCall getFileInfo() {
  return {.name = "CardGetFileInfo", .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CARD_FILE_INFO& info = outputs.add<CARD_FILE_INFO>();
            LPSTR const directory = narrow(outputs, "mscp");
            LPSTR const file = narrow(outputs, "cmapfile");
            return [&record, &info, directory, file] {
              return record.pfnCardGetFileInfo(&record, directory, file, &info);
            };
          }};
}

EntryCall deauthenticate() {
  return {.name = "CardDeauthenticate",
          .before = Before::kPinCached,
          .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            LPWSTR const user = wide(outputs, L"user");
            return [&record, user] { return record.pfnCardDeauthenticate(&record, user, 0); };
          }};
}

EntryCall deauthenticateEx(PIN_SET pins) {
  return {.name = "CardDeauthenticateEx " + std::to_string(pins),
          .before = Before::kPinCached,
          .prepare = [pins](CARD_DATA& record, CallOutputs&) -> Call {
            return [&record, pins] { return record.pfnCardDeauthenticateEx(&record, pins, 0); };
          }};
}

EntryCall queryFreeSpace() {
  return {.name = "CardQueryFreeSpace", .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CARD_FREE_SPACE_INFO& info = outputs.add<CARD_FREE_SPACE_INFO>();
            return [&record, &info] { return record.pfnCardQueryFreeSpace(&record, 0, &info); };
          }};
}

EntryCall queryKeySizes() {
  return {.name = "CardQueryKeySizes", .prepare = [](CARD_DATA& record, CallOutputs& outputs) -> Call {
            CARD_KEY_SIZES& sizes = outputs.add<CARD_KEY_SIZES>();
            return [&record, &sizes] { return record.pfnCardQueryKeySizes(&record, AT_SIGNATURE, 0, &sizes); };
          }};
}

EntryCall deleteContext() {
  return {.name = "CardDeleteContext",
          .before = Before::kPinCached,
          .prepare = [](CARD_DATA& record, CallOutputs&) -> Call {
            return [&record] { return record.pfnCardDeleteContext(&record); };
          }};
}

}  // namespace

std::vector<EntryCall> allCalls() {
  std::vector<EntryCall> calls = {
      deleteContext(),
      query("CardQueryCapabilities", &CARD_DATA::pfnCardQueryCapabilities),
      queryFreeSpace(),
      queryKeySizes(),
      getContainerInfo(),
      containerInfoProperty(),
      pinIdentifierProperty(),
      setContainerProperty(),
      authenticatePin(),
      authenticateEx("on the token", 0, Before::kPinUnknown),
      authenticateEx("once more", 0, Before::kPinCached),
      authenticateEx("silently", CARD_PIN_SILENT_CONTEXT, Before::kPinCached),
      changeAuthenticator(L"user", kUserPin, kNewPin, Before::kPinCached),
      changeAuthenticator(L"admin", kSoPin, kNewSoPin, Before::kPinUnknown),
      changeAuthenticatorEx(ROLE_USER, kUserPin, kNewPin, Before::kPinBumped),
      changeAuthenticatorEx(ROLE_ADMIN, kSoPin, kNewSoPin, Before::kPinUnknown),
      deauthenticate(),
      deauthenticateEx(ROLE_USER),
      deauthenticateEx(PIN_SET_ALL_ROLES),
      readFile("", "cardid", 1),
      readFile("", "cardcf", 1),
      readFile("mscp", "cmapfile", 1),
      readFile("mscp", "cmapfile", 1, Before::kListForgotten),
      readFile("mscp", "ksc0", 1),
      readFile("mscp", "kxc1", 1),
      readFile("mscp", "msroots", 0),
      enumFiles(""),
      enumFiles("mscp"),
      getFileInfo(),
      signData(0, "signs"),
      signData(CARD_BUFFER_SIZE_ONLY, "size only"),
      rsaDecrypt(),
  };
#define ORVANE_TESTS_UNSUPPORTED(name) calls.push_back(unsupported(#name, &CARD_DATA::pfn##name));
  ORVANE_TESTS_FOR_EACH_UNSUPPORTED(ORVANE_TESTS_UNSUPPORTED)
#undef ORVANE_TESTS_UNSUPPORTED
  for (const CardProperty& property : kCardProperties) calls.push_back(getProperty(property.name, property.flags));
  for (const LPCWSTR name : kSettableCardProperties) calls.push_back(setProperty(name));
  return calls;
}

EntryCall callNamed(std::string_view name) {
  for (const EntryCall& call : allCalls()) {
    if (call.name == name) return call;
  }
  throw std::out_of_range("no such call: " + std::string(name));
}

TestToken tokenForCalls(const std::string& serial) {
  return {.serial = serial, .keys = {makeKey(1, 3), makeKey(2, 3, 4096)}, .certificateLength = 100};
}

void bringAbout(CARD_DATA& record, Before before) {
  const auto expectDone = [](DWORD status) {
    if (status != 0) throw std::runtime_error("the state before a call cannot be brought about");
  };
  PinBytes pin{std::string(kUserPin)};
  if (before == Before::kPinCached || before == Before::kPinBumped) {
    expectDone(record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr, nullptr));
  }
  if (before == Before::kPinBumped) {
    expectDone(record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, ROLE_USER, pin.data(),
                                                   pin.size(), ROLE_USER, pin.data(), pin.size(), 0, nullptr));
  }
  if (before == Before::kListForgotten) {
    // The serial that the caller sets has no list yet.
    defineToken({.serial = kOtherSerial, .keys = {makeKey(1, 3)}});
    Bytes serial = wideBytes(std::wstring(std::begin(kOtherSerial), std::end(kOtherSerial) - 1));
    expectDone(
        record.pfnCardSetProperty(&record, CP_CARD_SERIAL_NO, serial.data(), static_cast<DWORD>(serial.size()), 0));
  }
}

}  // namespace orvane::test
