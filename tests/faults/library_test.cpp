// The token library fails: every function that an entry point calls, with failing results, exceptions and odd outputs.
#include <limits>
#include <ostream>

#include "harness/all_calls.h"

namespace orvane::test {
namespace {

constexpr int kKeep = kSofttokenKeep;

// What one library call does instead of its work.
struct Reaction {
  bool isException = false;
  long long result = 0;
  int attempts = kKeep;
  int length = kKeep;
  Bytes output = {};
};
Reaction exception() { return {.isException = true}; }

enum class Memory { kUntouched, kWritten };

struct LibraryFault {
  const char* name;
  const char* call;  // of allCalls
  const char* function;
  Reaction reaction;
  DWORD status;
  Memory memory;
  const char* lastLine;
};

Bytes signatureOf(std::size_t length) { return Bytes(length, 0x77); }

Bytes certificateOf(std::uint32_t length) {
  const OrvaneCertificate certificate = makeCertificate(0x10, length);
  const auto* const first = reinterpret_cast<const std::uint8_t*>(&certificate);
  return Bytes(first, first + sizeof(certificate));
}

const DWORD kInternal = code(SCARD_F_INTERNAL_ERROR);
const DWORD kInvalid = code(SCARD_E_INVALID_PARAMETER);
const DWORD kInsufficient = code(SCARD_E_INSUFFICIENT_BUFFER);

const LibraryFault kSignFaults[] = {
    {"exception", "CardSignData signs", "orvane_signHash", exception(), kInternal, Memory::kWritten,
     "E CardSignData: unhandled exception: orvane_signHash: exception in the token library"},
    {"the handle is not taken", "CardSignData signs", "orvane_setExternalSmartcardHandle", exception(), kInternal,
     Memory::kWritten,
     "E CardSignData: unhandled exception: orvane_setExternalSmartcardHandle: exception in the token library"},
    {"the handle is not given back", "CardSignData signs", "orvane_clearExternalSmartcardHandle", exception(), 0,
     Memory::kWritten, "D CardSignData: success, signature length=256"},
    {"result 1",
     "CardSignData signs",
     "orvane_signHash",
     {.result = 1, .length = 256},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: orvane_signHash failed, ret=1"},
    {"result -1",
     "CardSignData signs",
     "orvane_signHash",
     {.result = -1},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: orvane_signHash failed, ret=-1"},
    {"the lowest result",
     "CardSignData signs",
     "orvane_signHash",
     {.result = std::numeric_limits<int>::min()},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: orvane_signHash failed, ret=-2147483648"},
    {"result 51",
     "CardSignData signs",
     "orvane_signHash",
     {.result = 51},
     code(SCARD_E_UNSUPPORTED_FEATURE),
     Memory::kWritten,
     "E CardSignData: SHA1/MD5 signing blocked on FIPS 140-3 token"},
    {"no length",
     "CardSignData signs",
     "orvane_signHash",
     {.output = signatureOf(256)},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: invalid signature length 0"},
    {"length -1",
     "CardSignData signs",
     "orvane_signHash",
     {.length = -1},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: invalid signature length -1"},
    {"the largest length",
     "CardSignData signs",
     "orvane_signHash",
     {.length = INT_MAX},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: invalid signature length 2147483647"},
    {"one byte too long",
     "CardSignData signs",
     "orvane_signHash",
     {.length = 257, .output = signatureOf(256)},
     kInvalid,
     Memory::kWritten,
     "E CardSignData: invalid signature length 257"},
    {"as long as possible",
     "CardSignData signs",
     "orvane_signHash",
     {.length = 256, .output = signatureOf(256)},
     0,
     Memory::kWritten,
     "D CardSignData: success, signature length=256"},
    {"one byte",
     "CardSignData signs",
     "orvane_signHash",
     {.length = 1, .output = signatureOf(1)},
     0,
     Memory::kWritten,
     "D CardSignData: success, signature length=1"},
};

const LibraryFault kDecryptFaults[] = {
    {"exception", "CardRSADecrypt", "orvane_decrypt", exception(), kInternal, Memory::kUntouched,
     "E CardRSADecrypt: unhandled exception: orvane_decrypt: exception in the token library"},
    {"the handle is not taken", "CardRSADecrypt", "orvane_setExternalSmartcardHandle", exception(), kInternal,
     Memory::kUntouched,
     "E CardRSADecrypt: unhandled exception: orvane_setExternalSmartcardHandle: exception in the token library"},
    {"the handle is not given back", "CardRSADecrypt", "orvane_clearExternalSmartcardHandle", exception(), 0,
     Memory::kWritten, "D CardRSADecrypt: decryption successful, length=48"},
    {"result 1",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.result = 1, .length = 5},
     kInvalid,
     Memory::kUntouched,
     "E CardRSADecrypt: orvane_decrypt failed, ret=1"},
    {"result -1",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.result = -1, .length = -5},
     kInvalid,
     Memory::kUntouched,
     "E CardRSADecrypt: orvane_decrypt failed, ret=-1"},
    {"neither block nor length",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = 0},
     0,
     Memory::kWritten,
     "D CardRSADecrypt: decryption successful, length=0"},
    {"a length without a block",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = 5},
     kInsufficient,
     Memory::kUntouched,
     "E CardRSADecrypt: decrypted length larger than buffer"},
    {"length 0",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = 0, .output = {1, 2, 3}},
     0,
     Memory::kWritten,
     "D CardRSADecrypt: decryption successful, length=0"},
    {"length -1",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = -1, .output = {1, 2, 3}},
     kInsufficient,
     Memory::kUntouched,
     "E CardRSADecrypt: decrypted length larger than buffer"},
    {"the lowest length but one",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = kSofttokenKeep + 1, .output = {1, 2, 3}},
     kInsufficient,
     Memory::kUntouched,
     "E CardRSADecrypt: decrypted length larger than buffer"},
    {"the largest length",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = INT_MAX, .output = {1, 2, 3}},
     kInsufficient,
     Memory::kUntouched,
     "E CardRSADecrypt: decrypted length larger than buffer"},
    {"one byte too long",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = 257, .output = Bytes(257, 0x33)},
     kInsufficient,
     Memory::kUntouched,
     "E CardRSADecrypt: decrypted length larger than buffer"},
    {"as long as possible",
     "CardRSADecrypt",
     "orvane_decrypt",
     {.length = 256, .output = Bytes(256, 0x33)},
     0,
     Memory::kWritten,
     "D CardRSADecrypt: decryption successful, length=256"},
};

