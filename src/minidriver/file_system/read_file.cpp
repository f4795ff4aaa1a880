// The contents of the card's files: CardReadFile.
//
// The token holds no files that the base provider could read; each is put together from the context, the process-wide
// caches and what the token library reports.
#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "cache/process_state.h"
#include "minidriver/containers/key_usage.h"
#include "minidriver/file_system/card_identifier.h"
#include "minidriver/file_system/container_map.h"
#include "minidriver/file_system/file_names.h"
#include "minidriver/frame/card_handover.h"
#include "minidriver/frame/csp_buffer.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// Where the contents go; both pointers are not null. Nothing is stored on failure.
struct FileOutput {
  PBYTE* data;
  PDWORD size;

  void store(BYTE* contents, DWORD length) const noexcept {
    *data = contents;
    *size = length;
  }
};

DWORD readCardId(const CARD_DATA& cardData, const ProviderContext& context, const FileOutput& output) {
  BYTE* contents = allocateForCaller(cardData, kCardIdentifierSize);
  if (contents == nullptr) return refuse(SCARD_E_NO_MEMORY, "CardReadFile: allocation failed for CardId");
  fillCardIdentifier(context.serialNumber, contents);
  output.store(contents, kCardIdentifierSize);
  return succeed("CardReadFile: CardId returned for serial=[", context.serialNumber,
                 "] len=", context.serialNumber.size());
}

DWORD readCardCf(const CARD_DATA& cardData, const ProviderContext& context, const FileOutput& output) {
  logDebug("CardReadFile: szCACHE_FILE requested");
  BYTE* contents = allocateForCaller(cardData, sizeof(CARD_CACHE_FILE_FORMAT));
  if (contents == nullptr) return refuse(SCARD_E_NO_MEMORY, "CardReadFile: allocation failed for CardCF");
  const ProcessState& state = processState();
  const Freshness freshness = state.deviceCache.freshness(context.serialNumber);
  CARD_CACHE_FILE_FORMAT file{};
  file.bVersion = state.cacheVersion.value();
  file.bPinsFreshness = freshness.pins;
  file.wContainersFreshness = freshness.containers;
  file.wFilesFreshness = freshness.files;
  std::memcpy(contents, &file, sizeof(file));
  output.store(contents, sizeof(file));
  return succeed("=== CardReadFile cardcf: serial=[", context.serialNumber, "]", " Version=", file.bVersion,
                 " PinsFresh=", file.bPinsFreshness, " ContainersFresh=", file.wContainersFreshness,
                 " FilesFresh=", file.wFilesFreshness);
}

// Both kinds of certificate file go through here: a container has one certificate, that of its first key, whatever the
// key's usage. That the signature file's messages speak of the key exchange is deliberate.
DWORD readCertificate(const CARD_DATA& cardData, const ProviderContext& context, std::string_view name,
                      const FileOutput& output) {
  const auto index = containerIndexOf(name, context.containerCount());
  if (!index) return refuse(SCARD_E_FILE_NOT_FOUND, "CardReadFile: invalid container index for kx cert");
  const ContainerEntry& container = context.container(*index);
  if (container.keyPairs.empty()) return refuse(SCARD_E_NO_KEY_CONTAINER, "CardReadFile: container has no keys");
  const OrvaneCertificate* certificate = tokenlib::findCertificateForKey(
      context.serialNumber, container.keyPairs.front().credentialId, context.libraryContext);
  // A record that states more bytes than it holds is no certificate either.
  if (certificate == nullptr || certificate->certLength > sizeof(certificate->certData)) {
    return refuse(SCARD_E_NO_KEY_CONTAINER, "CardReadFile: no matching key exchange cert found");
  }
  const DWORD length = certificate->certLength;
  BYTE* contents = allocateForCaller(cardData, length);
  // An empty certificate is a result, and an allocator may well answer a request for 0 bytes with null.
  if (contents == nullptr && length != 0) {
    return refuse(SCARD_E_NO_MEMORY, "CardReadFile: allocation failed for kx cert");
  }
  std::copy_n(certificate->certData, length, contents);
  output.store(contents, length);
  return succeed("CardReadFile: returned key exchange cert length=", length);
}

// Reads the key pairs anew when there is no process-wide list of a token: the monitor saw the token disappear, or the
// caller set a serial for which nobody acquired a context.
std::shared_ptr<const ContainerList> repopulateContainers(const ProviderContext& context) {
  ContainerListCache& lists = processState().containerListCache;
  logDebug("CMAP: Serial ", context.serialNumber, " missing from cache. Re-populating now...");
  auto containers = std::make_shared<ContainerList>();
  for (const OrvaneKeyPair& keyPair : tokenlib::keyPairList(context.serialNumber, context.libraryContext)) {
    containers->push_back(containerEntryFor(keyPair));
  }
  lists.replace(context.serialNumber, std::move(containers));
  return lists.find(context.serialNumber);
}

