// The only file that calls the maker's library. It is compiled for the maker's C++ binary interface: by the maker's
// kind of compiler with its own <string> and <vector>, by the cross compiler with the stand-ins in maker_abi/, and on
// other systems, where there is no such library, like every other file. It must therefore use no more of the standard
// library than the stand-ins offer, and pass nothing but plain data to the outside.
#include "tokenlib/maker_boundary.h"

#include <exception>
#include <new>

namespace {

void describe(OrvaneBoundaryFailure& failure, OrvaneBoundaryExceptionKind kind, const char* text) noexcept {
  failure.kind = kind;
  std::size_t length = 0;
  for (; text != nullptr && text[length] != '\0' && length + 1 < sizeof(failure.text); ++length) {
    const auto character = static_cast<unsigned char>(text[length]);
    failure.text[length] = character < 0x20 || character == 0x7F ? ' ' : text[length];
  }
  failure.text[length] = '\0';
}

// Runs `call` and returns whether it came to its end. A catch clause finds a type by its decorated name and those of
// its bases, so these find what the maker's runtime throws as well.
template <typename Call>
bool completes(OrvaneBoundaryFailure* failure, const Call& call) noexcept {
  try {
    call();
    return true;
  } catch (const std::bad_alloc& error) {
    describe(*failure, kOrvaneBoundaryOutOfMemory, error.what());
  } catch (const std::exception& error) {
    describe(*failure, kOrvaneBoundaryStandard, error.what());
  } catch (...) {
    describe(*failure, kOrvaneBoundaryForeign, nullptr);
  }
  return false;
}

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

bool orvaneBoundaryInit(void* cardHandle, int* result, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] { *result = orvane_init(0, cardHandle, 2); });
}

bool orvaneBoundaryGetConnectedDeviceList(OrvaneSerialReceiver receive, void* receiver,
                                          OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    const std::vector<std::string> serials = orvane_getConnectedDeviceList(false, nullptr);
    for (const std::string& serial : serials) receive(receiver, serial.data(), serial.size());
  });
}

bool orvaneBoundaryInitDevice(const char* serial, bool reopen, int* result, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] { *result = orvane_initDevice(serial, reopen, nullptr); });
}

bool orvaneBoundaryGetTokenInfo(const char* serial, OrvaneTokenInfoReceiver receive, void* receiver,
                                OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    const TokenInfo info = orvane_getTokenInfo(serial, nullptr);
    const OrvaneBoundaryTokenInfo plain = view(info);
    receive(receiver, &plain);
  });
}

bool orvaneBoundaryValidatePassword(const char* serial, const char* pin, int* attemptsRemaining, int* result,
                                    OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    int attempts = *attemptsRemaining;
    *result = orvane_validatePassword(serial, pin, 1, &attempts, nullptr);
    *attemptsRemaining = attempts;
  });
}

bool orvaneBoundaryGetKeyPairList(const char* serial, void* libraryContext, OrvaneKeyPairReceiver receive,
                                  void* receiver, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    const std::vector<OrvaneKeyPair>& keyPairs = orvane_getKeyPairList(serial, libraryContext);
    receive(receiver, keyPairs.data(), keyPairs.size());
  });
}

bool orvaneBoundaryChangeUserPassword(const char* serial, const char* oldPin, const char* newPin,
                                      int* attemptsRemaining, bool* result, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    int attempts = *attemptsRemaining;
    *result = orvane_changeUserPassword(serial, oldPin, newPin, &attempts, false, false, nullptr);
    *attemptsRemaining = attempts;
  });
}

bool orvaneBoundaryChangeSoPassword(const char* serial, const OrvaneBoundaryText* oldSoPin,
                                    const OrvaneBoundaryText* newSoPin, bool* result,
                                    OrvaneBoundaryFailure* failure) noexcept {
  const bool completed = completes(failure, [&] { *result = changeSoPasswordBelow(serial, oldSoPin, newSoPin); });
  overwriteStackBelow();
  return completed;
}

bool orvaneBoundarySignHash(const char* serial, const unsigned char* credentialId, const char* pin,
                            const unsigned char* hash, int hashLength, unsigned char* signature, int* signatureLength,
                            int* result, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    int length = *signatureLength;
    *result = orvane_signHash(serial, credentialId, pin, hash, hashLength, signature, &length, false, nullptr, false);
    *signatureLength = length;
  });
}

bool orvaneBoundaryDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                           const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                           int* result, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] {
    unsigned char* block = *output;
    int length = *outputLength;
    *result = orvane_decrypt(serial, credentialId, pin, input, inputLength, &block, &length, false, nullptr);
    *output = block;
    *outputLength = length;
  });
}

bool orvaneBoundaryFindCertificateForKey(const char* serial, const unsigned char* credentialId, void* libraryContext,
                                         const OrvaneCertificate** result, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] { *result = orvane_findCertificateForKey(serial, credentialId, libraryContext); });
}

bool orvaneBoundarySetExternalSmartcardHandle(void* cardHandle, OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [&] { orvane_setExternalSmartcardHandle(cardHandle); });
}

bool orvaneBoundaryClearExternalSmartcardHandle(OrvaneBoundaryFailure* failure) noexcept {
  return completes(failure, [] { orvane_clearExternalSmartcardHandle(); });
}

}  // extern "C"
