// The thirteen calls as C functions with plain data: what maker_exports.cpp (compiled for the maker's binary interface)
// and the rest of the software token (compiled like everything else) share. Each returns false when the exported
// function is to throw; outputs are then unchanged. Nothing is thrown from here. Arguments, sizes and owners are those
// of the exported functions (see token_library.h). Any thread may call.
#ifndef ORVANE_SOFTTOKEN_TOKEN_CALLS_H
#define ORVANE_SOFTTOKEN_TOKEN_CALLS_H

#include <cstddef>
#include <cstdint>

#include "tokenlib/token_library.h"

extern "C" {

// Called once for each serial, or key pair; must not throw.
using SofttokenTextReceiver = void (*)(void* receiver, const char* text, std::size_t length);
using SofttokenKeyPairReceiver = void (*)(void* receiver, const OrvaneKeyPair* keyPair);

// The texts of a TokenInfo, cut to what fits, and its one number that is read.
struct SofttokenInfo {
  char serial[64];
  char firmwareVersion[64];
  std::uint32_t passwordValidated;
};

bool softtokenInit(int reserved, void* cardHandle, int mode, int* result) noexcept;
bool softtokenGetConnectedDeviceList(bool reserved, void* libraryContext, SofttokenTextReceiver receive,
                                     void* receiver) noexcept;
bool softtokenInitDevice(const char* serial, bool reopen, void* libraryContext, int* result) noexcept;
bool softtokenGetTokenInfo(const char* serial, void* libraryContext, SofttokenInfo* info) noexcept;
bool softtokenValidatePassword(const char* serial, const char* pin, int role, int* attemptsRemaining,
                               void* libraryContext, int* result) noexcept;
bool softtokenGetKeyPairList(const char* serial, void* libraryContext, SofttokenKeyPairReceiver receive,
                             void* receiver) noexcept;
bool softtokenChangeUserPassword(const char* serial, const char* oldPin, const char* newPin, int* attemptsRemaining,
                                 bool reserved0, bool reserved1, void* libraryContext, bool* result) noexcept;
// The PINs as their bytes and their number: a NUL in them does not end them.
bool softtokenChangeSoPassword(const char* serial, const char* oldSoPin, std::size_t oldLength, const char* newSoPin,
                               std::size_t newLength, void* libraryContext, bool* result) noexcept;
bool softtokenSignHash(const char* serial, const unsigned char* credentialId, const char* pin,
                       const unsigned char* hash, int hashLength, unsigned char* signature, int* signatureLength,
                       bool reserved0, void* libraryContext, bool reserved1, int* result) noexcept;
bool softtokenDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                      const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                      bool reserved, void* libraryContext, int* result) noexcept;
bool softtokenFindCertificateForKey(const char* serial, const unsigned char* credentialId, void* libraryContext,
                                    const OrvaneCertificate** result) noexcept;
bool softtokenSetExternalSmartcardHandle(void* cardHandle) noexcept;
bool softtokenClearExternalSmartcardHandle() noexcept;

// What a call that returned false is to throw: a SofttokenReactionKind, and its text.
struct SofttokenThrown {
  int kind;
  char text[512];
};

// Tells what the calling thread's last such call is to throw.
void softtokenThrown(SofttokenThrown* thrown) noexcept;

// The block that softtokenDecrypt handed out last, by any thread; null before.
const void* softtokenLastPlaintext() noexcept;

// Takes a list that a call has returned by reference; it is destroyed when the same thread hands over its next one.
void softtokenKeepKeyList(void* list, void (*destroy)(void* list)) noexcept;

}  // extern "C"

#endif  // ORVANE_SOFTTOKEN_TOKEN_CALLS_H
