// What is known about a key container: CardGetContainerInfo, CardGetContainerProperty, CardSetContainerProperty.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "cache/process_state.h"
#include "minidriver/containers/key_usage.h"
#include "minidriver/containers/public_key_blob.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"

namespace orvane {
namespace {

constexpr std::wstring_view kContainerInfoProperty = CCP_CONTAINER_INFO;
constexpr std::wstring_view kPinIdentifierProperty = CCP_PIN_IDENTIFIER;

// Builds the blob of the container's first key that `isWanted` accepts by its usage. Without such a key the outputs
// stay as they are and the answer is 0.
DWORD buildBlobOf(const CARD_DATA& cardData, const ContainerEntry& container, bool (*isWanted)(std::int32_t),
                  KeySpecification keySpecification, PBYTE& blob, DWORD& blobLength) {
  const auto& keyPairs = container.keyPairs;
  const auto key = std::find_if(keyPairs.begin(), keyPairs.end(),
                                [&](const OrvaneKeyPair& keyPair) { return isWanted(keyPair.keyUsage); });
  if (key == keyPairs.end()) return statusCode(SCARD_S_SUCCESS);
  return BuildRsaPublicKeyBlob(cardData, *key, keySpecification, blob, blobLength);
}

DWORD buildSignatureBlob(const CARD_DATA& cardData, const ContainerEntry& container, CONTAINER_INFO& info) {
  return buildBlobOf(cardData, container, isSignatureUsage, KeySpecification::kSignature, info.pbSigPublicKey,
                     info.cbSigPublicKey);
}

DWORD buildKeyExchangeBlob(const CARD_DATA& cardData, const ContainerEntry& container, CONTAINER_INFO& info) {
  return buildBlobOf(cardData, container, isKeyExchangeUsage, KeySpecification::kKeyExchange, info.pbKeyExPublicKey,
                     info.cbKeyExPublicKey);
}

// A signature blob that is already stored when the key-exchange blob fails stays with the caller.
DWORD getContainerInfo(const CARD_DATA& cardData, const ContainerEntry& container, CONTAINER_INFO& info) {
  if (const DWORD status = buildSignatureBlob(cardData, container, info); status != SCARD_S_SUCCESS) {
    logError("CardGetContainerInfo: sig blob failed, status=0x", hex8(status));
    return status;
  }
  if (const DWORD status = buildKeyExchangeBlob(cardData, container, info); status != SCARD_S_SUCCESS) {
    logError("CardGetContainerInfo: keyex blob failed, status=0x", hex8(status));
    return status;
  }
  return succeed("CardGetContainerInfo exit: SigLen=", info.cbSigPublicKey, ", KeyExLen=", info.cbKeyExPublicKey);
}

// The same for the property, which logs the keys that are there and speaks of failures at DEBUG.
DWORD fillContainerInfoProperty(const CARD_DATA& cardData, const ContainerEntry& container, BYTE index,
                                CONTAINER_INFO& info) {
  if (container.keyPairs.empty()) return statusCode(SCARD_S_SUCCESS);
  if (const DWORD status = buildSignatureBlob(cardData, container, info); status != SCARD_S_SUCCESS) {
    logDebug("CardGetContainerProperty: sig blob failed");
    return status;
  }
  if (info.pbSigPublicKey != nullptr) {
    logDebug("CardGetContainerProperty: Sig public key length = ", info.cbSigPublicKey);
  }
  if (const DWORD status = buildKeyExchangeBlob(cardData, container, info); status != SCARD_S_SUCCESS) {
    logDebug("CardGetContainerProperty: keyex blob failed");
    return status;
  }
  if (info.pbKeyExPublicKey != nullptr) {
    logDebug("CardGetContainerProperty: KeyEx public key length = ", info.cbKeyExPublicKey);
  }
  return succeed("CardGetContainerProperty: returning CONTAINER_INFO for index ", index);
}

// Empties a record but for its version. By its bytes: an initialiser need not touch the padding between the members,
// and the caller would read there what our stack, or his own memory, held before.
void clearContainerInfo(CONTAINER_INFO& info, DWORD version) noexcept {
  std::memset(&info, 0, sizeof(info));
  info.dwVersion = version;
}

// The caller's buffer need not be aligned for the record, so the record is made here and copied, also on failure.
DWORD getContainerInfoProperty(const CARD_DATA& cardData, const ContainerEntry& container, BYTE index, PBYTE data) {
  CONTAINER_INFO info;
  clearContainerInfo(info, CONTAINER_INFO_CURRENT_VERSION);
  const DWORD status = fillContainerInfoProperty(cardData, container, index, info);
  std::memcpy(data, &info, sizeof(info));
  return status;
}

// Every container is bound to the user PIN.
DWORD getPinIdentifierProperty(PBYTE data) {
  const PIN_ID pinId = ROLE_USER;
  std::memcpy(data, &pinId, sizeof(pinId));
  return succeed("CardGetContainerProperty: CCP_PIN_IDENTIFIER = ROLE_USER");
}

// Takes over the process-wide list of the token, if there is one: a context acquired before the token's keys changed
// learns about them here, and only here.
void refreshContainers(ProviderContext& context) {
  if (auto latest = processState().containerListCache.find(context.serialNumber)) {
    context.containers = std::move(latest);
  }
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardGetContainerInfo(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                  PCONTAINER_INFO pContainerInfo) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pContainerInfo == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "Invalid parameters");
    }
    // The Win32 status here, unlike in CardEnumFiles; both are known to callers.
    if (dwFlags != 0) {
      return refuse(ERROR_INVALID_PARAMETER, "CardGetContainerInfo: dwFlags must be zero, got dwFlags=", dwFlags);
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardGetContainerInfo: provider context is NULL");
    logDebug("=== CardGetContainerInfo: serial=[", context->serialNumber, "]", " containerIndex=", bContainerIndex,
             " containerListSize=", context->containerCount());
    if (bContainerIndex >= context->containerCount()) {
      return refuse(SCARD_E_NO_KEY_CONTAINER, "Invalid container index: ", bContainerIndex);
    }
    CONTAINER_INFO& info = *pContainerInfo;
    clearContainerInfo(info, info.dwVersion);
    logDebug("CardGetContainerInfo Container index ", bContainerIndex);
    return getContainerInfo(*pCardData, context->container(bContainerIndex), info);
  });
}

