#include "harness/test_token.h"

#include <cstring>
#include <stdexcept>

#include "support/hex_text.h"

namespace orvane::test {
namespace {

void expectDone(int isDone) {
  if (isDone != 1) throw std::runtime_error("the software token refuses a definition");
}

}  // namespace

void defineToken(const TestToken& token) {
  const SofttokenTokenDefinition definition{token.serial.c_str(), "2.1.0",     token.userPin.c_str(),
                                            token.soPin.c_str(),  token.tries, token.tries,
                                            token.isFips ? 1 : 0, 0,           kSofttokenKeep};
  expectDone(softtoken_define_token(&definition));
  for (const OrvaneKeyPair& key : token.keys) {
    expectDone(softtoken_add_key(token.serial.c_str(), &key));
    if (token.certificateLength == 0) continue;
    setCertificate(token.serial.c_str(), key, makeCertificate(key.credentialId[0], token.certificateLength));
  }
}

void setCertificate(const char* serial, const OrvaneKeyPair& key, const OrvaneCertificate& certificate) {
  expectDone(softtoken_set_certificate(serial, key.credentialId, &certificate));
}

OrvaneKeyPair makeKey(std::uint8_t id, int usage, unsigned bits) {
  OrvaneKeyPair key;
  std::memset(&key, 0xEE, sizeof(key));
  std::memset(key.credentialId, id, sizeof(key.credentialId));
  key.modulusLength = bits / 8;
  for (unsigned i = 0; i < key.modulusLength; ++i) key.modulus[i] = static_cast<std::uint8_t>(i + 1);
  key.keyUsage = usage;
  key.algorithm = bits / 1024;
  return key;
}

std::string idOf(std::uint8_t id) {
  const Bytes credentialId(16, id);
  return hexText<std::string>(credentialId.data(), credentialId.size());
}

OrvaneCertificate makeCertificate(std::uint8_t first, std::uint32_t length) {
  OrvaneCertificate certificate;
  std::memset(&certificate, 0xEE, sizeof(certificate));
  certificate.certLength = length;
  for (std::uint32_t i = 0; i < length && i < sizeof(certificate.certData); ++i) {
    certificate.certData[i] = static_cast<std::uint8_t>(first + i);
  }
  return certificate;
}

CARD_SIGNING_INFO signingOf(Bytes& hash, DWORD flags) {
  CARD_SIGNING_INFO info{};
  info.dwSigningFlags = flags;
  info.pbData = hash.data();
  info.cbData = static_cast<DWORD>(hash.size());
  return info;
}

CARD_RSA_DECRYPT_INFO decryptionOf(Bytes& block, DWORD keySpec) {
  CARD_RSA_DECRYPT_INFO info{};
  info.dwVersion = CARD_RSA_KEY_DECRYPT_INFO_VERSION_TWO;
  info.dwKeySpec = keySpec;
  info.pbData = block.data();
  info.cbData = static_cast<DWORD>(block.size());
  return info;
}

}  // namespace orvane::test
