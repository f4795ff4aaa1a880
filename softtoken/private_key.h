// RSA private keys for tokens that are described by a folder. The arithmetic is the operating system's: OpenSSL on the
// host (private_key_openssl.cpp), CNG on Windows (private_key_cng.cpp).
#ifndef ORVANE_SOFTTOKEN_PRIVATE_KEY_H
#define ORVANE_SOFTTOKEN_PRIVATE_KEY_H

#include <cstdint>
#include <memory>
#include <vector>

#include "softtoken/rsa_numbers.h"

namespace orvane::softtoken {

using Bytes = std::vector<std::uint8_t>;

// Any thread may call the member functions, several at once.
class PrivateKey {
 public:
  virtual ~PrivateKey() = default;

  // Makes the PKCS #1 v1.5 signature of a hash of 16 (MD5), 20 (SHA-1), 32, 48 or 64 (SHA-2) bytes, big-endian and as
  // long as the modulus. false, with signature unchanged, for other lengths and on failure.
  virtual bool sign(const Bytes& hash, Bytes& signature) const = 0;

  // Decrypts a big-endian cipher text and removes OAEP (SHA-256, empty label) or PKCS #1 v1.5 padding, whichever fits.
  // OAEP is tried first because a wrong guess cannot pass its checks. false, with plain unchanged, on failure.
  virtual bool decrypt(const Bytes& cipher, Bytes& plain) const = 0;
};

// Null when the numbers are not those of a key that the operating system takes.
std::shared_ptr<const PrivateKey> makePrivateKey(const RsaNumbers& numbers);

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_PRIVATE_KEY_H