DWORD WINAPI CardGetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex, LPCWSTR wszProperty, PBYTE pbData,
                                      DWORD cbData, PDWORD pdwDataLen, DWORD) {
  return cardEntry(__func__, [&]() -> DWORD {
    logDebug("CardGetContainerProperty bContainerIndex :: ", bContainerIndex);
    if (pCardData == nullptr || wszProperty == nullptr || pdwDataLen == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardGetContainerProperty: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardGetContainerProperty: provider context is NULL");
    logDebug("CardGetContainerProperty container list size :: ", context->containerCount());
    refreshContainers(*context);
    const std::size_t count = context->containerCount();
    logDebug("Container count = ", count);
    if (bContainerIndex >= count) {
      return refuse(SCARD_E_NO_KEY_CONTAINER, "Invalid container index: ", bContainerIndex, " max=", count);
    }
    const std::wstring_view property(wszProperty);
    if (property == kContainerInfoProperty) {
      *pdwDataLen = sizeof(CONTAINER_INFO);
      if (pbData == nullptr || cbData < sizeof(CONTAINER_INFO)) {
        return decline(ERROR_INSUFFICIENT_BUFFER, "CardGetContainerProperty: buffer too small for CONTAINER_INFO");
      }
      return getContainerInfoProperty(*pCardData, context->container(bContainerIndex), bContainerIndex, pbData);
    }
    if (property == kPinIdentifierProperty) {
      *pdwDataLen = sizeof(PIN_ID);
      if (pbData == nullptr || cbData < sizeof(PIN_ID)) {
        return decline(ERROR_INSUFFICIENT_BUFFER, "CardGetContainerProperty: buffer too small for PIN identifier");
      }
      return getPinIdentifierProperty(pbData);
    }
    return decline(SCARD_E_UNSUPPORTED_FEATURE, "CardGetContainerProperty: unsupported property requested");
  });
}

DWORD WINAPI CardSetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex, LPCWSTR wszProperty, PBYTE pbData,
                                      DWORD cbDataLen, DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    logDebug("dwflaogs :: ", dwFlags);
    if (pCardData == nullptr || wszProperty == nullptr || pbData == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardSetContainerProperty: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardSetContainerProperty: provider context is NULL");
    if (bContainerIndex >= context->containerCount()) {
      return refuse(SCARD_E_NO_KEY_CONTAINER, "CardSetContainerProperty: invalid container index ", bContainerIndex);
    }
    if (wszProperty != kPinIdentifierProperty) {
      return decline(SCARD_E_UNSUPPORTED_FEATURE, "CardSetContainerProperty: unsupported property = ", wszProperty);
    }
    PIN_ID pinId = 0;
    if (cbDataLen < sizeof(pinId)) {
      return refuse(ERROR_INSUFFICIENT_BUFFER, "CardSetContainerProperty: buffer too small for PIN identifier");
    }
    std::memcpy(&pinId, pbData, sizeof(pinId));
    // Accepted and only logged: the container stays bound to the user PIN.
    return succeed("CardSetContainerProperty: set PIN identifier for container ", bContainerIndex, " = ", pinId);
  });
}
