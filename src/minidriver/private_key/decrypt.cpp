// RSA decryption: CardRSADecrypt.
//
// The token removes the padding. Beyond the lines and branches that callers know, nothing here depends on the decrypted
// block, so that its padding cannot be told from outside.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <vector>

#include "cache/process_state.h"
#include "minidriver/containers/key_usage.h"
#include "minidriver/frame/card_handover.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "minidriver/private_key/oaep_support.h"
#include "minidriver/private_key/plaintext_length.h"
#include "platform/card_module.h"
#include "support/secret.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// The plaintext that the library allocated; overwritten before it is given back, unless the library states a length
// that it cannot have.
class LibraryPlaintext {
 public:
  explicit LibraryPlaintext(DWORD cipherTextLength) : cipherTextLength_(cipherTextLength) {}
  ~LibraryPlaintext() { release(); }
  LibraryPlaintext(const LibraryPlaintext&) = delete;
  LibraryPlaintext& operator=(const LibraryPlaintext&) = delete;

  // Overwrites the block and gives it back.
  void release() noexcept {
    if (bytes != nullptr) wipe(bytes, size().value_or(0));
    std::free(bytes);
    bytes = nullptr;
  }

  // The number of bytes that may be read; none when the stated length is impossible.
  std::optional<std::size_t> size() const noexcept { return plaintextSize(length, cipherTextLength_); }

  unsigned char* bytes = nullptr;
  int length = 0;

 private:
  DWORD cipherTextLength_;
};

// The provider's block is little-endian, the library's big-endian. A block of any key there is has room in the object.
class BigEndianCipherText {
 public:
  explicit BigEndianCipherText(const CARD_RSA_DECRYPT_INFO& info)
      : long_(info.cbData <= short_.size() ? 0 : info.cbData), bytes_(long_.empty() ? short_.data() : long_.data()) {
    std::reverse_copy(info.pbData, info.pbData + info.cbData, bytes_);
  }
  BigEndianCipherText(const BigEndianCipherText&) = delete;
  BigEndianCipherText& operator=(const BigEndianCipherText&) = delete;

  const BYTE* bytes() const noexcept { return bytes_; }

 private:
  std::array<BYTE, sizeof(OrvaneKeyPair::modulus)> short_;
  std::vector<BYTE> long_;
  BYTE* bytes_;
};

int decryptOnToken(const CARD_DATA& cardData, const std::string& serial, const OrvaneKeyPair& key,
                   const CARD_RSA_DECRYPT_INFO& info, LibraryPlaintext& plaintext) {
  const BigEndianCipherText cipherText(info);
  const SecretText pin = processState().deviceCache.getCachedPassword(serial);
  const CardHandover handover(cardData);
  // The library gets null for an empty cipher text.
  return tokenlib::decrypt(serial, key.credentialId, pin.c_str(), info.cbData != 0 ? cipherText.bytes() : nullptr,
                           static_cast<int>(info.cbData), plaintext.bytes, plaintext.length);
}

void logPaddingType(DWORD paddingType) noexcept {
  switch (paddingType) {
    case CARD_PADDING_PKCS1:
      logDebug("CardRSADecrypt: PaddingType=", "PKCS1");
      break;
    case CARD_PADDING_OAEP:
      logDebug("CardRSADecrypt: PaddingType=", "OAEP");
      break;
    case CARD_PADDING_NONE:
      logDebug("CardRSADecrypt: PaddingType=", "NONE");
      break;
    default:
      logDebug("CardRSADecrypt: PaddingType=", "UNKNOWN(", paddingType, ")");
      break;
  }
}

bool isUsageRight(DWORD keySpec, std::int32_t keyUsage) noexcept {
  return keySpec == AT_SIGNATURE ? isSignatureUsage(keyUsage) : isKeyExchangeUsage(keyUsage);
}

DWORD decryptWithKey(const CARD_DATA& cardData, const std::string& serial, const OrvaneKeyPair& key,
                     CARD_RSA_DECRYPT_INFO& info) {
  LibraryPlaintext plaintext(info.cbData);
  const int result = decryptOnToken(cardData, serial, key, info, plaintext);
  if (result != 0) {
    // A failing library hands nothing over; what its output may point to is not ours to free.
    plaintext.bytes = nullptr;
    return refuse(SCARD_E_INVALID_PARAMETER, "CardRSADecrypt: orvane_decrypt failed, ret=", result);
  }
  const auto size = plaintext.size();
  if (!size || (plaintext.bytes == nullptr && plaintext.length != 0)) {
    return refuse(SCARD_E_INSUFFICIENT_BUFFER, "CardRSADecrypt: decrypted length larger than buffer");
  }
  std::reverse_copy(plaintext.bytes, plaintext.bytes + *size, info.pbData);
  info.cbData = static_cast<DWORD>(plaintext.length);
  plaintext.release();
  return succeed("CardRSADecrypt: decryption successful, length=", plaintext.length);
}

DWORD decrypt(const CARD_DATA& cardData, const ProviderContext& context, CARD_RSA_DECRYPT_INFO& info) {
  const std::string& serial = context.serialNumber;
  if (info.dwPaddingType == CARD_PADDING_OAEP && !isOaepSupported(serial)) {
    return refuse(SCARD_E_UNSUPPORTED_FEATURE, "CardRSADecrypt: OAEP not supported on this firmware");
  }
  if (info.bContainerIndex >= context.containerCount()) {
    return refuse(SCARD_E_NO_KEY_CONTAINER, "CardRSADecrypt: invalid container index=", info.bContainerIndex,
                  ", containerCount=", context.containerCount());
  }
  if (info.dwKeySpec != AT_KEYEXCHANGE && info.dwKeySpec != AT_SIGNATURE) {
    return refuse(ERROR_INVALID_PARAMETER, "CardRSADecrypt: invalid dwKeySpec=", info.dwKeySpec);
  }
  const ContainerEntry& container = context.container(info.bContainerIndex);
  if (container.keyPairs.empty()) {
    return refuse(SCARD_E_NO_KEY_CONTAINER, "CardRSADecrypt: container has no keys");
  }
  const OrvaneKeyPair& key = container.keyPairs.front();
  if (!isUsageRight(info.dwKeySpec, key.keyUsage)) {
    return refuse(SCARD_E_NO_KEY_CONTAINER, "CardRSADecrypt: key usage does not match dwKeySpec");
  }
  logDebug("CardRSADecrypt: containerIndex=", info.bContainerIndex, ", dwKeySpec=", info.dwKeySpec);
  logDebug("CardRSADecrypt: credentialId=", hexBytes(key.credentialId, sizeof(key.credentialId)));
  return decryptWithKey(cardData, serial, key, info);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardRSADecrypt(PCARD_DATA pCardData, PCARD_RSA_DECRYPT_INFO pInfo) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pInfo == nullptr || pInfo->pbData == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardRSADecrypt: invalid parameters");
    }
    logPaddingType(pInfo->dwPaddingType);
    // A record of the first version ends before the padding members. Only callers that speak version 7 are held to it.
    if (pInfo->dwVersion < CARD_RSA_KEY_DECRYPT_INFO_VERSION_TWO && pCardData->dwVersion == CARD_DATA_VERSION_SEVEN) {
      return refuse(ERROR_REVISION_MISMATCH, "CardRSADecrypt: version mismatch");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardRSADecrypt: provider context is NULL");
    return decrypt(*pCardData, *context, *pInfo);
  });
}
