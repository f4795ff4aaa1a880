#include "softtoken/token_calls.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "softtoken/call_script.h"
#include "softtoken/call_text.h"
#include "softtoken/token_store.h"

using namespace orvane::softtoken;

namespace {

thread_local SofttokenThrown thrownLast{};

void noteThrown(const Reaction& reaction) {
  thrownLast = {};
  thrownLast.kind = reaction.kind;
  std::copy_n(reaction.output.begin(), std::min(reaction.output.size(), sizeof(thrownLast.text) - 1), thrownLast.text);
}

// Records the call and takes its reaction. Returns true when answer() has done everything that is left to do.
template <typename Answer>
bool prepared(Function function, const std::string& text, bool& completed, Answer answer) {
  const Reaction reaction = callScript().enter(function, text);
  completed = reaction.kind < kSofttokenThrow;
  if (!completed) noteThrown(reaction);
  if (reaction.kind == kSofttokenAnswer) answer(reaction);
  return reaction.kind != kSofttokenPass;
}

void store(int value, int* target) {
  if (value != kSofttokenKeep && target != nullptr) *target = value;
}

Bytes toBytes(const unsigned char* bytes, int length) {
  return bytes == nullptr || length <= 0 ? Bytes() : Bytes(bytes, bytes + length);
}

std::atomic<const void*> lastPlaintext{nullptr};

// A block that the caller releases with free; one byte at least, so that an empty text is no null pointer.
unsigned char* mallocCopy(const Bytes& bytes) {
  auto* const block = static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(bytes.size(), 1)));
  if (block != nullptr) std::copy(bytes.begin(), bytes.end(), block);
  lastPlaintext = block;
  return block;
}

void copyText(const std::string& text, char (&target)[64]) {
  const std::size_t length = std::min(text.size(), sizeof(target) - 1);
  std::copy_n(text.begin(), length, target);
  target[length] = '\0';
}

void receiveLines(const Bytes& lines, SofttokenTextReceiver receive, void* receiver) {
  std::string line;
  for (const std::uint8_t byte : lines) {
    if (byte == '\n') {
      receive(receiver, line.data(), line.size());
      line.clear();
    } else {
      line += static_cast<char>(byte);
    }
  }
}

void receiveRecords(const Bytes& records, SofttokenKeyPairReceiver receive, void* receiver) {
  for (std::size_t at = 0; at + sizeof(OrvaneKeyPair) <= records.size(); at += sizeof(OrvaneKeyPair)) {
    OrvaneKeyPair keyPair;
    std::memcpy(&keyPair, records.data() + at, sizeof(keyPair));
    receive(receiver, &keyPair);
  }
}

const OrvaneCertificate* answeredCertificate(const Reaction& reaction) {
  if (reaction.result == 0) return nullptr;
  OrvaneCertificate certificate{};
  std::memcpy(&certificate, reaction.output.data(), std::min(reaction.output.size(), sizeof(certificate)));
  return tokenStore().keep(certificate);
}

// Finds the key and checks the PIN; the work itself is done by the caller without the store's lock.
int openKey(const char* serial, const unsigned char* credentialId, const char* pin, bool refusedByFips, TokenKey& key) {
  int result = kSofttokenNoToken;
  tokenStore().withConnected(serial, [&](Token& token) {
    const TokenKey* const found = findKey(token, credentialId);
    if (found == nullptr) {
      result = kSofttokenNoKey;
    } else if (refusedByFips && token.fips) {
      result = kSofttokenFipsRefused;
    } else {
      result = checkUserPin(token, pin);
      key = *found;
    }
  });
  return result;
}

}  // namespace

