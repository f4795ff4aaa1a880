#include "floor.h"

#include <cstdlib>
#include <map>
#include <stdexcept>

#include "platform/append_file.h"
#include "tokenlib/token_client.h"

namespace orvane::bench {
namespace {

using test::kFaultCardHandle;
using test::kFaultPin;
using test::kFaultSerial;
using test::kFaultSoPin;

const std::uint8_t* firstCredential() {
  static const test::Bytes id(16, 1);
  return id.data();
}

void replaySignature() {
  static const std::uint8_t hash[32] = {};
  std::uint8_t signature[1024];
  int length = sizeof(signature);
  tokenlib::signHash(kFaultSerial, firstCredential(), kFaultPin, hash, sizeof(hash), signature, length);
}

void replayDecryption() {
  static const std::uint8_t input[256] = {};
  unsigned char* output = nullptr;
  int length = 0;
  tokenlib::decrypt(kFaultSerial, firstCredential(), kFaultPin, input, sizeof(input), output, length);
  std::free(output);
}

using Replay = void (*)();
const std::map<std::string, Replay>& replays() {
  static const std::map<std::string, Replay> all = {
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
      {"orvane_findCertificateForKey",
       [] { tokenlib::findCertificateForKey(kFaultSerial, firstCredential(), nullptr); }},
      {"orvane_setExternalSmartcardHandle", [] { tokenlib::setExternalSmartcardHandle(kFaultCardHandle); }},
      {"orvane_clearExternalSmartcardHandle", [] { tokenlib::clearExternalSmartcardHandle(); }}};
  return all;
}

}  // namespace

void replayTokenCalls(const std::vector<std::string>& calls) {
  for (const std::string& name : calls) replays().at(name)();
}

void runFloor(const Floor& floor, bool isLogOn, const std::string& file) {
  for (const std::string& line : floor.lines) {
    unsigned char level[32];
    DWORD size = sizeof(level);
    RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Brightfold\\Orvane", "logLevel", RRF_RT_ANY, nullptr, level, &size);
    if (isLogOn && !appendToFile(file.c_str(), line)) throw std::runtime_error("cannot write to " + file);
  }
  for (const std::size_t size : floor.requests) benchAllocate(size);
  replayTokenCalls(floor.tokenCalls);
}

}  // namespace orvane::bench
