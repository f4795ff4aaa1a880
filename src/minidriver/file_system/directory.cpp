// The card's directories: CardEnumFiles and CardGetFileInfo. Both work from the context alone.
#include <cstring>
#include <string_view>

#include "minidriver/containers/key_usage.h"
#include "minidriver/file_system/card_identifier.h"
#include "minidriver/file_system/file_names.h"
#include "minidriver/frame/csp_buffer.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"

namespace orvane {
namespace {

// Stated for every certificate file, whatever the certificate's own length.
constexpr DWORD kStatedCertificateSize = 4096;

std::string_view textOrEmpty(LPCSTR text) noexcept { return text != nullptr ? text : std::string_view(); }

// Calls `take` with the name of every file in "mscp", in order. "msroots" can be read but is deliberately not listed.
template <typename Take>
void forEachFileInMscp(const ProviderContext& context, const Take& take) {
  take(szCACHE_FILE);
  take(szCONTAINER_MAP_FILE);
  for (std::size_t index = 0; index < context.containerCount(); ++index) {
    const ContainerEntry& container = context.container(index);
    if (container.keyPairs.empty()) continue;
    const auto usage = container.keyPairs.front().keyUsage;
    if (isSignatureUsage(usage)) take(certificateFileName(szUSER_SIGNATURE_CERT_PREFIX, index).view());
    if (isKeyExchangeUsage(usage)) take(certificateFileName(szUSER_KEYEXCHANGE_CERT_PREFIX, index).view());
  }
}

// Hands the names that `forEachName` gives to the caller as a multi-string: each with its NUL, and one more NUL at the
// end. They are gone through twice, for the size and for the copy, so that nothing has to keep them.
template <typename ForEachName>
DWORD returnNames(const CARD_DATA& cardData, const ForEachName& forEachName, LPSTR* fileNames, LPDWORD fileNamesSize) {
  std::size_t count = 0;
  std::size_t totalSize = 1;
  forEachName([&](std::string_view name) {
    ++count;
    totalSize += name.size() + 1;
  });
  BYTE* contents = allocateForCaller(cardData, totalSize);
  if (contents == nullptr) {
    return refuse(SCARD_E_NO_MEMORY, "CardEnumFiles: pfnCspAlloc failed, totalSize=", totalSize);
  }
  BYTE* position = contents;
  forEachName([&](std::string_view name) {
    std::memcpy(position, name.data(), name.size());
    position += name.size() + 1;
  });
  *fileNames = reinterpret_cast<LPSTR>(contents);
  *fileNamesSize = static_cast<DWORD>(totalSize);
  return succeed("CardEnumFiles: returned ", count, " files, size=", totalSize);
}

// Size and access condition of a file in "mscp" that exists.
void describeMscpFile(CardFile file, std::size_t containerCount, CARD_FILE_INFO& info) noexcept {
  info.AccessCondition = EveryoneReadUserWriteAc;
  switch (file) {
    case CardFile::kCardCf:
      info.cbFileSize = sizeof(CARD_CACHE_FILE_FORMAT);
      break;
    case CardFile::kContainerMap:
      info.cbFileSize = static_cast<DWORD>(containerCount * sizeof(CONTAINER_MAP_RECORD));
      break;
    case CardFile::kSignatureCertificate:
    case CardFile::kKeyExchangeCertificate:
      info.cbFileSize = kStatedCertificateSize;
      break;
    // Empty, as the caller has noted. (The second one is not in "mscp", so it is refused before; it stands here for a
    // switch that names every file.)
    case CardFile::kRootStore:
    case CardFile::kCardId:
      break;
  }
}

DWORD getFileInfo(const ProviderContext& context, LPCSTR directoryName, LPCSTR fileName, CARD_FILE_INFO& info) {
  const std::string_view directory = textOrEmpty(directoryName);
  info.dwVersion = CARD_FILE_INFO_CURRENT_VERSION;
  info.cbFileSize = 0;
  info.AccessCondition = InvalidAc;
  logDebug("CardGetFileInfo: dir=", directory, " file=", fileName);
  const auto file = cardFileOf(fileName);
  if (directory.empty()) {
    if (file != CardFile::kCardId) {
      return refuse(SCARD_E_FILE_NOT_FOUND, "CardGetFileInfo: root file not found: ", fileName);
    }
    info.cbFileSize = kCardIdentifierSize;
    info.AccessCondition = EveryoneReadAdminWriteAc;
  } else {
    if (!isDirectoryMscp(directory)) {
      return refuse(SCARD_E_DIR_NOT_FOUND, "CardGetFileInfo: directory not found: ", directory);
    }
    if (!file || *file == CardFile::kCardId) {
      return refuse(SCARD_E_FILE_NOT_FOUND, "CardGetFileInfo: mscp file not found: ", fileName);
    }
    describeMscpFile(*file, context.containerCount(), info);
  }
  return succeed("CardGetFileInfo: size=", info.cbFileSize, " ac=", static_cast<int>(info.AccessCondition));
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardEnumFiles(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR* pmszFileNames, LPDWORD pdwcbFileName,
                           DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pmszFileNames == nullptr || pdwcbFileName == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardEnumFiles: invalid parameter(s)");
    }
    if (dwFlags != 0) {
      return refuse(SCARD_E_INVALID_PARAMETER, "CardEnumFiles: dwFlags is not zero, dwFlags=", dwFlags);
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardEnumFiles: provider context is null");
    const std::string_view directory = textOrEmpty(pszDirectoryName);
    if (directory.empty()) {
      const auto rootFiles = [](const auto& take) { take(szCARD_IDENTIFIER_FILE); };
      return returnNames(*pCardData, rootFiles, pmszFileNames, pdwcbFileName);
    }
    if (!isDirectoryMscp(directory)) {
      return refuse(SCARD_E_DIR_NOT_FOUND, "CardEnumFiles: directory not found: ", directory);
    }
    const auto mscpFiles = [&](const auto& take) { forEachFileInMscp(*context, take); };
    return returnNames(*pCardData, mscpFiles, pmszFileNames, pdwcbFileName);
  });
}

DWORD WINAPI CardGetFileInfo(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                             PCARD_FILE_INFO pCardFileInfo) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pszFileName == nullptr || pCardFileInfo == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardGetFileInfo: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardGetFileInfo: provider context is null");
    return getFileInfo(*context, pszDirectoryName, pszFileName, *pCardFileInfo);
  });
}
