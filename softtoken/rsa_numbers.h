// The numbers of an RSA private key, read from the PKCS #1 form (RSAPrivateKey, DER).
#ifndef ORVANE_SOFTTOKEN_RSA_NUMBERS_H
#define ORVANE_SOFTTOKEN_RSA_NUMBERS_H

#include <cstdint>
#include <vector>

namespace orvane::softtoken {

// All big-endian without leading zeros.
struct RsaNumbers {
  std::vector<std::uint8_t> modulus;
  std::vector<std::uint8_t> publicExponent;
  std::vector<std::uint8_t> privateExponent;
  std::vector<std::uint8_t> prime1;
  std::vector<std::uint8_t> prime2;
  std::vector<std::uint8_t> exponent1;
  std::vector<std::uint8_t> exponent2;
  std::vector<std::uint8_t> coefficient;
};

// false, with numbers unchanged, when the bytes are not one RSAPrivateKey of version 0 (two primes).
bool readRsaPrivateKey(const std::vector<std::uint8_t>& der, RsaNumbers& numbers);

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_RSA_NUMBERS_H
