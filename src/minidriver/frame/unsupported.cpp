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

DWORD unsupportedEntry(const char* name) noexcept {
  return cardEntry(name, [] { return statusCode(SCARD_E_UNSUPPORTED_FEATURE); });
}

}  // namespace

DWORD WINAPI CardAuthenticateChallenge(PCARD_DATA, PBYTE, DWORD, PDWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI CardConstructDHAgreement(PCARD_DATA, PCARD_DH_AGREEMENT_INFO) { return unsupportedEntry(__func__); }

DWORD WINAPI CardCreateContainer(PCARD_DATA, BYTE, DWORD, DWORD, DWORD, PBYTE) { return unsupportedEntry(__func__); }

DWORD WINAPI CardCreateContainerEx(PCARD_DATA, BYTE, DWORD, DWORD, DWORD, PBYTE, PIN_ID) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardCreateDirectory(PCARD_DATA, LPSTR, CARD_DIRECTORY_ACCESS_CONDITION) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardCreateFile(PCARD_DATA, LPSTR, LPSTR, DWORD, CARD_FILE_ACCESS_CONDITION) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardDeleteContainer(PCARD_DATA, BYTE, DWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI CardDeleteDirectory(PCARD_DATA, LPSTR) { return unsupportedEntry(__func__); }

DWORD WINAPI CardDeleteFile(PCARD_DATA, LPSTR, LPSTR, DWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI CardDeriveKey(PCARD_DATA, PCARD_DERIVE_KEY) { return unsupportedEntry(__func__); }

DWORD WINAPI CardDestroyDHAgreement(PCARD_DATA, BYTE, DWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI CardDestroyKey(PCARD_DATA, CARD_KEY_HANDLE) { return unsupportedEntry(__func__); }

DWORD WINAPI CardGetAlgorithmProperty(PCARD_DATA, LPCWSTR, LPCWSTR, PBYTE, DWORD, PDWORD, DWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardGetChallenge(PCARD_DATA, PBYTE*, PDWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI CardGetChallengeEx(PCARD_DATA, PIN_ID, PBYTE*, PDWORD, DWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI CardGetKeyProperty(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, PDWORD, DWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardGetSharedKeyHandle(PCARD_DATA, PBYTE, DWORD, PBYTE*, PDWORD, PCARD_KEY_HANDLE) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardImportSessionKey(PCARD_DATA, BYTE, LPVOID, LPCWSTR, LPCWSTR, PCARD_KEY_HANDLE, PBYTE, DWORD, DWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardProcessEncryptedData(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PCARD_ENCRYPTED_DATA, DWORD, PBYTE, DWORD,
                                      PDWORD, DWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardSetKeyProperty(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardUnblockPin(PCARD_DATA, LPWSTR, PBYTE, DWORD, PBYTE, DWORD, DWORD, DWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI CardWriteFile(PCARD_DATA, LPSTR, LPSTR, DWORD, PBYTE, DWORD) { return unsupportedEntry(__func__); }

DWORD WINAPI MDEncryptData(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD, PCARD_ENCRYPTED_DATA*, PDWORD) {
  return unsupportedEntry(__func__);
}

DWORD WINAPI MDImportSessionKey(PCARD_DATA, LPCWSTR, LPCWSTR, PCARD_KEY_HANDLE, PBYTE, DWORD) {
  return unsupportedEntry(__func__);
}
