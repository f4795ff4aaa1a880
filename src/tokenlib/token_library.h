// The maker's token library, OrvaneDSCLibrary.dll: the records and the thirteen functions that it exports.
//
// The functions have C++ linkage, the maker's decorated names and the maker's binary interface: 32-byte strings,
// 24-byte vectors, class results through a hidden pointer, by-value strings destroyed by the callee, and exceptions.
// Only maker_boundary.cpp calls them, because it is the only file compiled for that interface; everybody else uses the
// wrappers in token_client.h and takes nothing but the records from here.
//
// The library addresses a token by its serial, a zero-terminated text. The trailing void* of the functions is null.
#ifndef ORVANE_TOKENLIB_TOKEN_LIBRARY_H
#define ORVANE_TOKENLIB_TOKEN_LIBRARY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Set to __declspec(dllexport) by a library that implements the functions; callers need nothing.
#ifndef ORVANE_TOKENLIB_API
#define ORVANE_TOKENLIB_API
#endif

// One RSA key pair of a token, as the library lays it out. Integers are little-endian. Plain data, copied freely.
struct OrvaneKeyPair {
  std::uint8_t unread0[4];
  std::uint8_t credentialId[16];  // names the key in every later call
  std::uint8_t modulus[1024];     // most significant byte first, modulusLength of them valid
  std::uint32_t modulusLength;    // in bytes
  std::uint8_t unreadAttributes[264];
  std::int32_t keyUsage;    // 1 signature, 2 key exchange, 3 both
  std::uint32_t algorithm;  // 1, 2, 3, 4 for RSA with 1024, 2048, 3072, 4096 bits
  std::uint8_t unread1320[4];
};

static_assert(sizeof(OrvaneKeyPair) == 1324);
static_assert(offsetof(OrvaneKeyPair, credentialId) == 4);
static_assert(offsetof(OrvaneKeyPair, modulus) == 20);
static_assert(offsetof(OrvaneKeyPair, modulusLength) == 1044);
static_assert(offsetof(OrvaneKeyPair, unreadAttributes) == 1048);
static_assert(offsetof(OrvaneKeyPair, keyUsage) == 1312);
static_assert(offsetof(OrvaneKeyPair, algorithm) == 1316);

// The certificate of one key. Records of this type belong to the library; callers neither change nor free them.
struct OrvaneCertificate {
  std::uint8_t unread0[20];
  std::uint8_t certData[3072];  // DER, certLength bytes of it valid
  std::uint32_t certLength;     // in bytes; 0 for an empty certificate
};

static_assert(offsetof(OrvaneCertificate, certData) == 20);
static_assert(offsetof(OrvaneCertificate, certLength) == 3092);
static_assert(sizeof(OrvaneCertificate) == 3096);

// What the library tells about one token. Its size depends on the string of the compiling runtime: the maker's is 32
// bytes.
struct TokenInfo {
  std::string unreadTexts[5];
  std::string firmwareVersion;  // dotted, for example "2.0.0"
  std::string unreadText6;
  std::uint8_t unreadNumbers0[16];
  std::uint32_t passwordValidated;  // non-zero: the token holds the user PIN as validated
  std::uint8_t unreadNumbers20[20];
  std::string unreadTexts7[2];
  std::uint64_t unreadNumber;
};

// With another runtime's string (libc++'s has 24 bytes) the record is only our own copy and its offsets mean nothing.
static_assert(sizeof(std::string) != 32 || sizeof(TokenInfo) == 336);
static_assert(sizeof(std::string) != 32 || offsetof(TokenInfo, firmwareVersion) == 160);
static_assert(sizeof(std::string) != 32 || offsetof(TokenInfo, unreadText6) == 192);
static_assert(sizeof(std::string) != 32 || offsetof(TokenInfo, passwordValidated) == 240);
static_assert(sizeof(std::string) != 32 || offsetof(TokenInfo, unreadTexts7) == 264);
static_assert(sizeof(std::string) != 32 || offsetof(TokenInfo, unreadNumber) == 328);

// Prepares the library for the process; may be called again. The first and last argument are always 0 and 2, cardHandle
// is the card handle of the caller's record.
ORVANE_TOKENLIB_API int orvane_init(int reserved, void* cardHandle, int mode);

// The serials of the connected tokens; empty when there is none. Called with (false, nullptr).
ORVANE_TOKENLIB_API std::vector<std::string> orvane_getConnectedDeviceList(bool reserved, void* libraryContext);

// Opens the token; reopen asks for it although it was opened before. 0 = success.
ORVANE_TOKENLIB_API int orvane_initDevice(const char* serial, bool reopen, void* libraryContext);

// A copy of what the library knows about the token. There is no failure result.
ORVANE_TOKENLIB_API TokenInfo orvane_getTokenInfo(const char* serial, void* libraryContext);

// Checks the PIN of a role (always 1, the user). 0 = accepted; otherwise an error code, and *attemptsRemaining may have
// been changed to the tries that are left.
ORVANE_TOKENLIB_API int orvane_validatePassword(const char* serial, const char* pin, int role, int* attemptsRemaining,
                                                void* libraryContext);

// The token's key pairs. The vector belongs to the library, which may change it at its next call: copy it at once.
ORVANE_TOKENLIB_API std::vector<OrvaneKeyPair>& orvane_getKeyPairList(const char* serial, void* libraryContext);

// Replaces the user PIN. true = changed; otherwise *attemptsRemaining may have been changed to the tries that are left.
ORVANE_TOKENLIB_API bool orvane_changeUserPassword(const char* serial, const char* oldPin, const char* newPin,
                                                   int* attemptsRemaining, bool reserved0, bool reserved1,
                                                   void* libraryContext);

// Replaces the security officer's PIN. true = changed.
ORVANE_TOKENLIB_API bool orvane_changeSOPassword(const char* serial, std::string oldSoPin, std::string newSoPin,
                                                 void* libraryContext);

// Signs a hash with the key named by 16 bytes. The signature is big-endian; the buffer must hold the key's modulus.
// 0 = success; 51 = this hash is refused by a FIPS 140-3 token; others = error codes.
ORVANE_TOKENLIB_API int orvane_signHash(const char* serial, const unsigned char* credentialId, const char* pin,
                                        const unsigned char* hash, int hashLength, unsigned char* signature,
                                        int* signatureLength, bool reserved0, void* libraryContext, bool reserved1);

// Decrypts a big-endian cipher text with the key named by 16 bytes and removes the padding. 0 = success: *output is
// then a block from malloc that the caller frees.
ORVANE_TOKENLIB_API int orvane_decrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                                       const unsigned char* input, int inputLength, unsigned char** output,
                                       int* outputLength, bool reserved, void* libraryContext);

// The certificate of the key named by 16 bytes, or null when it has none. The record belongs to the library.
ORVANE_TOKENLIB_API const OrvaneCertificate* orvane_findCertificateForKey(const char* serial,
                                                                          const unsigned char* credentialId,
                                                                          void* libraryContext);

// The library holds one current card handle for the process: set before a call that talks to the card, cleared after
// it.
ORVANE_TOKENLIB_API void orvane_setExternalSmartcardHandle(void* cardHandle);
ORVANE_TOKENLIB_API void orvane_clearExternalSmartcardHandle();

#endif  // ORVANE_TOKENLIB_TOKEN_LIBRARY_H
