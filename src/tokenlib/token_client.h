// The token library as the rest of the system calls it: one function for each of the library's thirteen, with the
// arguments that never vary already filled in, and with this compiler's own strings and vectors.
//
// Common to all of them:
// - an exception thrown inside the library becomes TokenLibraryError or TokenLibraryOutOfMemory, with the library's own
//   text; a lack of memory on our side is std::bad_alloc; outputs are then unchanged;
// - no lock is taken here: who must hold the library lock around a call holds it himself;
// - serials are narrow texts; PINs are zero-terminated and belong to the caller, who wipes them;
// - numbers (hashes, signatures, cipher texts, moduli) are big-endian, credential ids are 16 bytes.
#ifndef ORVANE_TOKENLIB_TOKEN_CLIENT_H
#define ORVANE_TOKENLIB_TOKEN_CLIENT_H

#include <cstdint>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "tokenlib/token_library.h"

namespace orvane::tokenlib {

// The text of an exception, put together from two, cut to 111 bytes. It is part of the exception, and so small that two
// exceptions find room in the few hundred bytes that the C++ runtime keeps for raising them when there is no memory:
// one of these, and the std::bad_alloc of a log line about it.
class LibraryText {
 public:
  explicit LibraryText(std::string_view first, std::string_view second = {}) noexcept;
  const char* c_str() const noexcept { return text_; }

 private:
  char text_[112];
};

// The token library threw an exception. what() is its text if it was a standard one, else a text of ours that names the
// library's function.
class TokenLibraryError : public std::exception {
 public:
  explicit TokenLibraryError(std::string_view first, std::string_view second = {}) noexcept : text_(first, second) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  LibraryText text_;
};

// The token library threw std::bad_alloc or a type derived from it; what() is its text.
class TokenLibraryOutOfMemory : public std::bad_alloc {
 public:
  explicit TokenLibraryOutOfMemory(std::string_view text) noexcept : text_(text) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  LibraryText text_;
};

// A card handle as the smart-card interface gives it; 0 is none. (An integer here, so that this header needs no other.)
using CardHandle = std::uintptr_t;

// Prepares the library for this process; allowed any number of times. The result has no meaning to callers.
int init(CardHandle cardHandle);

// The serials of the connected tokens in the library's order, duplicates included; empty when there is none.
std::vector<std::string> connectedDeviceList();

// Opens the token. 0 = success, other values are the library's error codes.
int initDevice(const std::string& serial, bool reopen);

// What the library knows about the token; it has no failure result.
TokenInfo getTokenInfo(const std::string& serial);

// Checks the user PIN. 0 = right; other values are error codes. The library may change attemptsRemaining (in and out).
int validatePassword(const std::string& serial, const char* pin, int& attemptsRemaining);

// A copy of the token's key pairs, made at once from the library's own list. No keys is a valid result.
std::vector<OrvaneKeyPair> keyPairList(const std::string& serial, void* libraryContext);

// Replaces the user PIN. true = changed. The library may change attemptsRemaining (in and out).
bool changeUserPassword(const std::string& serial, const char* oldPin, const char* newPin, int& attemptsRemaining);

// Replaces the security officer's PIN. true = changed. All bytes of the PINs reach the library, a NUL, too. Copies that
// the call needs are overwritten, except for those that the library itself destroys.
bool changeSOPassword(const std::string& serial, std::string_view oldSoPin, std::string_view newSoPin);

// Signs a hash of hashLength bytes. The buffer must hold as many bytes as the key's modulus; signatureLength (in and
// out) receives the number written. 0 = success, 51 = refused by a FIPS 140-3 token, others are error codes.
int signHash(const std::string& serial, const unsigned char* credentialId, const char* pin, const unsigned char* hash,
             int hashLength, unsigned char* signature, int& signatureLength);

// Decrypts inputLength bytes (input may be null when it is 0). 0 = success: output is then a block that the caller
// releases with std::free, outputLength its length in bytes. Both are passed on as they are when the call fails.
int decrypt(const std::string& serial, const unsigned char* credentialId, const char* pin, const unsigned char* input,
            int inputLength, unsigned char*& output, int& outputLength);

// The certificate of a key, or null when it has none. The record belongs to the library and is never freed by the
// caller.
const OrvaneCertificate* findCertificateForKey(const std::string& serial, const unsigned char* credentialId,
                                               void* libraryContext);

// Hands the card handle to the library, for the whole process, until it is cleared.
void setExternalSmartcardHandle(CardHandle cardHandle);

// Takes the card handle away from the library again; allowed when none was set.
void clearExternalSmartcardHandle();

}  // namespace orvane::tokenlib

#endif  // ORVANE_TOKENLIB_TOKEN_CLIENT_H
