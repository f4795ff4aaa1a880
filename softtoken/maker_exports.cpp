// The exported side of the software token, compiled for the maker's C++ binary interface: the thirteen functions over
// the plain calls of token_calls.h. It must use no more of the standard library than the stand-in headers offer.
#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>

#include "softtoken/softtoken_control.h"
#include "softtoken/token_calls.h"
#include "tokenlib/token_library.h"

// The types that are thrown have names of their own, as the compiler would make up one from the folder of this file.
namespace softtoken_thrown {

// A type that callers of the library do not know.
struct SofttokenException {};

// A type that they know by its base alone, without a text.
class SofttokenSilentError : public std::exception {
 public:
  const char* what() const noexcept override { return nullptr; }
};

}  // namespace softtoken_thrown

using softtoken_thrown::SofttokenException;
using softtoken_thrown::SofttokenSilentError;

namespace {

// Throws what a call was told to throw.
void throwUnless(bool completed) {
  if (completed) return;
  SofttokenThrown thrown;
  softtokenThrown(&thrown);
  switch (thrown.kind) {
    case kSofttokenThrowRuntimeError:
      throw std::runtime_error(thrown.text);
    case kSofttokenThrowBadAlloc:
      throw std::bad_alloc();
    case kSofttokenThrowBadArrayNewLength:
      throw std::bad_array_new_length();
    case kSofttokenThrowNullText:
      throw SofttokenSilentError();
    default:
      throw SofttokenException{};
  }
}

using KeyPairList = std::vector<OrvaneKeyPair>;

void addSerial(void* receiver, const char* text, std::size_t length) noexcept {
  static_cast<std::vector<std::string>*>(receiver)->push_back(std::string(text, length));
}

void addKeyPair(void* receiver, const OrvaneKeyPair* keyPair) noexcept {
  static_cast<KeyPairList*>(receiver)->push_back(OrvaneKeyPair(*keyPair));
}

void destroyKeyPairList(void* list) noexcept {
  static_cast<KeyPairList*>(list)->~KeyPairList();
  std::free(list);
}

void setText(std::string& text, char name) {
  char whole[] = "text ?";
  whole[5] = name;
  text = whole;
}

// What nobody here knows the meaning of: something else in each place, so that a copy can be seen to be whole.
void fillUnread(TokenInfo& info) {
  for (int i = 1; i < 5; ++i) setText(info.unreadTexts[i], static_cast<char>('0' + i));
  setText(info.unreadText6, '6');
  for (int i = 0; i < 2; ++i) setText(info.unreadTexts7[i], static_cast<char>('7' + i));
  for (int i = 0; i < 16; ++i) info.unreadNumbers0[i] = static_cast<unsigned char>(i + 1);
  for (int i = 0; i < 20; ++i) info.unreadNumbers20[i] = static_cast<unsigned char>(i + 21);
  info.unreadNumber = 0x4142434445464748;
}

}  // namespace

int orvane_init(int reserved, void* cardHandle, int mode) {
  int result = 0;
  throwUnless(softtokenInit(reserved, cardHandle, mode, &result));
  return result;
}

std::vector<std::string> orvane_getConnectedDeviceList(bool reserved, void* libraryContext) {
  std::vector<std::string> serials;
  throwUnless(softtokenGetConnectedDeviceList(reserved, libraryContext, addSerial, &serials));
  return serials;
}

int orvane_initDevice(const char* serial, bool reopen, void* libraryContext) {
  int result = 0;
  throwUnless(softtokenInitDevice(serial, reopen, libraryContext, &result));
  return result;
}

TokenInfo orvane_getTokenInfo(const char* serial, void* libraryContext) {
  SofttokenInfo plain{};
  throwUnless(softtokenGetTokenInfo(serial, libraryContext, &plain));
  TokenInfo info{};
  info.unreadTexts[0] = plain.serial;
  info.firmwareVersion = plain.firmwareVersion;
  info.passwordValidated = plain.passwordValidated;
  fillUnread(info);
  return info;
}

int orvane_validatePassword(const char* serial, const char* pin, int role, int* attemptsRemaining,
                            void* libraryContext) {
  int result = 0;
  throwUnless(softtokenValidatePassword(serial, pin, role, attemptsRemaining, libraryContext, &result));
  return result;
}

std::vector<OrvaneKeyPair>& orvane_getKeyPairList(const char* serial, void* libraryContext) {
  void* const memory = std::malloc(sizeof(KeyPairList));
  if (memory == nullptr) throw std::bad_alloc();
  KeyPairList* const list = ::new (memory) KeyPairList;
  const bool completed = softtokenGetKeyPairList(serial, libraryContext, addKeyPair, list);
  softtokenKeepKeyList(list, destroyKeyPairList);
  throwUnless(completed);
  return *list;
}

bool orvane_changeUserPassword(const char* serial, const char* oldPin, const char* newPin, int* attemptsRemaining,
                               bool reserved0, bool reserved1, void* libraryContext) {
  bool result = false;
  throwUnless(softtokenChangeUserPassword(serial, oldPin, newPin, attemptsRemaining, reserved0, reserved1,
                                          libraryContext, &result));
  return result;
}

// The maker's interface has the PINs by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool orvane_changeSOPassword(const char* serial, std::string oldSoPin, std::string newSoPin, void* libraryContext) {
  bool result = false;
  throwUnless(softtokenChangeSoPassword(serial, oldSoPin.data(), oldSoPin.size(), newSoPin.data(), newSoPin.size(),
                                        libraryContext, &result));
  return result;
}

int orvane_signHash(const char* serial, const unsigned char* credentialId, const char* pin, const unsigned char* hash,
                    int hashLength, unsigned char* signature, int* signatureLength, bool reserved0,
                    void* libraryContext, bool reserved1) {
  int result = 0;
  throwUnless(softtokenSignHash(serial, credentialId, pin, hash, hashLength, signature, signatureLength, reserved0,
                                libraryContext, reserved1, &result));
  return result;
}

int orvane_decrypt(const char* serial, const unsigned char* credentialId, const char* pin, const unsigned char* input,
                   int inputLength, unsigned char** output, int* outputLength, bool reserved, void* libraryContext) {
  int result = 0;
  throwUnless(softtokenDecrypt(serial, credentialId, pin, input, inputLength, output, outputLength, reserved,
                               libraryContext, &result));
  return result;
}

const OrvaneCertificate* orvane_findCertificateForKey(const char* serial, const unsigned char* credentialId,
                                                      void* libraryContext) {
  const OrvaneCertificate* result = nullptr;
  throwUnless(softtokenFindCertificateForKey(serial, credentialId, libraryContext, &result));
  return result;
}

void orvane_setExternalSmartcardHandle(void* cardHandle) {
  throwUnless(softtokenSetExternalSmartcardHandle(cardHandle));
}

void orvane_clearExternalSmartcardHandle() { throwUnless(softtokenClearExternalSmartcardHandle()); }
