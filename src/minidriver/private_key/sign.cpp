// Signing: CardSignData.
//
// Nothing is padded, hashed or formatted here. The token library gets the bare hash and decides on the rest.
#include <algorithm>
#include <array>

#include "cache/process_state.h"
#include "minidriver/frame/card_handover.h"
#include "minidriver/frame/csp_buffer.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "support/secret.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

constexpr std::uint32_t kAlgorithmRsa1024 = 1;

// The library's answer when a FIPS 140-3 token refuses the hash algorithm.
constexpr int kHashRefusedByFips = 51;

// Size in bytes of a signature by a key of this algorithm code. An unknown code is taken for RSA-2048.
DWORD modulusSizeOf(std::uint32_t algorithm) {
  switch (algorithm) {
    case kAlgorithmRsa1024:
      return 128;
    case 2:
      return 256;
    case 3:
      return 384;
    case 4:
      return 512;
    default:
      logError("CardSignData: unknown key algorithm, defaulting to 256 bytes");
      return 256;
  }
}

int signOnToken(const CARD_DATA& cardData, const std::string& serial, const OrvaneKeyPair& key,
                const CARD_SIGNING_INFO& info, BYTE* signature, int& signatureLength) {
  const SecretText pin = processState().deviceCache.getCachedPassword(serial);
  const CardHandover handover(cardData);
  return tokenlib::signHash(serial, key.credentialId, pin.c_str(), info.pbData, static_cast<int>(info.cbData),
                            signature, signatureLength);
}

// From the allocation on: on every failure the buffer stays in `pbSignedData`, where the caller finds and frees it.
DWORD signWithKey(const CARD_DATA& cardData, const std::string& serial, const OrvaneKeyPair& key,
                  CARD_SIGNING_INFO& info) {
  const DWORD modulusSize = modulusSizeOf(key.algorithm);
  logDebug("CardSignData: modulus size determined = ", modulusSize);
  if (cardData.pfnCspAlloc == nullptr) {
    return refuse(ERROR_INVALID_PARAMETER, "CardSignData: allocator not available");
  }
  // Before the size-only test, on purpose: a size-only call leaves the caller a buffer, too.
  info.pbSignedData = allocateForCaller(cardData, modulusSize);
  if (info.pbSignedData == nullptr) return refuse(SCARD_E_NO_MEMORY, "CardSignData: allocation failed");
  if ((info.dwSigningFlags & CARD_BUFFER_SIZE_ONLY) != 0) {
    info.cbSignedData = modulusSize;
    return succeed("CardSignData: buffer size only -> ", modulusSize);
  }
  logDebug("CardSignData: hash length=", info.cbData);
  if (key.algorithm == kAlgorithmRsa1024 && processState().deviceCache.hasRecord(serial)) {
    return refuse(SCARD_E_UNSUPPORTED_FEATURE,
                  "CardSignData: RSA-1024 signing not allowed — key size below 112-bit security strength");
  }
  int signatureLength = 0;
  // The library writes as many bytes as the key has. A key that is longer than its algorithm code says gets room of its
  // own; a signature that does not fit the caller's buffer is refused by its length below.
  std::array<BYTE, sizeof(OrvaneKeyPair::modulus)> longSignature{};
  BYTE* const signature = key.modulusLength <= modulusSize ? info.pbSignedData : longSignature.data();
  const int result = signOnToken(cardData, serial, key, info, signature, signatureLength);
  if (result == kHashRefusedByFips) {
    return refuse(SCARD_E_UNSUPPORTED_FEATURE, "CardSignData: SHA1/MD5 signing blocked on FIPS 140-3 token");
  }
  if (result != 0) return refuse(SCARD_E_INVALID_PARAMETER, "CardSignData: orvane_signHash failed, ret=", result);
  if (signatureLength <= 0 || signatureLength > static_cast<int>(modulusSize)) {
    return refuse(SCARD_E_INVALID_PARAMETER, "CardSignData: invalid signature length ", signatureLength);
  }
  // The library's signature is big-endian, the provider expects the least significant byte first.
  if (signature != info.pbSignedData) std::copy_n(signature, signatureLength, info.pbSignedData);
  std::reverse(info.pbSignedData, info.pbSignedData + signatureLength);
  info.cbSignedData = static_cast<DWORD>(signatureLength);
  return succeed("CardSignData: success, signature length=", signatureLength);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardSignData(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pInfo == nullptr || pInfo->pbData == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardSignData: invalid parameters");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardSignData: provider context is NULL");
    const BYTE index = pInfo->bContainerIndex;
    logDebug("=== CardSignData: serial=[", context->serialNumber, "]", " containerIndex=", index,
             " containerListSize=", context->containerCount(), " dwSigningFlags=0x", hex8(pInfo->dwSigningFlags),
             " userPinAuth=", context->userAuthenticated);
    if (index >= context->containerCount()) {
      return refuse(SCARD_E_NO_KEY_CONTAINER, "CardSignData: invalid container index");
    }
    const ContainerEntry& container = context->container(index);
    if (container.keyPairs.empty()) {
      return refuse(SCARD_E_NO_KEY_CONTAINER, "CardSignData: container has no keys");
    }
    const OrvaneKeyPair& key = container.keyPairs.front();
    logDebug("CardSignData: using container[", index, "] credId=", hexBytes(key.credentialId, sizeof(key.credentialId)),
             ", usage=", key.keyUsage, ", alg=", key.algorithm);
    return signWithKey(*pCardData, context->serialNumber, key, *pInfo);
  });
}
