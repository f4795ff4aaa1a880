// The wrappers that the linker puts around the boundary of the token library (--wrap): what is allocated below them
// belongs to the library, so that it neither fails nor counts.
#include "faults/failing_new.h"
#include "tokenlib/maker_boundary.h"

namespace {

using orvane::test::NewMayFail;
using orvane::test::NewSucceeds;

// A receiver that hands on to the product's own, where allocations may fail again.
struct Receiver {
  void* receiver;
  OrvaneSerialReceiver receiveSerial = nullptr;
  OrvaneTokenInfoReceiver receiveInfo = nullptr;
  OrvaneKeyPairReceiver receiveKeyPairs = nullptr;
};

void handOnSerial(void* to, const char* serial, std::size_t length) {
  const NewMayFail mayFail;
  const auto& receiver = *static_cast<const Receiver*>(to);
  receiver.receiveSerial(receiver.receiver, serial, length);
}

void handOnInfo(void* to, const OrvaneBoundaryTokenInfo* info) {
  const NewMayFail mayFail;
  const auto& receiver = *static_cast<const Receiver*>(to);
  receiver.receiveInfo(receiver.receiver, info);
}

void handOnKeyPairs(void* to, const OrvaneKeyPair* keyPairs, std::size_t count) {
  const NewMayFail mayFail;
  const auto& receiver = *static_cast<const Receiver*>(to);
  receiver.receiveKeyPairs(receiver.receiver, keyPairs, count);
}

// Names that begin with two underscores are the linker's.
#define ORVANE_TESTS_WRAPPER(name) __wrap_##name
#define ORVANE_TESTS_WRAPPED(name) __real_##name

}  // namespace

#define ORVANE_TESTS_WRAP(name, parameters, arguments)            \
  extern "C" bool ORVANE_TESTS_WRAPPED(name) parameters noexcept; \
  extern "C" bool ORVANE_TESTS_WRAPPER(name) parameters noexcept; \
  bool ORVANE_TESTS_WRAPPER(name) parameters noexcept {           \
    const NewSucceeds succeeds;                                   \
    return ORVANE_TESTS_WRAPPED(name) arguments;                  \
  }

ORVANE_TESTS_WRAP(orvaneBoundaryInit, (void* cardHandle, int* result, OrvaneBoundaryFailure* failure),
                  (cardHandle, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryInitDevice,
                  (const char* serial, bool reopen, int* result, OrvaneBoundaryFailure* failure),
                  (serial, reopen, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryValidatePassword,
                  (const char* serial, const char* pin, int* attempts, int* result, OrvaneBoundaryFailure* failure),
                  (serial, pin, attempts, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryChangeUserPassword,
                  (const char* serial, const char* oldPin, const char* newPin, int* attempts, bool* result,
                   OrvaneBoundaryFailure* failure),
                  (serial, oldPin, newPin, attempts, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryChangeSoPassword,
                  (const char* serial, const OrvaneBoundaryText* oldSoPin, const OrvaneBoundaryText* newSoPin,
                   bool* result, OrvaneBoundaryFailure* failure),
                  (serial, oldSoPin, newSoPin, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundarySignHash,
                  (const char* serial, const unsigned char* id, const char* pin, const unsigned char* hash,
                   int hashLength, unsigned char* signature, int* signatureLength, int* result,
                   OrvaneBoundaryFailure* failure),
                  (serial, id, pin, hash, hashLength, signature, signatureLength, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryDecrypt,
                  (const char* serial, const unsigned char* id, const char* pin, const unsigned char* input,
                   int inputLength, unsigned char** output, int* outputLength, int* result,
                   OrvaneBoundaryFailure* failure),
                  (serial, id, pin, input, inputLength, output, outputLength, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryFindCertificateForKey,
                  (const char* serial, const unsigned char* id, void* context, const OrvaneCertificate** result,
                   OrvaneBoundaryFailure* failure),
                  (serial, id, context, result, failure))
ORVANE_TESTS_WRAP(orvaneBoundarySetExternalSmartcardHandle, (void* cardHandle, OrvaneBoundaryFailure* failure),
                  (cardHandle, failure))
ORVANE_TESTS_WRAP(orvaneBoundaryClearExternalSmartcardHandle, (OrvaneBoundaryFailure * failure), (failure))

extern "C" {

bool ORVANE_TESTS_WRAPPED(orvaneBoundaryGetConnectedDeviceList)(OrvaneSerialReceiver receive, void* receiver,
                                                                OrvaneBoundaryFailure* failure) noexcept;
bool ORVANE_TESTS_WRAPPER(orvaneBoundaryGetConnectedDeviceList)(OrvaneSerialReceiver receive, void* receiver,
                                                                OrvaneBoundaryFailure* failure) noexcept;
bool ORVANE_TESTS_WRAPPER(orvaneBoundaryGetConnectedDeviceList)(OrvaneSerialReceiver receive, void* receiver,
                                                                OrvaneBoundaryFailure* failure) noexcept {
  const NewSucceeds succeeds;
  Receiver handOn{receiver};
  handOn.receiveSerial = receive;
  return ORVANE_TESTS_WRAPPED(orvaneBoundaryGetConnectedDeviceList)(handOnSerial, &handOn, failure);
}

bool ORVANE_TESTS_WRAPPED(orvaneBoundaryGetTokenInfo)(const char* serial, OrvaneTokenInfoReceiver receive,
                                                      void* receiver, OrvaneBoundaryFailure* failure) noexcept;
bool ORVANE_TESTS_WRAPPER(orvaneBoundaryGetTokenInfo)(const char* serial, OrvaneTokenInfoReceiver receive,
                                                      void* receiver, OrvaneBoundaryFailure* failure) noexcept;
bool ORVANE_TESTS_WRAPPER(orvaneBoundaryGetTokenInfo)(const char* serial, OrvaneTokenInfoReceiver receive,
                                                      void* receiver, OrvaneBoundaryFailure* failure) noexcept {
  const NewSucceeds succeeds;
  Receiver handOn{receiver};
  handOn.receiveInfo = receive;
  return ORVANE_TESTS_WRAPPED(orvaneBoundaryGetTokenInfo)(serial, handOnInfo, &handOn, failure);
}

bool ORVANE_TESTS_WRAPPED(orvaneBoundaryGetKeyPairList)(const char* serial, void* context,
                                                        OrvaneKeyPairReceiver receive, void* receiver,
                                                        OrvaneBoundaryFailure* failure) noexcept;
bool ORVANE_TESTS_WRAPPER(orvaneBoundaryGetKeyPairList)(const char* serial, void* context,
                                                        OrvaneKeyPairReceiver receive, void* receiver,
                                                        OrvaneBoundaryFailure* failure) noexcept;
bool ORVANE_TESTS_WRAPPER(orvaneBoundaryGetKeyPairList)(const char* serial, void* context,
                                                        OrvaneKeyPairReceiver receive, void* receiver,
                                                        OrvaneBoundaryFailure* failure) noexcept {
  const NewSucceeds succeeds;
  Receiver handOn{receiver};
  handOn.receiveKeyPairs = receive;
  return ORVANE_TESTS_WRAPPED(orvaneBoundaryGetKeyPairList)(serial, context, handOnKeyPairs, &handOn, failure);
}

}  // extern "C"
