// Public keys in the form that the base provider expects.
#ifndef ORVANE_MINIDRIVER_CONTAINERS_PUBLIC_KEY_BLOB_H
#define ORVANE_MINIDRIVER_CONTAINERS_PUBLIC_KEY_BLOB_H

#include <cstdint>

#include "platform/card_module.h"
#include "tokenlib/token_library.h"

namespace orvane {

// What a key is for, as a blob's algorithm names it.
enum class KeySpecification : std::uint8_t { kSignature = 0, kKeyExchange = 1 };

// BuildRsaPublicKeyBlob writes a PUBLICKEYBLOB of the key's modulus, its length + 20 bytes, little-endian, to `blob`
// and its size to `blobLength`. The buffer comes from the record's `pfnCspAlloc`; the caller owns it. The record holds
// the modulus with the most significant byte first, the blob reversed. The public exponent is always stated as 65537,
// since the token's key records carry none. Returns 0; ERROR_INVALID_PARAMETER for a key that states a longer modulus
// than its record can hold (1024 bytes); SCARD_E_NO_MEMORY. On failure nothing is written. Takes no lock.
DWORD BuildRsaPublicKeyBlob(const CARD_DATA& cardData, const OrvaneKeyPair& key, KeySpecification keySpecification,
                            PBYTE& blob, DWORD& blobLength);

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_CONTAINERS_PUBLIC_KEY_BLOB_H
