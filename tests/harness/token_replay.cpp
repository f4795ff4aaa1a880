#include "token_replay.h"

#include <cstdint>
#include <cstdlib>
#include <map>

#include "harness/all_calls.h"
#include "tokenlib/token_client.h"

namespace orvane::test {
namespace {

constexpr std::uint8_t kCredential[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

void replaySignature() {
  constexpr std::uint8_t kHash[32] = {};
  std::uint8_t signature[1024];
  int length = sizeof(signature);
  tokenlib::signHash(kFaultSerial, kCredential, kFaultPin, kHash, sizeof(kHash), signature, length);
}

void replayDecryption() {
  constexpr std::uint8_t kInput[256] = {};
  unsigned char* output = nullptr;
  int length = 0;
  if (tokenlib::decrypt(kFaultSerial, kCredential, kFaultPin, kInput, sizeof(kInput), output, length) == 0) {
    std::free(output);
  }
}

}  // namespace

void replayTokenCall(std::string_view function) {
  using Replay = void (*)();
  static const std::map<std::string_view, Replay> replays = {
      {"orvane_init", [] { tokenlib::init(0); }},
      {"orvane_getConnectedDeviceList", [] { tokenlib::connectedDeviceList(); }},
      {"orvane_initDevice", [] { tokenlib::initDevice(kFaultSerial, true); }},
      {"orvane_getTokenInfo", [] { tokenlib::getTokenInfo(kFaultSerial); }},
      {"orvane_validatePassword",
       [] {
         int attempts = 1;
         tokenlib::validatePassword(kFaultSerial, kFaultPin, attempts);
       }},
      {"orvane_getKeyPairList", [] { tokenlib::keyPairList(kFaultSerial, nullptr); }},
      {"orvane_changeUserPassword",
       [] {
         int attempts = 1;
         tokenlib::changeUserPassword(kFaultSerial, kFaultPin, kFaultPin, attempts);
       }},
      {"orvane_changeSOPassword", [] { tokenlib::changeSOPassword(kFaultSerial, kFaultSoPin, kFaultSoPin); }},
      {"orvane_signHash", replaySignature},
      {"orvane_decrypt", replayDecryption},
      {"orvane_findCertificateForKey", [] { tokenlib::findCertificateForKey(kFaultSerial, kCredential, nullptr); }},
      {"orvane_setExternalSmartcardHandle", [] { tokenlib::setExternalSmartcardHandle(kFaultCardHandle); }},
      {"orvane_clearExternalSmartcardHandle", [] { tokenlib::clearExternalSmartcardHandle(); }}};
  replays.at(function)();
}

}  // namespace orvane::test
