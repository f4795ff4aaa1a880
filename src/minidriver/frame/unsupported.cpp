// The entry points of things that this card does not offer: writing files, making or importing keys, session keys,
// Diffie-Hellman, challenge and response, unblocking a PIN.
//
// They fill their slots all the same, so that the provider always gets a definite answer. None looks at its arguments:
// a null record gets the same answer as a valid one, and no output is written.
#include "minidriver/frame/entry.h"
#include "platform/card_module.h"

using orvane::cardEntry;
using orvane::statusCode;

namespace {

DWORD unsupportedEntry(std::string_view entryLine) noexcept {
  return cardEntry(entryLine, [] { return statusCode(SCARD_E_UNSUPPORTED_FEATURE); });
}

}  // namespace

DWORD WINAPI CardAuthenticateChallenge(PCARD_DATA, PBYTE, DWORD, PDWORD) {
  return unsupportedEntry("CardAuthenticateChallenge :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardConstructDHAgreement(PCARD_DATA, PCARD_DH_AGREEMENT_INFO) {
  return unsupportedEntry("CardConstructDHAgreement :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardCreateContainer(PCARD_DATA, BYTE, DWORD, DWORD, DWORD, PBYTE) {
  return unsupportedEntry("CardCreateContainer :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardCreateContainerEx(PCARD_DATA, BYTE, DWORD, DWORD, DWORD, PBYTE, PIN_ID) {
  return unsupportedEntry("CardCreateContainerEx :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardCreateDirectory(PCARD_DATA, LPSTR, CARD_DIRECTORY_ACCESS_CONDITION) {
  return unsupportedEntry("CardCreateDirectory :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardCreateFile(PCARD_DATA, LPSTR, LPSTR, DWORD, CARD_FILE_ACCESS_CONDITION) {
  return unsupportedEntry("CardCreateFile :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardDeleteContainer(PCARD_DATA, BYTE, DWORD) {
  return unsupportedEntry("CardDeleteContainer :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardDeleteDirectory(PCARD_DATA, LPSTR) {
  return unsupportedEntry("CardDeleteDirectory :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardDeleteFile(PCARD_DATA, LPSTR, LPSTR, DWORD) {
  return unsupportedEntry("CardDeleteFile :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardDeriveKey(PCARD_DATA, PCARD_DERIVE_KEY) {
  return unsupportedEntry("CardDeriveKey :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardDestroyDHAgreement(PCARD_DATA, BYTE, DWORD) {
  return unsupportedEntry("CardDestroyDHAgreement :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardDestroyKey(PCARD_DATA, CARD_KEY_HANDLE) {
  return unsupportedEntry("CardDestroyKey :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardGetAlgorithmProperty(PCARD_DATA, LPCWSTR, LPCWSTR, PBYTE, DWORD, PDWORD, DWORD) {
  return unsupportedEntry("CardGetAlgorithmProperty :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardGetChallenge(PCARD_DATA, PBYTE*, PDWORD) {
  return unsupportedEntry("CardGetChallenge :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardGetChallengeEx(PCARD_DATA, PIN_ID, PBYTE*, PDWORD, DWORD) {
  return unsupportedEntry("CardGetChallengeEx :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardGetKeyProperty(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, PDWORD, DWORD) {
  return unsupportedEntry("CardGetKeyProperty :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardGetSharedKeyHandle(PCARD_DATA, PBYTE, DWORD, PBYTE*, PDWORD, PCARD_KEY_HANDLE) {
  return unsupportedEntry("CardGetSharedKeyHandle :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardImportSessionKey(PCARD_DATA, BYTE, LPVOID, LPCWSTR, LPCWSTR, PCARD_KEY_HANDLE, PBYTE, DWORD, DWORD) {
  return unsupportedEntry("CardImportSessionKey :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardProcessEncryptedData(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PCARD_ENCRYPTED_DATA, DWORD, PBYTE, DWORD,
                                      PDWORD, DWORD) {
  return unsupportedEntry("CardProcessEncryptedData :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardSetKeyProperty(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD) {
  return unsupportedEntry("CardSetKeyProperty :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardUnblockPin(PCARD_DATA, LPWSTR, PBYTE, DWORD, PBYTE, DWORD, DWORD, DWORD) {
  return unsupportedEntry("CardUnblockPin :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI CardWriteFile(PCARD_DATA, LPSTR, LPSTR, DWORD, PBYTE, DWORD) {
  return unsupportedEntry("CardWriteFile :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI MDEncryptData(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD, PCARD_ENCRYPTED_DATA*, PDWORD) {
  return unsupportedEntry("MDEncryptData :: LOG_FUNCTION_NAME = Entry");
}

DWORD WINAPI MDImportSessionKey(PCARD_DATA, LPCWSTR, LPCWSTR, PCARD_KEY_HANDLE, PBYTE, DWORD) {
  return unsupportedEntry("MDImportSessionKey :: LOG_FUNCTION_NAME = Entry");
}