void logContainer(std::size_t index, const ContainerEntry& container, const CONTAINER_MAP_RECORD& record) {
  const auto usage = container.keyPairs.front().keyUsage;
  if (isSignatureUsage(usage)) logDebug("CMAP: container[", index, "] sig=", record.wSigKeySizeBits);
  if (isKeyExchangeUsage(usage)) logDebug("CMAP: container[", index, "] kx=", record.wKeyExchangeKeySizeBits);
  logDebug("CMAP Output: [", index, "] GUID=", container.containerGuid);
}

DWORD readContainerMap(const CARD_DATA& cardData, const ProviderContext& context, const FileOutput& output) {
  const std::string& serial = context.serialNumber;
  logDebug("=== CardReadFile cmapfile: serial=[", serial, "]");
  auto containers = processState().containerListCache.find(serial);
  if (!containers) containers = repopulateContainers(context);
  if (!containers) {
    return refuse(SCARD_E_FILE_NOT_FOUND, "CMAP: Critical failure - could not populate cache for ", serial);
  }
  if (containers->empty()) {
    logDebug("CMAP: no containers for ", serial, ", returning empty cmapfile");
    BYTE* contents = allocateForCaller(cardData, 1);
    if (contents == nullptr) {
      return refuse(SCARD_E_NO_MEMORY, "CardReadFile: pfnCspAlloc failed for empty cmapfile");
    }
    output.store(contents, 0);
    return statusCode(SCARD_S_SUCCESS);
  }
  const std::size_t totalSize = containers->size() * sizeof(CONTAINER_MAP_RECORD);
  BYTE* contents = allocateRawForCaller(cardData, totalSize);
  if (contents == nullptr) {
    return refuse(SCARD_E_NO_MEMORY, "CardReadFile: pfnCspAlloc failed for cmapfile, totalSize=", totalSize);
  }
  for (std::size_t index = 0; index < containers->size(); ++index) {
    const ContainerEntry& container = (*containers)[index];
    // A container without keys keeps its place, as a record of zeros.
    const bool hasKeys = !container.keyPairs.empty();
    const CONTAINER_MAP_RECORD record = hasKeys ? containerMapRecord(container, index == 0) : CONTAINER_MAP_RECORD{};
    std::memcpy(contents + index * sizeof(record), &record, sizeof(record));
    if (hasKeys) logContainer(index, container, record);
  }
  output.store(contents, static_cast<DWORD>(totalSize));
  return succeed("CMAP: Returned ", containers->size(), " containers");
}

// A certificate may have been replaced on the token, so the device is opened anew before one is read.
int reopenDevice(const CARD_DATA& cardData, const ProviderContext& context) {
  const CardHandover handover(cardData);
  return tokenlib::initDevice(context.serialNumber, true);
}

DWORD readFile(const CARD_DATA& cardData, const ProviderContext& context, LPCSTR name, const FileOutput& output) {
  const auto file = cardFileOf(name);
  if (file && isCertificateFile(*file)) {
    // The status is deliberately the Win32 one and not the smart-card one of a missing file.
    if (const int result = reopenDevice(cardData, context); result != 0) {
      return refuse(ERROR_FILE_NOT_FOUND, "Init device in get certificate failed : ", result);
    }
  }
  if (!file) return decline(SCARD_E_FILE_NOT_FOUND, "CardReadFile: unsupported file name=", name);
  switch (*file) {
    case CardFile::kCardId:
      return readCardId(cardData, context, output);
    case CardFile::kCardCf:
      return readCardCf(cardData, context, output);
    case CardFile::kSignatureCertificate:
      logDebug("=== CardReadFile sig-cert: serial=[", context.serialNumber, "] file=", name);
      return readCertificate(cardData, context, name, output);
    case CardFile::kKeyExchangeCertificate:
      logDebug("=== CardReadFile kx-cert: serial=[", context.serialNumber, "] file=", name);
      return readCertificate(cardData, context, name, output);
    case CardFile::kContainerMap:
      return readContainerMap(cardData, context, output);
    case CardFile::kRootStore:
      logDebug("CardReadFile: root store file requested");
      output.store(nullptr, 0);
      return statusCode(SCARD_S_SUCCESS);
  }
  return statusCode(SCARD_E_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardReadFile(PCARD_DATA pCardData, LPSTR, LPSTR pszFileName, DWORD, PBYTE* ppbData, PDWORD pcbData) {
  return cardEntry(__func__, [&]() -> DWORD {
    logDebug("CardReadFile filename: ", pszFileName);
    if (pCardData == nullptr || pszFileName == nullptr || ppbData == nullptr || pcbData == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardReadFile: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardReadFile: provider context is NULL");
    return readFile(*pCardData, *context, pszFileName, {ppbData, pcbData});
  });
}