extern "C" {

bool softtokenInit(int reserved, void* cardHandle, int mode, int* result) noexcept {
  bool completed = true;
  *result = kSofttokenOk;
  prepared(Function::kInit,
           callText("orvane_init", {std::to_string(reserved), pointerText(cardHandle), std::to_string(mode)}),
           completed, [&](const Reaction& reaction) { *result = static_cast<int>(reaction.result); });
  return completed;
}

bool softtokenGetConnectedDeviceList(bool reserved, void* libraryContext, SofttokenTextReceiver receive,
                                     void* receiver) noexcept {
  bool completed = true;
  if (prepared(Function::kGetConnectedDeviceList,
               callText("orvane_getConnectedDeviceList", {boolText(reserved), pointerText(libraryContext)}), completed,
               [&](const Reaction& reaction) { receiveLines(reaction.output, receive, receiver); })) {
    return completed;
  }
  for (const std::string& serial : tokenStore().connectedSerials()) receive(receiver, serial.data(), serial.size());
  return true;
}

bool softtokenInitDevice(const char* serial, bool reopen, void* libraryContext, int* result) noexcept {
  bool completed = true;
  if (prepared(Function::kInitDevice,
               callText("orvane_initDevice", {quotedText(serial), boolText(reopen), pointerText(libraryContext)}),
               completed, [&](const Reaction& reaction) { *result = static_cast<int>(reaction.result); })) {
    return completed;
  }
  *result = kSofttokenNoToken;
  tokenStore().withConnected(serial, [&](const Token& token) { *result = token.initResult; });
  return true;
}

bool softtokenGetTokenInfo(const char* serial, void* libraryContext, SofttokenInfo* info) noexcept {
  bool completed = true;
  if (prepared(Function::kGetTokenInfo,
               callText("orvane_getTokenInfo", {quotedText(serial), pointerText(libraryContext)}), completed,
               [&](const Reaction& reaction) {
                 copyText(std::string(reaction.output.begin(), reaction.output.end()), info->firmwareVersion);
                 info->passwordValidated = static_cast<std::uint32_t>(reaction.result);
               })) {
    return completed;
  }
  tokenStore().withConnected(serial, [&](const Token& token) {
    copyText(serial, info->serial);
    copyText(token.firmwareVersion, info->firmwareVersion);
    info->passwordValidated = token.passwordValidated == kSofttokenKeep
                                  ? static_cast<std::uint32_t>(token.userPinValidated)
                                  : static_cast<std::uint32_t>(token.passwordValidated);
  });
  return true;
}

bool softtokenValidatePassword(const char* serial, const char* pin, int role, int* attemptsRemaining,
                               void* libraryContext, int* result) noexcept {
  bool completed = true;
  if (prepared(Function::kValidatePassword,
               callText("orvane_validatePassword", {quotedText(serial), pinText(pin), std::to_string(role),
                                                    counterText(attemptsRemaining), pointerText(libraryContext)}),
               completed, [&](const Reaction& reaction) {
                 *result = static_cast<int>(reaction.result);
                 store(reaction.attempts, attemptsRemaining);
               })) {
    return completed;
  }
  *result = kSofttokenNoToken;
  tokenStore().withConnected(serial, [&](Token& token) {
    *result = checkUserPin(token, pin);
    if (*result != kSofttokenOk) store(token.userPin.triesLeft(), attemptsRemaining);
  });
  return true;
}

bool softtokenGetKeyPairList(const char* serial, void* libraryContext, SofttokenKeyPairReceiver receive,
                             void* receiver) noexcept {
  bool completed = true;
  if (prepared(Function::kGetKeyPairList,
               callText("orvane_getKeyPairList", {quotedText(serial), pointerText(libraryContext)}), completed,
               [&](const Reaction& reaction) { receiveRecords(reaction.output, receive, receiver); })) {
    return completed;
  }
  tokenStore().withConnected(serial, [&](const Token& token) {
    for (const TokenKey& key : token.keys) receive(receiver, &key.record);
  });
  return true;
}

bool softtokenChangeUserPassword(const char* serial, const char* oldPin, const char* newPin, int* attemptsRemaining,
                                 bool reserved0, bool reserved1, void* libraryContext, bool* result) noexcept {
  bool completed = true;
  if (prepared(Function::kChangeUserPassword,
               callText("orvane_changeUserPassword",
                        {quotedText(serial), pinText(oldPin), pinText(newPin), counterText(attemptsRemaining),
                         boolText(reserved0), boolText(reserved1), pointerText(libraryContext)}),
               completed, [&](const Reaction& reaction) {
                 *result = reaction.result != 0;
                 store(reaction.attempts, attemptsRemaining);
               })) {
    return completed;
  }
  *result = false;
  tokenStore().withConnected(serial, [&](Token& token) {
    *result = newPin != nullptr && checkUserPin(token, oldPin) == kSofttokenOk;
    if (*result) {
      token.userPin.replace(newPin);
    } else {
      store(token.userPin.triesLeft(), attemptsRemaining);
    }
  });
  return true;
}

bool softtokenChangeSoPassword(const char* serial, const char* oldSoPin, std::size_t oldLength, const char* newSoPin,
                               std::size_t newLength, void* libraryContext, bool* result) noexcept {
  bool completed = true;
  if (prepared(Function::kChangeSoPassword,
               callText("orvane_changeSOPassword", {quotedText(serial), pinText(oldSoPin, oldLength),
                                                    pinText(newSoPin, newLength), pointerText(libraryContext)}),
               completed, [&](const Reaction& reaction) { *result = reaction.result != 0; })) {
    return completed;
  }
  *result = false;
  tokenStore().withConnected(serial, [&](Token& token) {
    *result = token.soPin.check({oldSoPin, oldLength}) == kSofttokenOk;
    if (*result) token.soPin.replace({newSoPin, newLength});
  });
  return true;
}

bool softtokenSignHash(const char* serial, const unsigned char* credentialId, const char* pin,
                       const unsigned char* hash, int hashLength, unsigned char* signature, int* signatureLength,
                       bool reserved0, void* libraryContext, bool reserved1, int* result) noexcept {
  bool completed = true;
  if (prepared(Function::kSignHash,
               callText("orvane_signHash", {quotedText(serial), bytesText(credentialId, 16), pinText(pin),
                                            bytesText(hash, hashLength), std::to_string(hashLength),
                                            boolText(reserved0), pointerText(libraryContext), boolText(reserved1)}),
               completed, [&](const Reaction& reaction) {
                 *result = static_cast<int>(reaction.result);
                 if (signature != nullptr) std::copy(reaction.output.begin(), reaction.output.end(), signature);
                 store(reaction.length, signatureLength);
               })) {
    return completed;
  }
  TokenKey key;
  *result = openKey(serial, credentialId, pin, hashLength == 16 || hashLength == 20, key);
  if (*result != kSofttokenOk) return true;
  Bytes made;
  *result = signature == nullptr || signatureLength == nullptr ? kSofttokenBadData
                                                               : signWithKey(key, toBytes(hash, hashLength), made);
  if (*result != kSofttokenOk) return true;
  std::copy(made.begin(), made.end(), signature);
  *signatureLength = static_cast<int>(made.size());
  return true;
}

bool softtokenDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                      const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                      bool reserved, void* libraryContext, int* result) noexcept {
  bool completed = true;
  if (prepared(Function::kDecrypt,
               callText("orvane_decrypt",
                        {quotedText(serial), bytesText(credentialId, 16), pinText(pin), bytesText(input, inputLength),
                         std::to_string(inputLength), boolText(reserved), pointerText(libraryContext)}),
               completed, [&](const Reaction& reaction) {
                 *result = static_cast<int>(reaction.result);
                 if (output != nullptr) *output = reaction.hasOutput ? mallocCopy(reaction.output) : nullptr;
                 store(reaction.length, outputLength);
               })) {
    return completed;
  }
  TokenKey key;
  *result = openKey(serial, credentialId, pin, false, key);
  if (*result != kSofttokenOk) return true;
  Bytes plain;
  *result = output == nullptr || outputLength == nullptr ? kSofttokenBadData
                                                         : decryptWithKey(key, toBytes(input, inputLength), plain);
  if (*result != kSofttokenOk) return true;
  *output = mallocCopy(plain);
  *outputLength = static_cast<int>(plain.size());
  return true;
}