const LibraryFault kPinFaults[] = {
    {"exception", "CardAuthenticatePin", "orvane_validatePassword", exception(), kInternal, Memory::kUntouched,
     "E CardAuthenticatePin: unhandled exception: orvane_validatePassword: exception in the token library"},
    {"result -1",
     "CardAuthenticatePin",
     "orvane_validatePassword",
     {.result = -1, .attempts = -1},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardAuthenticatePin: wrong PIN [0012AB]"},
    {"exception", "CardAuthenticateEx on the token", "orvane_validatePassword", exception(), kInternal,
     Memory::kUntouched,
     "E CardAuthenticateEx: unhandled exception: orvane_validatePassword: exception in the token library"},
    {"the handle is not taken", "CardAuthenticateEx on the token", "orvane_setExternalSmartcardHandle", exception(),
     kInternal, Memory::kUntouched,
     "E CardAuthenticateEx: unhandled exception: orvane_setExternalSmartcardHandle: exception in the token library"},
    {"the handle is not given back", "CardAuthenticateEx on the token", "orvane_clearExternalSmartcardHandle",
     exception(), 0, Memory::kWritten, "D CardAuthenticateEx: returning SCARD_S_SUCCESS [0012AB]"},
    {"attempts unchanged",
     "CardAuthenticateEx on the token",
     "orvane_validatePassword",
     {.result = 1},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV"},
    {"no attempts",
     "CardAuthenticateEx on the token",
     "orvane_validatePassword",
     {.result = -1, .attempts = 0},
     code(SCARD_W_CHV_BLOCKED),
     Memory::kWritten,
     "E CardAuthenticateEx: PIN blocked, returning SCARD_W_CHV_BLOCKED"},
    {"attempts -1",
     "CardAuthenticateEx on the token",
     "orvane_validatePassword",
     {.result = 1, .attempts = -1},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV"},
    {"the most attempts",
     "CardAuthenticateEx on the token",
     "orvane_validatePassword",
     {.result = INT_MAX, .attempts = INT_MAX},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV"},
    {"exception", "CardChangeAuthenticator user", "orvane_changeUserPassword", exception(), kInternal,
     Memory::kUntouched,
     "E CardChangeAuthenticator: unhandled exception: orvane_changeUserPassword: exception in the token library"},
    {"refused",
     "CardChangeAuthenticator user",
     "orvane_changeUserPassword",
     {.attempts = 2},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardChangeAuthenticator: change failed, attempts=2"},
    {"refused without attempts",
     "CardChangeAuthenticator user",
     "orvane_changeUserPassword",
     {.attempts = 0},
     code(SCARD_W_CHV_BLOCKED),
     Memory::kWritten,
     "E CardChangeAuthenticator: change failed, attempts=0"},
    {"refused, attempts unchanged",
     "CardChangeAuthenticator user",
     "orvane_changeUserPassword",
     {},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardChangeAuthenticator: change failed, attempts=-1"},
    {"exception", "CardChangeAuthenticator admin", "orvane_changeSOPassword", exception(), kInternal,
     Memory::kUntouched,
     "E CardChangeAuthenticator: unhandled exception: orvane_changeSOPassword: exception in the token library"},
    {"refused",
     "CardChangeAuthenticator admin",
     "orvane_changeSOPassword",
     {},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardChangeAuthenticator: change failed, attempts=-1"},
    {"exception", "CardChangeAuthenticatorEx 1", "orvane_changeUserPassword", exception(), kInternal,
     Memory::kUntouched,
     "E CardChangeAuthenticatorEx: unhandled exception: orvane_changeUserPassword: exception in the token library"},
    {"refused",
     "CardChangeAuthenticatorEx 1",
     "orvane_changeUserPassword",
     {.attempts = -7},
     code(SCARD_W_WRONG_CHV),
     Memory::kWritten,
     "E CardChangeAuthenticatorEx: change failed, attempts=-7"},
    {"exception about the token", "CardChangeAuthenticatorEx 1", "orvane_getTokenInfo", exception(), 0,
     Memory::kWritten, "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"},
    {"the token knows no PIN",
     "CardChangeAuthenticatorEx 1",
     "orvane_getTokenInfo",
     {.result = 0},
     0,
     Memory::kWritten,
     "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"},
    {"the token says more than yes",
     "CardChangeAuthenticatorEx 1",
     "orvane_getTokenInfo",
     {.result = -1},
     0,
     Memory::kWritten,
     "D >>> GLOBAL CACHE BUMPED: ver=0 pins=1 cont=0 file=0"},
    {"exception", "CardChangeAuthenticatorEx 2", "orvane_changeSOPassword", exception(), kInternal, Memory::kUntouched,
     "E CardChangeAuthenticatorEx: unhandled exception: orvane_changeSOPassword: exception in the token library"},
};

const LibraryFault kFileFaults[] = {
    {"exception", "CardReadFile ksc0", "orvane_initDevice", exception(), kInternal, Memory::kUntouched,
     "E CardReadFile: unhandled exception: orvane_initDevice: exception in the token library"},
    {"the handle is not taken", "CardReadFile ksc0", "orvane_setExternalSmartcardHandle", exception(), kInternal,
     Memory::kUntouched,
     "E CardReadFile: unhandled exception: orvane_setExternalSmartcardHandle: exception in the token library"},
    {"result -1",
     "CardReadFile ksc0",
     "orvane_initDevice",
     {.result = -1},
     ERROR_FILE_NOT_FOUND,
     Memory::kUntouched,
     "E Init device in get certificate failed : -1"},
    {"result 5",
     "CardReadFile kxc1",
     "orvane_initDevice",
     {.result = 5},
     ERROR_FILE_NOT_FOUND,
     Memory::kUntouched,
     "E Init device in get certificate failed : 5"},
    {"exception", "CardReadFile kxc1", "orvane_findCertificateForKey", exception(), kInternal, Memory::kUntouched,
     "E CardReadFile: unhandled exception: orvane_findCertificateForKey: exception in the token library"},
    {"no certificate",
     "CardReadFile ksc0",
     "orvane_findCertificateForKey",
     {.result = 0},
     code(SCARD_E_NO_KEY_CONTAINER),
     Memory::kUntouched,
     "E CardReadFile: no matching key exchange cert found"},
    {"an empty certificate",
     "CardReadFile ksc0",
     "orvane_findCertificateForKey",
     {.result = 1, .output = certificateOf(0)},
     0,
     Memory::kWritten,
     "D CardReadFile: returned key exchange cert length=0"},
    {"a full record",
     "CardReadFile kxc1",
     "orvane_findCertificateForKey",
     {.result = 1, .output = certificateOf(3072)},
     0,
     Memory::kWritten,
     "D CardReadFile: returned key exchange cert length=3072"},
    {"one byte more than a record holds",
     "CardReadFile kxc1",
     "orvane_findCertificateForKey",
     {.result = 1, .output = certificateOf(3073)},
     code(SCARD_E_NO_KEY_CONTAINER),
     Memory::kUntouched,
     "E CardReadFile: no matching key exchange cert found"},
    {"the largest length",
     "CardReadFile ksc0",
     "orvane_findCertificateForKey",
     {.result = 1, .output = certificateOf(0xFFFFFFFF)},
     code(SCARD_E_NO_KEY_CONTAINER),
     Memory::kUntouched,
     "E CardReadFile: no matching key exchange cert found"},
    {"exception", "CardReadFile cmapfile list forgotten", "orvane_getKeyPairList", exception(), kInternal,
     Memory::kUntouched, "E CardReadFile: unhandled exception: orvane_getKeyPairList: exception in the token library"},
    {"no keys",
     "CardReadFile cmapfile list forgotten",
     "orvane_getKeyPairList",
     {},
     0,
     Memory::kWritten,
     "D CMAP: no containers for 0034CD, returning empty cmapfile"},
};

class LibraryFaults : public FaultTest {
 protected:
  void queue(const char* function, const Reaction& reaction) {
    if (reaction.isException) {
      queueThrow(function);
    } else {
      queueResult(function, reaction.result, reaction.attempts, reaction.length, reaction.output);
    }
  }

  void check(const LibraryFault& fault) {
    SCOPED_TRACE(std::string(fault.call) + ", " + fault.function + ": " + fault.name);
    const EntryCall call = callNamed(fault.call);
    const Result result = run(
        call, [&] { queue(fault.function, fault.reaction); }, [] {});
    EXPECT_EQ(result.status, fault.status);
    EXPECT_EQ(result.isUntouched, fault.memory == Memory::kUntouched);
    EXPECT_EQ(softtoken_queued(fault.function), 0u) << "the function was not called";
    const Lines log = takeLog();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), fault.lastLine);
    expectUsable(std::string_view(fault.function) != "orvane_clearExternalSmartcardHandle");
  }

  void check(const auto& faults) {
    for (const LibraryFault& fault : faults) check(fault);
  }
};

TEST_F(LibraryFaults, WhenSigning) { check(kSignFaults); }
TEST_F(LibraryFaults, WhenDecrypting) { check(kDecryptFaults); }
TEST_F(LibraryFaults, WithPins) { check(kPinFaults); }
TEST_F(LibraryFaults, WhenReadingFiles) { check(kFileFaults); }

}  // namespace
}  // namespace orvane::test
