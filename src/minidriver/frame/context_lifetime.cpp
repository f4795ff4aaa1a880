// The beginning and the end of a context: CardAcquireContext and CardDeleteContext.
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "cache/process_state.h"
#include "minidriver/frame/device_binding.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/function_table.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// The answer to reset of the one card type that is accepted: T=1, 14 historical bytes, check byte last.
constexpr BYTE kAcceptedAtr[] = {0x3B, 0x8E, 0x80, 0x01, 0x50, 0x4B, 0x03, 0x58, 0x58, 0x58,
                                 0x5F, 0x44, 0x53, 0x43, 0x5F, 0x4B, 0x45, 0x59, 0x4C};
static_assert(sizeof(kAcceptedAtr) == 19);

// Size of an ATR buffer: no more is read of a mismatching one, whatever length the caller states.
constexpr std::size_t kReadableAtrSize = 36;

bool isAcceptedAtr(const CARD_DATA& cardData) noexcept {
  return cardData.cbAtr == sizeof(kAcceptedAtr) && cardData.pbAtr != nullptr &&
         std::memcmp(cardData.pbAtr, kAcceptedAtr, sizeof(kAcceptedAtr)) == 0;
}

DWORD refuseAtr(const CARD_DATA& cardData) noexcept {
  const std::size_t length = cardData.pbAtr != nullptr ? std::min<std::size_t>(cardData.cbAtr, kReadableAtrSize) : 0;
  logError("ATR length :: ", cardData.cbAtr);
  logError("ATR value  :: ", hexBytes(cardData.pbAtr, length));
  return refuse(SCARD_E_UNKNOWN_CARD, "ATR VALUE or length IS MISMATCH");
}

// Binds the context to its token under the library lock, and leaves the token's keys in `keyPairs`.
DWORD bindDevice(ProviderContext& context, SCARDHANDLE cardHandle, const ReaderIdentity& reader,
                 std::vector<OrvaneKeyPair>& keyPairs) {
  const LockGuard lock(processState().libraryMutex);
  logDebug("Global library init (skip HID scan)");
  tokenlib::init(cardHandle);
  processState().monitor.startDeviceMonitor();
  const auto connectedDevices = tokenlib::connectedDeviceList();
  if (connectedDevices.empty()) return refuse(SCARD_E_NO_SMARTCARD, "No smart card connected");
  std::string serial = resolveSerial(cardHandle, reader, connectedDevices);
  logDebug("resolved serial number :: ", serial);
  context.serialNumber = std::move(serial);
  logDebug("Using serial=", context.serialNumber, " for hScard=", cardHandle);
  keyPairs = openDevice(context.serialNumber);
  return statusCode(SCARD_S_SUCCESS);
}

DWORD acquireContext(CARD_DATA& cardData, DWORD dwFlags) {
  if (!isAcceptedAtr(cardData)) return refuseAtr(cardData);
  // The text names the record although it is the card name that is missing; support tools search for it as it is.
  if (cardData.pwszCardName == nullptr) {
    return refuse(ERROR_INVALID_PARAMETER, "CardAcquireContext: pCardData is NULL");
  }
  if (dwFlags == CARD_SECURE_KEY_INJECTION_NO_CARD_MODE) {
    return refuse(SCARD_E_UNSUPPORTED_FEATURE, "CardAcquireContext: CARD_SECURE_KEY_INJECTION_NO_CARD_MODE");
  }
  // From here on the reference destroys the context, unless it is handed to the record. What a failure leaves in the
  // process stays: another context may count on it.
  ContextRef context(new (std::nothrow) ProviderContext(&cardData));
  if (!context) return refuse(ERROR_OUTOFMEMORY, "Allocation failed for provider context");

  const SCARDHANDLE cardHandle = cardData.hScard;
  const ReaderIdentity reader = cardHandle != 0 ? identifyReader(cardHandle) : ReaderIdentity{};
  std::vector<OrvaneKeyPair> keyPairs;
  if (const DWORD status = bindDevice(*context, cardHandle, reader, keyPairs); status != SCARD_S_SUCCESS) return status;
  updateKeyCount(context->serialNumber, keyPairs.size());
  buildContainers(*context, keyPairs);
  context->contextReady = 1;
  context->sessionAuthValid = 1;

  // First what can fail. The version is granted, never negotiated: the record is always filled as version 7.
  publishContext(cardData, std::move(context));
  cardData.dwVersion = CARD_DATA_VERSION_SEVEN;
  fillFunctionTable(cardData);
  return succeed("CardAcquireContext completed successfully");
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    logDebug("dwFlags=", dwFlags);
    if (pCardData == nullptr) return refuse(ERROR_INVALID_PARAMETER, "CardAcquireContext: pCardData is NULL");
    return acquireContext(*pCardData, dwFlags);
  });
}

DWORD WINAPI CardDeleteContext(PCARD_DATA pCardData) {
  if (isProcessEnding()) {
    // Threads that the system ended may have held any lock; the memory goes with the process.
    if (pCardData != nullptr) pCardData->pvVendorSpecific = nullptr;
    return statusCode(SCARD_S_SUCCESS);
  }
  return cardEntry(__func__, [&]() -> DWORD {
    {
      const ContextRef context = pCardData != nullptr ? takeContext(*pCardData) : ContextRef();
      if (!context) return succeed("pcard data or vendor specific is null");
    }
    // The entries have gone with the context (or will, when a call that still runs on it has ended), so none is left.
    logDebug("contaier list clear :: ", 0);
    return succeed("Delete Context Success");
  });
}