bool softtokenFindCertificateForKey(const char* serial, const unsigned char* credentialId, void* libraryContext,
                                    const OrvaneCertificate** result) noexcept {
  bool completed = true;
  if (prepared(Function::kFindCertificateForKey,
               callText("orvane_findCertificateForKey",
                        {quotedText(serial), bytesText(credentialId, 16), pointerText(libraryContext)}),
               completed, [&](const Reaction& reaction) { *result = answeredCertificate(reaction); })) {
    return completed;
  }
  *result = nullptr;
  OrvaneCertificate certificate{};
  bool found = false;
  tokenStore().withConnected(serial, [&](const Token& token) {
    if (credentialId == nullptr) return;
    CredentialId id;
    std::copy_n(credentialId, id.size(), id.begin());
    const auto entry = token.certificates.find(id);
    if (entry == token.certificates.end()) return;
    certificate = entry->second;
    found = true;
  });
  if (found) *result = tokenStore().keep(certificate);
  return true;
}

bool softtokenSetExternalSmartcardHandle(void* cardHandle) noexcept {
  bool completed = true;
  if (!prepared(Function::kSetExternalSmartcardHandle,
                callText("orvane_setExternalSmartcardHandle", {pointerText(cardHandle)}), completed,
                [](const Reaction&) {})) {
    callScript().setCardHandle(reinterpret_cast<std::uintptr_t>(cardHandle));
  }
  return completed;
}

bool softtokenClearExternalSmartcardHandle() noexcept {
  bool completed = true;
  if (!prepared(Function::kClearExternalSmartcardHandle, callText("orvane_clearExternalSmartcardHandle", {}), completed,
                [](const Reaction&) {})) {
    callScript().setCardHandle(0);
  }
  return completed;
}

const void* softtokenLastPlaintext() noexcept { return lastPlaintext; }

void softtokenThrown(SofttokenThrown* thrown) noexcept { *thrown = thrownLast; }

void softtokenKeepKeyList(void* list, void (*destroy)(void* list)) noexcept {
  struct KeptList {
    void* list = nullptr;
    void (*destroy)(void* list) = nullptr;
  };
  static std::mutex mutex;
  // Without memory for this the program ends, which is right for a token that serves tests.
  // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new)
  static auto* const lists = new std::map<unsigned long long, KeptList>;
  KeptList previous;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    previous = std::exchange((*lists)[currentThread()], KeptList{list, destroy});
  }
  if (previous.list != nullptr) previous.destroy(previous.list);
}

}  // extern "C"
