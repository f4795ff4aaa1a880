#include "tokenlib/token_client.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "tokenlib/maker_boundary.h"

namespace orvane::tokenlib {
namespace {

[[noreturn]] void raise(const char* function, const OrvaneBoundaryFailure& failure) {
  switch (failure.kind) {
    case kOrvaneBoundaryOutOfMemory:
      throw TokenLibraryOutOfMemory(failure.text);
    case kOrvaneBoundaryStandard:
      throw TokenLibraryError(failure.text);
    case kOrvaneBoundaryForeign:
      break;
  }
  throw TokenLibraryError(function, ": exception in the token library");
}

// Calls a function of the boundary, named as the library names it, and raises what the library threw.
template <typename BoundaryFunction, typename... Arguments>
void call(const char* function, BoundaryFunction boundaryFunction, Arguments... arguments) {
  OrvaneBoundaryFailure failure{};
  if (!boundaryFunction(arguments..., &failure)) raise(function, failure);
}

// What a receiver fills. An exception must not pass through the boundary's frames, so that a lack of memory is noted
// and raised again after the call.
template <typename Value>
struct Received {
  Value value{};
  bool outOfMemory = false;

  template <typename Fill>
  void fill(Fill fillValue) noexcept {
    try {
      fillValue(value);
    } catch (...) {
      outOfMemory = true;
    }
  }

  Value take() {
    if (outOfMemory) throw std::bad_alloc();
    return std::move(value);
  }
};

using ReceivedSerials = Received<std::vector<std::string>>;
using ReceivedKeyPairs = Received<std::vector<OrvaneKeyPair>>;
using ReceivedTokenInfo = Received<TokenInfo>;

std::string toString(const OrvaneBoundaryText& text) { return std::string(text.data, text.length); }

void copyTokenInfo(const OrvaneBoundaryTokenInfo& from, TokenInfo& to) {
  std::transform(std::begin(from.unreadTexts), std::end(from.unreadTexts), std::begin(to.unreadTexts), toString);
  to.firmwareVersion = toString(from.firmwareVersion);
  to.unreadText6 = toString(from.unreadText6);
  std::copy(std::begin(from.unreadNumbers0), std::end(from.unreadNumbers0), std::begin(to.unreadNumbers0));
  to.passwordValidated = from.passwordValidated;
  std::copy(std::begin(from.unreadNumbers20), std::end(from.unreadNumbers20), std::begin(to.unreadNumbers20));
  std::transform(std::begin(from.unreadTexts7), std::end(from.unreadTexts7), std::begin(to.unreadTexts7), toString);
  to.unreadNumber = from.unreadNumber;
}

void* toPointer(CardHandle cardHandle) { return reinterpret_cast<void*>(cardHandle); }

}  // namespace

LibraryText::LibraryText(std::string_view first, std::string_view second) noexcept {
  const std::size_t firstLength = first.copy(text_, sizeof(text_) - 1);
  text_[firstLength + second.copy(text_ + firstLength, sizeof(text_) - 1 - firstLength)] = '\0';
}

int init(CardHandle cardHandle) {
  int result = 0;
  call("orvane_init", orvaneBoundaryInit, toPointer(cardHandle), &result);
  return result;
}

std::vector<std::string> connectedDeviceList() {
  ReceivedSerials received;
  const auto receive = [](void* receiver, const char* serial, std::size_t length) {
    static_cast<ReceivedSerials*>(receiver)->fill([&](auto& serials) { serials.emplace_back(serial, length); });
  };
  call("orvane_getConnectedDeviceList", orvaneBoundaryGetConnectedDeviceList, receive, &received);
  return received.take();
}

int initDevice(const std::string& serial, bool reopen) {
  int result = 0;
  call("orvane_initDevice", orvaneBoundaryInitDevice, serial.c_str(), reopen, &result);
  return result;
}

TokenInfo getTokenInfo(const std::string& serial) {
  ReceivedTokenInfo received;
  const auto receive = [](void* receiver, const OrvaneBoundaryTokenInfo* info) {
    static_cast<ReceivedTokenInfo*>(receiver)->fill([&](TokenInfo& copy) { copyTokenInfo(*info, copy); });
  };
  call("orvane_getTokenInfo", orvaneBoundaryGetTokenInfo, serial.c_str(), receive, &received);
  return received.take();
}

int validatePassword(const std::string& serial, const char* pin, int& attemptsRemaining) {
  int result = 0;
  call("orvane_validatePassword", orvaneBoundaryValidatePassword, serial.c_str(), pin, &attemptsRemaining, &result);
  return result;
}

std::vector<OrvaneKeyPair> keyPairList(const std::string& serial, void* libraryContext) {
  ReceivedKeyPairs received;
  const auto receive = [](void* receiver, const OrvaneKeyPair* keyPairs, std::size_t count) {
    static_cast<ReceivedKeyPairs*>(receiver)->fill([&](auto& copy) { copy.assign(keyPairs, keyPairs + count); });
  };
  call("orvane_getKeyPairList", orvaneBoundaryGetKeyPairList, serial.c_str(), libraryContext, receive, &received);
  return received.take();
}

bool changeUserPassword(const std::string& serial, const char* oldPin, const char* newPin, int& attemptsRemaining) {
  bool result = false;
  call("orvane_changeUserPassword", orvaneBoundaryChangeUserPassword, serial.c_str(), oldPin, newPin,
       &attemptsRemaining, &result);
  return result;
}

bool changeSOPassword(const std::string& serial, std::string_view oldSoPin, std::string_view newSoPin) {
  const OrvaneBoundaryText oldText{oldSoPin.data(), oldSoPin.size()};
  const OrvaneBoundaryText newText{newSoPin.data(), newSoPin.size()};
  bool result = false;
  call("orvane_changeSOPassword", orvaneBoundaryChangeSoPassword, serial.c_str(), &oldText, &newText, &result);
  return result;
}

int signHash(const std::string& serial, const unsigned char* credentialId, const char* pin, const unsigned char* hash,
             int hashLength, unsigned char* signature, int& signatureLength) {
  int result = 0;
  call("orvane_signHash", orvaneBoundarySignHash, serial.c_str(), credentialId, pin, hash, hashLength, signature,
       &signatureLength, &result);
  return result;
}

int decrypt(const std::string& serial, const unsigned char* credentialId, const char* pin, const unsigned char* input,
            int inputLength, unsigned char*& output, int& outputLength) {
  int result = 0;
  call("orvane_decrypt", orvaneBoundaryDecrypt, serial.c_str(), credentialId, pin, input, inputLength, &output,
       &outputLength, &result);
  return result;
}

const OrvaneCertificate* findCertificateForKey(const std::string& serial, const unsigned char* credentialId,
                                               void* libraryContext) {
  const OrvaneCertificate* result = nullptr;
  call("orvane_findCertificateForKey", orvaneBoundaryFindCertificateForKey, serial.c_str(), credentialId,
       libraryContext, &result);
  return result;
}

void setExternalSmartcardHandle(CardHandle cardHandle) {
  call("orvane_setExternalSmartcardHandle", orvaneBoundarySetExternalSmartcardHandle, toPointer(cardHandle));
}

void clearExternalSmartcardHandle() {
  call("orvane_clearExternalSmartcardHandle", orvaneBoundaryClearExternalSmartcardHandle);
}

}  // namespace orvane::tokenlib
