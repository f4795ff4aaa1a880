#include "minidriver/containers/public_key_blob.h"

#include <algorithm>
#include <cstring>

#include "minidriver/frame/csp_buffer.h"
#include "minidriver/frame/entry.h"

namespace orvane {
namespace {

struct RsaPublicKeyHeader {
  PUBLICKEYSTRUC key;
  RSAPUBKEY rsa;
};
static_assert(sizeof(RsaPublicKeyHeader) == 20);

constexpr DWORD kRsaPublicKeyMagic = 0x31415352;  // the characters "RSA1"
constexpr DWORD kPublicExponent = 65537;

}  // namespace

DWORD BuildRsaPublicKeyBlob(const CARD_DATA& cardData, const OrvaneKeyPair& key, KeySpecification keySpecification,
                            PBYTE& blob, DWORD& blobLength) {
  const DWORD modulusLength = key.modulusLength;
  if (modulusLength > sizeof(key.modulus)) return decline(ERROR_INVALID_PARAMETER, "invalid param ");
  const DWORD totalLength = modulusLength + DWORD{sizeof(RsaPublicKeyHeader)};
  BYTE* contents = allocateForCaller(cardData, totalLength);
  if (contents == nullptr) return decline(SCARD_E_NO_MEMORY, "no memory");
  RsaPublicKeyHeader header{};
  header.key.bType = PUBLICKEYBLOB;
  header.key.bVersion = CUR_BLOB_VERSION;
  header.key.aiKeyAlg = CALG_RSA_SIGN | (static_cast<ALG_ID>(keySpecification) << 15);
  header.rsa.magic = kRsaPublicKeyMagic;
  header.rsa.bitlen = modulusLength * 8;
  header.rsa.pubexp = kPublicExponent;
  std::memcpy(contents, &header, sizeof(header));
  std::reverse_copy(key.modulus, key.modulus + modulusLength, contents + sizeof(header));
  blob = contents;
  blobLength = totalLength;
  return statusCode(SCARD_S_SUCCESS);
}

}  // namespace orvane
