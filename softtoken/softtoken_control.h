// The control interface of the software token, for tests: tokens without a folder, prepared answers, the record of
// calls, and gates that stop a thread inside a call. Exported from OrvaneDSCLibrary.dll under these plain names, and
// linked statically on the host. Any thread may call any of these functions; they are never recorded and never held
// themselves.
//
// Functions of the token library are named by their plain names, for example "orvane_signHash". Texts are
// zero-terminated, byte blocks are copied. Unless said otherwise a function returns 1 when it did its work and 0 when
// an argument names nothing (an unknown serial or function); then nothing is changed.
#ifndef ORVANE_SOFTTOKEN_SOFTTOKEN_CONTROL_H
#define ORVANE_SOFTTOKEN_SOFTTOKEN_CONTROL_H

#include <cstddef>
#include <cstdint>

#include "tokenlib/token_library.h"

#if defined(_WIN32) && defined(SOFTTOKEN_BUILD)
#define SOFTTOKEN_API __declspec(dllexport)
#elif defined(_WIN32)
#define SOFTTOKEN_API __declspec(dllimport)
#else
#define SOFTTOKEN_API
#endif

extern "C" {

// Error codes of the software token. 51 is the library's own code, the others are arbitrary but fixed.
enum SofttokenError : int {
  kSofttokenOk = 0,
  kSofttokenBadData = 33,      // hash of an unknown length, cipher text that does not decrypt, missing buffer, a key
                               // that states a longer modulus than its record holds
  kSofttokenFipsRefused = 51,  // SHA-1 or MD5 on a token with the FIPS 140-3 switch
  kSofttokenNoKey = 130,       // no such credential id on the token
  kSofttokenWrongPin = 160,    // one try was used up
  kSofttokenPinBlocked = 164,  // no tries left; the PIN was not looked at
  kSofttokenNoToken = 224,     // no such serial connected
  kSofttokenPinMissing = 257   // null or empty PIN where one is needed; no try was used up
};

// Leaves a value as the caller of the library passed it: the smallest int.
constexpr int kSofttokenKeep = -2147483647 - 1;

// ---- everything ----

// Back to the state after loading: no defined tokens, no prepared reactions, no recorded calls, no card handle set, all
// gates open (held calls go on), token folder from the environment variable ORVANE_SOFTTOKEN_DIR.
SOFTTOKEN_API void softtoken_reset(void);

// The folder with one subfolder for each token, instead of the one in the environment variable; null or "" for none.
SOFTTOKEN_API void softtoken_set_folder(const char* folder);

// ---- tokens in memory ----

// Keys of tokens in memory hold no secrets. Their arithmetic is meant to be read in a test:
// - a signature has modulusLength bytes: 01 02 03 ... FF 00 01 ..., whatever the hash (the record of calls has that);
// - a plain text is the first 48 bytes of the cipher text, or all of it when it is shorter.
// PINs, retry counters, hash lengths and the FIPS switch work as they do on tokens with real keys.
struct SofttokenTokenDefinition {
  const char* serial;
  const char* firmwareVersion;
  const char* userPin;
  const char* soPin;
  int userTries;  // tries until the user PIN blocks; a right PIN restores them
  int soTries;
  int fips;               // 1: MD5 and SHA-1 are refused with 51
  int initResult;         // what orvane_initDevice returns
  int passwordValidated;  // the value in TokenInfo; kSofttokenKeep: 1 from a right PIN to a wrong one, else 0
};

// Defines the token, or replaces the one with this serial, without keys, and connects it.
SOFTTOKEN_API int softtoken_define_token(const SofttokenTokenDefinition* definition);

// Appends a key pair, exactly as given, to the token's list. The record is copied.
SOFTTOKEN_API int softtoken_add_key(const char* serial, const OrvaneKeyPair* keyPair);

// Takes all key pairs away from the token.
SOFTTOKEN_API int softtoken_clear_keys(const char* serial);

// Sets the certificate record, exactly as given, of the key with these 16 bytes (which need not exist). Null takes the
// record away.
SOFTTOKEN_API int softtoken_set_certificate(const char* serial, const unsigned char* credentialId,
                                            const OrvaneCertificate* certificate);

// Connects (1) or disconnects (0) a defined token. A disconnected one keeps its keys, PINs and counters, but forgets
// that a PIN was validated.
SOFTTOKEN_API int softtoken_set_connected(const char* serial, int connected);

// Changes single values of a defined token; see SofttokenTokenDefinition.
SOFTTOKEN_API int softtoken_set_firmware(const char* serial, const char* firmwareVersion);
SOFTTOKEN_API int softtoken_set_init_result(const char* serial, int initResult);
SOFTTOKEN_API int softtoken_set_password_validated(const char* serial, int passwordValidated);
SOFTTOKEN_API int softtoken_set_tries_left(const char* serial, int userTriesLeft, int soTriesLeft);

// ---- prepared reactions ----

// What a prepared call does.
enum SofttokenReactionKind : int {
  kSofttokenPass = 0,    // this call goes through as if nothing were prepared
  kSofttokenAnswer = 1,  // this call does nothing but return what is given here
  // This call throws a C++ exception:
  kSofttokenThrow = 2,                   // of a type that only the library knows
  kSofttokenThrowRuntimeError = 3,       // std::runtime_error with the output as its text, which has at most 511 bytes
  kSofttokenThrowBadAlloc = 4,           // std::bad_alloc
  kSofttokenThrowBadArrayNewLength = 5,  // std::bad_array_new_length, which is a std::bad_alloc
  kSofttokenThrowNullText = 6            // a type derived from std::exception whose what() is null
};

// What an answer hands out as output:
// - orvane_signHash: the bytes written to the signature buffer, which must hold them;
// - orvane_decrypt: the block, or a null block for null;
// - orvane_getConnectedDeviceList: serials, each ended by '\n';
// - orvane_getTokenInfo: the firmware version;
// - orvane_getKeyPairList: OrvaneKeyPair records, one after the other;
// - orvane_findCertificateForKey: the OrvaneCertificate record; missing bytes are 0.
// The other functions have no output.
struct SofttokenReaction {
  int kind;          // a SofttokenReactionKind
  unsigned delayMs;  // first wait for so long, with every kind
  // Answer: the return value. For bool 0 or 1; for orvane_getTokenInfo the value of passwordValidated; for
  // orvane_findCertificateForKey 0 is null.
  long long result;
  int attempts;  // answer: stored in *attemptsRemaining; kSofttokenKeep leaves it
  int length;    // answer: stored in *signatureLength or *outputLength; kSofttokenKeep leaves it
  const unsigned char* output;
  std::size_t outputLength;  // in bytes
};

// Prepares a reaction for one later call of the function. Reactions of a function are used up in the order in which
// they were queued, by whatever thread comes first (a call held at a gate takes its reaction when it is let through).
SOFTTOKEN_API int softtoken_queue(const char* function, const SofttokenReaction* reaction);

// The number of reactions of the function that are not used up yet; 0 also for an unknown function.
SOFTTOKEN_API std::size_t softtoken_queued(const char* function);

// The block that orvane_decrypt handed out last, by any thread; null before. Whoever called frees it, so this may only
// be compared with what comes to `free`.
SOFTTOKEN_API const void* softtoken_last_plaintext(void);

// ---- the record of calls ----

// A call is recorded when it arrives, before a gate holds it. Its text looks as in C: texts in quotes (bytes outside
// 0x20..0x7E, quotes and backslashes as \xHH), bytes as upper-case hexadecimal, pointers to handles as 0x and
// upper-case hexadecimal, null pointers as null, booleans as true and false; out pointers are left out, in/out counters
// are shown with the value that came in. " [card 0x2A]" follows when a card handle was set at that moment. PINs are
// shown.
//
//   orvane_init(0, 0x2A, 2)
//   orvane_getConnectedDeviceList(false, null)
//   orvane_initDevice("A1", false, null)
//   orvane_getTokenInfo("A1", null)
//   orvane_validatePassword("A1", "1234", 1, 8, null) [card 0x2A]
//   orvane_getKeyPairList("A1", null)
//   orvane_changeUserPassword("A1", "1234", "5678", -1, false, false, null)
//   orvane_changeSOPassword("A1", "1234", "5678", null)
//   orvane_signHash("A1", 000102030405060708090A0B0C0D0E0F, "1234", A0A1A2, 3, false, null, false) [card 0x2A]
//   orvane_decrypt("A1", 000102030405060708090A0B0C0D0E0F, "1234", A0A1A2, 3, false, null)
//   orvane_findCertificateForKey("A1", 000102030405060708090A0B0C0D0E0F, null)
//   orvane_setExternalSmartcardHandle(0x2A)
//   orvane_clearExternalSmartcardHandle() [card 0x2A]

// Whose calls are meant.
enum SofttokenThreads : int {
  kSofttokenAllThreads = 0,
  kSofttokenOnlyThread = 1,   // calls made by the given thread
  kSofttokenOtherThreads = 2  // calls made by all threads but the given one
};

// One recorded call, without its text.
struct SofttokenCall {
  unsigned long long thread;      // as softtoken_thread gives it in that thread
  unsigned long long cardHandle;  // the card handle that was set when the call arrived, 0 for none
};

// The calling thread's number in the records; never 0.
SOFTTOKEN_API unsigned long long softtoken_thread(void);

// Writes the texts of the recorded calls, oldest first, each followed by '\n', and a terminating zero. Returns the
// number of bytes needed with that zero; when it is more than capacity nothing is written (text may then be null).
SOFTTOKEN_API std::size_t softtoken_calls(int threads, unsigned long long thread, char* text, std::size_t capacity);

// The number of recorded calls, and one of them by its position from 0: fills *call and writes the text as above, but
// without a line end. Returns the bytes needed for the text, 0 when there is no such call.
SOFTTOKEN_API std::size_t softtoken_call_count(void);
SOFTTOKEN_API std::size_t softtoken_call(std::size_t position, SofttokenCall* call, char* text, std::size_t capacity);

// How often orvane_setExternalSmartcardHandle was called with a handle while one was set, since the last
// softtoken_reset; forgetting recorded calls does not change it.
SOFTTOKEN_API unsigned long long softtoken_handle_overlaps(void);

// Forgets the recorded calls.
SOFTTOKEN_API void softtoken_clear_calls(void);

// From now on `observer` is told the text of each call when it is recorded, in the calling thread; null: nobody is. It
// must not call the library or this interface. When softtoken_observe returns, the one before is told no more.
typedef void (*SofttokenObserver)(const char* call);
SOFTTOKEN_API void softtoken_observe(SofttokenObserver observer);

// ---- gates ----

// Closes (1) or opens (0) the gate of a function. A closed gate holds every call of the function made by another thread
// than the one that closed it, until the gate is opened. Open all gates before the library is unloaded or the process
// ends: a held thread cannot be joined.
SOFTTOKEN_API int softtoken_gate(const char* function, int closed);

// Lets count calls through the closed gate, those that are held first.
SOFTTOKEN_API int softtoken_gate_pass(const char* function, unsigned count);

// Waits until a call is held that no softtoken_gate_pass has let through yet; 0 when that took longer than timeoutMs.
SOFTTOKEN_API int softtoken_wait_held(const char* function, unsigned timeoutMs);

}  // extern "C"

#endif  // ORVANE_SOFTTOKEN_SOFTTOKEN_CONTROL_H
