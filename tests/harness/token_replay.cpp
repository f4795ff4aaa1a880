#include "token_replay.h"

#include <cstdint>
#include <cstdlib>
#include <map>

#include "harness/test_token.h"
#include "tokenlib/token_client.h"

namespace orvane::test {
namespace {

constexpr std::uint8_t kCredential[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

void replaySignature() {
  constexpr std::uint8_t kHash[32] = {};
  std::uint8_t signature[1024];
  int length = sizeof(signature);
  tokenlib::signHash(kSerial, kCredential, kUserPin, kHash, sizeof(kHash), signature, length);
}

void replayDecryption() {
  constexpr std::uint8_t kInput[256] = {};
  unsigned char* output = nullptr;
  int length = 0;
  if (tokenlib::decrypt(kSerial, kCredential, kUserPin, kInput, sizeof(kInput), output, length) == 0) {
    std::free(output);
  }
}

}  // namespace

void replayTokenCall(std::string_view function) {
  using Replay = void (*)();
  static const std::map<std::string_view, Replay> replays = {
      {"orvane_init", [] { tokenlib::init(0); }},
      {"orvane_getConnectedDeviceList", [] { tokenlib::connectedDeviceList(); }},
      {"orvane_initDevice", [] { tokenlib::initDevice(kSerial, true); }},
      {"orvane_getTokenInfo", [] { tokenlib::getTokenInfo(kSerial); }},
      {"orvane_validatePassword",
       [] {
         int attempts = 1;
         tokenlib::validatePassword(kSerial, kUserPin, attempts);
       }},
      {"orvane_getKeyPairList", [] { tokenlib::keyPairList(kSerial, nullptr); }},
      {"orvane_changeUserPassword",
       [] {
         int attempts = 1;
         tokenlib::changeUserPassword(kSerial, kUserPin, kUserPin, attempts);
       }},
      {"orvane_changeSOPassword", [] { tokenlib::changeSOPassword(kSerial, kSoPin, kSoPin); }},
      {"orvane_signHash", replaySignature},
      {"orvane_decrypt", replayDecryption},
      {"orvane_findCertificateForKey", [] { tokenlib::findCertificateForKey(kSerial, kCredential, nullptr); }},
      {"orvane_setExternalSmartcardHandle", [] { tokenlib::setExternalSmartcardHandle(kCardHandle); }},
      {"orvane_clearExternalSmartcardHandle", [] { tokenlib::clearExternalSmartcardHandle(); }}};
  replays.at(function)();
}

}  // namespace orvane::test
