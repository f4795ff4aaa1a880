// The only file that calls the maker's library. It is compiled for the maker's C++ binary interface: by the maker's
// kind of compiler with its own <string> and <vector>, by the cross compiler with the stand-ins in maker_abi/, and on
// other systems, where there is no such library, like every other file. It must therefore use no more of the standard
// library than the stand-ins offer, and pass nothing but plain data to the outside.
#include "tokenlib/maker_boundary.h"

namespace {

OrvaneBoundaryText view(const std::string& text) { return {text.data(), text.size()}; }

OrvaneBoundaryTokenInfo view(const TokenInfo& info) {
  OrvaneBoundaryTokenInfo plain{};
  for (std::size_t i = 0; i < 5; ++i) plain.unreadTexts[i] = view(info.unreadTexts[i]);
  plain.firmwareVersion = view(info.firmwareVersion);
  plain.unreadText6 = view(info.unreadText6);
  for (std::size_t i = 0; i < 16; ++i) plain.unreadNumbers0[i] = info.unreadNumbers0[i];
  plain.passwordValidated = info.passwordValidated;
  for (std::size_t i = 0; i < 20; ++i) plain.unreadNumbers20[i] = info.unreadNumbers20[i];
  for (std::size_t i = 0; i < 2; ++i) plain.unreadTexts7[i] = view(info.unreadTexts7[i]);
  plain.unreadNumber = info.unreadNumber;
  return plain;
}

bool callChangeSoPassword(const char* serial, const OrvaneBoundaryText* oldSoPin, const OrvaneBoundaryText* newSoPin) {
  return orvane_changeSOPassword(serial, std::string(oldSoPin->data, oldSoPin->length),
                                 std::string(newSoPin->data, newSoPin->length), nullptr);
}

void overwriteStack() noexcept {
  volatile unsigned char unused[1024];
  for (std::size_t i = 0; i < sizeof(unused); ++i) unused[i] = 0;
}

// Volatile, so that neither is inlined: the string arguments then live below the caller's frame, where the second one
// reaches what is left of them. (The callee destroys them, so that nobody here can name them after the call.)
bool (*const volatile changeSoPasswordBelow)(const char*, const OrvaneBoundaryText*,
                                             const OrvaneBoundaryText*) = callChangeSoPassword;
void (*const volatile overwriteStackBelow)() noexcept = overwriteStack;

}  // namespace

extern "C" {

bool orvaneBoundaryInit(void* cardHandle, int* result) noexcept {
  try {
    *result = orvane_init(0, cardHandle, 2);
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryGetConnectedDeviceList(OrvaneSerialReceiver receive, void* receiver) noexcept {
  try {
    const std::vector<std::string> serials = orvane_getConnectedDeviceList(false, nullptr);
    for (const std::string& serial : serials) receive(receiver, serial.data(), serial.size());
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryInitDevice(const char* serial, bool reopen, int* result) noexcept {
  try {
    *result = orvane_initDevice(serial, reopen, nullptr);
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryGetTokenInfo(const char* serial, OrvaneTokenInfoReceiver receive, void* receiver) noexcept {
  try {
    const TokenInfo info = orvane_getTokenInfo(serial, nullptr);
    const OrvaneBoundaryTokenInfo plain = view(info);
    receive(receiver, &plain);
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryValidatePassword(const char* serial, const char* pin, int* attemptsRemaining, int* result) noexcept {
  try {
    int attempts = *attemptsRemaining;
    *result = orvane_validatePassword(serial, pin, 1, &attempts, nullptr);
    *attemptsRemaining = attempts;
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryGetKeyPairList(const char* serial, void* libraryContext, OrvaneKeyPairReceiver receive,
                                  void* receiver) noexcept {
  try {
    const std::vector<OrvaneKeyPair>& keyPairs = orvane_getKeyPairList(serial, libraryContext);
    receive(receiver, keyPairs.data(), keyPairs.size());
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryChangeUserPassword(const char* serial, const char* oldPin, const char* newPin,
                                      int* attemptsRemaining, bool* result) noexcept {
  try {
    int attempts = *attemptsRemaining;
    *result = orvane_changeUserPassword(serial, oldPin, newPin, &attempts, false, false, nullptr);
    *attemptsRemaining = attempts;
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryChangeSoPassword(const char* serial, const OrvaneBoundaryText* oldSoPin,
                                    const OrvaneBoundaryText* newSoPin, bool* result) noexcept {
  bool completed = false;
  try {
    *result = changeSoPasswordBelow(serial, oldSoPin, newSoPin);
    completed = true;
  } catch (...) {
    completed = false;
  }
  overwriteStackBelow();
  return completed;
}

bool orvaneBoundarySignHash(const char* serial, const unsigned char* credentialId, const char* pin,
                            const unsigned char* hash, int hashLength, unsigned char* signature, int* signatureLength,
                            int* result) noexcept {
  try {
    int length = *signatureLength;
    *result = orvane_signHash(serial, credentialId, pin, hash, hashLength, signature, &length, false, nullptr, false);
    *signatureLength = length;
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                           const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                           int* result) noexcept {
  try {
    unsigned char* block = *output;
    int length = *outputLength;
    *result = orvane_decrypt(serial, credentialId, pin, input, inputLength, &block, &length, false, nullptr);
    *output = block;
    *outputLength = length;
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryFindCertificateForKey(const char* serial, const unsigned char* credentialId, void* libraryContext,
                                         const OrvaneCertificate** result) noexcept {
  try {
    *result = orvane_findCertificateForKey(serial, credentialId, libraryContext);
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundarySetExternalSmartcardHandle(void* cardHandle) noexcept {
  try {
    orvane_setExternalSmartcardHandle(cardHandle);
    return true;
  } catch (...) {
    return false;
  }
}

bool orvaneBoundaryClearExternalSmartcardHandle() noexcept {
  try {
    orvane_clearExternalSmartcardHandle();
    return true;
  } catch (...) {
    return false;
  }
}

}  // extern "C"
