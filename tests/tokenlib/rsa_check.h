// RSA with public keys, to check what the software token does with the private ones: OpenSSL on the host
// (rsa_check_openssl.cpp), CNG on Windows (rsa_check_cng.cpp). The public exponent is 65537.
#ifndef ORVANE_TESTS_TOKENLIB_RSA_CHECK_H
#define ORVANE_TESTS_TOKENLIB_RSA_CHECK_H

#include <cstdint>
#include <vector>

namespace orvane::tokentest {

using Bytes = std::vector<std::uint8_t>;

// The paddings that the software token removes.
enum class RsaPadding { kPkcs1, kOaepSha256 };

// Whether signature (big-endian) is the PKCS #1 v1.5 signature of a hash of 16 (MD5), 20 (SHA-1), 32, 48 or 64 bytes.
bool verifyRsaSignature(const Bytes& modulus, const Bytes& hash, const Bytes& signature);

// Encrypts for the key (OAEP with an empty label); the result is big-endian, and empty on failure.
Bytes encryptRsa(const Bytes& modulus, RsaPadding padding, const Bytes& plain);

}  // namespace orvane::tokentest

#endif  // ORVANE_TESTS_TOKENLIB_RSA_CHECK_H
