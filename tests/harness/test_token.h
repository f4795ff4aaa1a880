// The token of the tests: its serial, its PINs, the card handle, and tokens in memory that are made of keys with
// readable bytes. Tests, benchmark and fuzz targets define their tokens here and nowhere else.
#ifndef ORVANE_TESTS_HARNESS_TEST_TOKEN_H
#define ORVANE_TESTS_HARNESS_TEST_TOKEN_H

#include <cstdint>
#include <string>
#include <vector>

#include "harness/test_values.h"
#include "softtoken/softtoken_control.h"

namespace orvane::test {

// The one token of most tests, and a second one where it takes two.
inline constexpr char kSerial[] = "0012AB";
inline constexpr char kOtherSerial[] = "0034CD";

// The handle in the record of an open context.
inline constexpr SCARDHANDLE kCardHandle = 0x2A;

// The PINs that a token has at first, those that it is changed to, and one that it never has. All end alike, so that
// one text finds any of them, and are longer than what a string keeps without allocating.
inline constexpr char kPinMark[] = "-pin-for-a-test";
inline constexpr char kUserPin[] = "Tr7-user-pin-for-a-test";
inline constexpr char kNewPin[] = "Nq4-fresh-pin-for-a-test";
inline constexpr char kWrongPin[] = "Wv9-wrong-pin-for-a-test";
inline constexpr char kSoPin[] = "Ko2-officer-pin-for-a-test";
inline constexpr char kNewSoPin[] = "Zu8-officer-pin-for-a-test";

// A token in memory, with firmware "2.1.0": a test states what matters to it, the rest is as here.
struct TestToken {
  std::string serial = kSerial;
  std::vector<OrvaneKeyPair> keys = {};
  // The length of each key's certificate, whose bytes count up from the first byte of the key's credential id; 0: there
  // are no certificates.
  std::uint32_t certificateLength = 0;
  std::string userPin = kUserPin;
  std::string soPin = kSoPin;
  int tries = 3;  // for each PIN
  bool isFips = false;
};

// Defines and connects the token; one that has the serial already is replaced. Throws std::runtime_error when the
// software token refuses.
void defineToken(const TestToken& token);

// Gives a key of the token a certificate. Throws as defineToken does.
void setCertificate(const char* serial, const OrvaneKeyPair& key, const OrvaneCertificate& certificate);

// A key record with readable bytes: credentialId = 16 times `id`, modulus = 01 02 03 ... FF 00 01 ..., the algorithm
// code and the modulus length of `bits` (1024, 2048, 3072, 4096), and the usage.
OrvaneKeyPair makeKey(std::uint8_t id, int usage, unsigned bits = 2048);
// The 32 hexadecimal digits of such a key's credentialId, as log lines and recorded calls show them.
std::string idOf(std::uint8_t id);
// A certificate record whose bytes count up from `first`.
OrvaneCertificate makeCertificate(std::uint8_t first, std::uint32_t length);

// A request to sign the hash with the first key. The hash stays the caller's and must outlive the request.
CARD_SIGNING_INFO signingOf(Bytes& hash, DWORD flags = 0);
// A request to decrypt the block with the first key, with a padding that is not named. The block stays the caller's,
// takes the plaintext and must outlive the request.
CARD_RSA_DECRYPT_INFO decryptionOf(Bytes& block, DWORD keySpec = AT_KEYEXCHANGE);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_TEST_TOKEN_H
