// Small helpers over the software token's control interface, for tests.
#ifndef ORVANE_TESTS_TOKENLIB_SOFTTOKEN_TOOLS_H
#define ORVANE_TESTS_TOKENLIB_SOFTTOKEN_TOOLS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "harness/recorded_calls.h"
#include "softtoken/softtoken_control.h"

namespace orvane::tokentest {

// Every test starts and ends with a software token that knows nothing; held calls go on at the end.
class SofttokenTest : public ::testing::Test {
 protected:
  void SetUp() override { resetSofttoken(); }
  void TearDown() override { resetSofttoken(); }

  static void resetSofttoken() {
    softtoken_reset();
    softtoken_set_folder("");
  }
};

using test::recordedCalls;

// A key pair record of the given size and usage: the credential id is 16 times idByte, the modulus is filled with it,
// and everything that callers do not read is poisoned.
inline OrvaneKeyPair makeKeyPair(std::uint8_t idByte, std::uint32_t modulusLength, std::int32_t keyUsage) {
  OrvaneKeyPair keyPair;
  std::memset(&keyPair, 0xEE, sizeof(keyPair));
  std::memset(keyPair.credentialId, idByte, sizeof(keyPair.credentialId));
  std::memset(keyPair.modulus, idByte, modulusLength);
  keyPair.modulusLength = modulusLength;
  keyPair.keyUsage = keyUsage;
  keyPair.algorithm = modulusLength / 128;
  return keyPair;
}

// A token with the user PIN 1234, the security officer's PIN 87654321 and three tries for each.
inline void defineToken(const char* serial, int fips = 0, const char* firmwareVersion = "2.1.0") {
  const SofttokenTokenDefinition definition{serial, firmwareVersion, "1234", "87654321", 3, 3, fips, 0, kSofttokenKeep};
  ASSERT_EQ(softtoken_define_token(&definition), 1);
}

// A reaction that leaves counters and lengths as they are.
inline SofttokenReaction makeReaction(SofttokenReactionKind kind, long long result = 0) {
  return {kind, 0, result, kSofttokenKeep, kSofttokenKeep, nullptr, 0};
}

// The same with bytes to hand out; they must live until the reaction is queued.
inline SofttokenReaction makeReaction(std::string_view output, long long result = 0) {
  SofttokenReaction reaction = makeReaction(kSofttokenAnswer, result);
  reaction.output = reinterpret_cast<const unsigned char*>(output.data());
  reaction.outputLength = output.size();
  return reaction;
}

}  // namespace orvane::tokentest

#endif  // ORVANE_TESTS_TOKENLIB_SOFTTOKEN_TOOLS_H
