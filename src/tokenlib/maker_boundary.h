// The calls into the maker's library, brought down to C functions and plain data: what maker_boundary.cpp (compiled for
// the maker's binary interface) and token_client.cpp (compiled like everything else) share.
//
// Every function returns true when the library's function returned, and false when it threw an exception, which
// `failure` then describes; outputs are unchanged in that case. Nothing is thrown from here. Receivers are called
// before the library's result is destroyed, at most once a call unless they say otherwise; what they are shown is valid
// only meanwhile, and they must not throw.
//
// Each function makes the call of the library that it is named after. Arguments, units and owners are those of the
// wrapper in token_client.h; `result` receives what the library returned. No lock is taken.
#ifndef ORVANE_TOKENLIB_MAKER_BOUNDARY_H
#define ORVANE_TOKENLIB_MAKER_BOUNDARY_H

#include <cstddef>
#include <cstdint>

#include "tokenlib/token_library.h"

extern "C" {

// What kind of exception the library threw.
enum OrvaneBoundaryExceptionKind : int {
  kOrvaneBoundaryOutOfMemory,  // std::bad_alloc or a type derived from it
  kOrvaneBoundaryStandard,     // std::exception or another type derived from it
  kOrvaneBoundaryForeign       // any other type: there is no text
};

// An exception as it came out of the library. It stands in the caller's frame: taking it down needs no memory.
struct OrvaneBoundaryFailure {
  OrvaneBoundaryExceptionKind kind;
  // What its what() said, zero-terminated and cut to what fits; empty for null. Control characters are blanks, so that
  // the text stays one line.
  char text[112];
};

// A text that need not be terminated: length bytes at data.
struct OrvaneBoundaryText {
  const char* data;
  std::size_t length;
};

// The library's TokenInfo without its strings.
struct OrvaneBoundaryTokenInfo {
  OrvaneBoundaryText unreadTexts[5];
  OrvaneBoundaryText firmwareVersion;
  OrvaneBoundaryText unreadText6;
  std::uint8_t unreadNumbers0[16];
  std::uint32_t passwordValidated;
  std::uint8_t unreadNumbers20[20];
  OrvaneBoundaryText unreadTexts7[2];
  std::uint64_t unreadNumber;
};

using OrvaneSerialReceiver = void (*)(void* receiver, const char* serial, std::size_t length);  // once for each serial
using OrvaneTokenInfoReceiver = void (*)(void* receiver, const OrvaneBoundaryTokenInfo* info);
using OrvaneKeyPairReceiver = void (*)(void* receiver, const OrvaneKeyPair* keyPairs, std::size_t count);

bool orvaneBoundaryInit(void* cardHandle, int* result, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryGetConnectedDeviceList(OrvaneSerialReceiver receive, void* receiver,
                                          OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryInitDevice(const char* serial, bool reopen, int* result, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryGetTokenInfo(const char* serial, OrvaneTokenInfoReceiver receive, void* receiver,
                                OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryValidatePassword(const char* serial, const char* pin, int* attemptsRemaining, int* result,
                                    OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryGetKeyPairList(const char* serial, void* libraryContext, OrvaneKeyPairReceiver receive,
                                  void* receiver, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryChangeUserPassword(const char* serial, const char* oldPin, const char* newPin,
                                      int* attemptsRemaining, bool* result, OrvaneBoundaryFailure* failure) noexcept;
// The library takes these PINs with their length: a NUL does not end them.
bool orvaneBoundaryChangeSoPassword(const char* serial, const OrvaneBoundaryText* oldSoPin,
                                    const OrvaneBoundaryText* newSoPin, bool* result,
                                    OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundarySignHash(const char* serial, const unsigned char* credentialId, const char* pin,
                            const unsigned char* hash, int hashLength, unsigned char* signature, int* signatureLength,
                            int* result, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                           const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                           int* result, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryFindCertificateForKey(const char* serial, const unsigned char* credentialId, void* libraryContext,
                                         const OrvaneCertificate** result, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundarySetExternalSmartcardHandle(void* cardHandle, OrvaneBoundaryFailure* failure) noexcept;
bool orvaneBoundaryClearExternalSmartcardHandle(OrvaneBoundaryFailure* failure) noexcept;

}  // extern "C"

#endif  // ORVANE_TOKENLIB_MAKER_BOUNDARY_H
