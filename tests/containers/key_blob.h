// What a public key blob must look like.
#ifndef ORVANE_TESTS_CONTAINERS_KEY_BLOB_H
#define ORVANE_TESTS_CONTAINERS_KEY_BLOB_H

#include "harness/test_token.h"

namespace orvane::test {

// The algorithms that a blob states.
inline constexpr std::uint32_t kSignatureBlob = 0x2400;
inline constexpr std::uint32_t kKeyExchangeBlob = 0xA400;

// The blob of a key: a header, then the modulus with its least significant byte first.
inline Bytes blobOf(const OrvaneKeyPair& key, std::uint32_t algorithm) {
  Bytes blob = {6, 2, 0, 0};
  for (const std::uint32_t word : {algorithm, 0x31415352u, key.modulusLength * 8, 65537u}) {
    for (unsigned shift = 0; shift < 32; shift += 8) blob.push_back(static_cast<std::uint8_t>(word >> shift));
  }
  for (std::size_t i = key.modulusLength; i > 0; --i) blob.push_back(key.modulus[i - 1]);
  return blob;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_CONTAINERS_KEY_BLOB_H
