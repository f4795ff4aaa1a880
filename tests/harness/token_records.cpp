// Token records whose bytes tell a reader where they come from.
#include <cstring>

#include "driver_test.h"
#include "support/hex_text.h"

namespace orvane::test {

CARD_RSA_DECRYPT_INFO decryptionOf(Bytes& block, DWORD keySpec) {
  CARD_RSA_DECRYPT_INFO info{};
  info.dwVersion = CARD_RSA_KEY_DECRYPT_INFO_VERSION_TWO;
  info.dwKeySpec = keySpec;
  info.pbData = block.data();
  info.cbData = static_cast<DWORD>(block.size());
  return info;
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

std::string guidOf(std::uint8_t id) {
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

}  // namespace orvane::test
