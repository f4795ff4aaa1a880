// Settings that the caller hands over: CardSetProperty.
//
// They are stored in the context; nothing is sent to the token. The serial number is the one that matters elsewhere: it
// names the token in every later operation on the record.
#include <cstring>
#include <string>
#include <string_view>

#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"

namespace orvane {
namespace {

// One setting: the context that keeps it, and the caller's data with its size in bytes.
struct PropertyUpdate {
  ProviderContext& context;
  const BYTE* data;
  DWORD dataSize;
};

// One settable property. With a `tooSmallLine` the data must not be null and hold `minimumSize` bytes; without one the
// property has no such test.
struct PropertyUpdateRow {
  std::wstring_view name;
  DWORD minimumSize = 0;
  // ERROR line when the data is missing or too short, followed by its size.
  const char* tooSmallLine = nullptr;
  // Stores the value and logs it.
  void (*store)(const PropertyUpdate&) = nullptr;
};

template <typename Value>
Value firstValueOf(const PropertyUpdate& update) {
  Value value;
  std::memcpy(&value, update.data, sizeof(value));
  return value;
}

// The data as UTF-16 units (a last odd byte does not count), each narrowed to its low byte. A terminating NUL that the
// caller counted stays in the text.
std::string narrowedText(const PropertyUpdate& update) {
  std::string narrowed;
  if (update.data == nullptr) return narrowed;
  const std::size_t length = update.dataSize / sizeof(WCHAR);
  narrowed.reserve(length);
  for (std::size_t i = 0; i < length; ++i) narrowed.push_back(static_cast<char>(update.data[i * sizeof(WCHAR)]));
  return narrowed;
}

void storeCacheMode(const PropertyUpdate& update) {
  update.context.cacheMode = firstValueOf<DWORD>(update);
  logDebug("CardSetProperty: CP_CARD_CACHE_MODE = ", update.context.cacheMode);
}

// Always 0, whatever the data: enrollment through this interface is not for the caller to turn on.
void storeX509Enrollment(const PropertyUpdate& update) {
  update.context.supportsX509Enrollment = 0;
  logDebug("CardSetProperty: CP_SUPPORTS_WIN_X509_ENROLLMENT set");
}

// Accepted and only logged: the identifier follows from the serial.
void acceptCardIdentifier(const PropertyUpdate& update) {
  logDebug("CardSetProperty: CP_CARD_GUID accepted for serial=[", update.context.serialNumber, "]");
}

void storeSerialNumber(const PropertyUpdate& update) {
  replaceSerialNumber(update.context, narrowedText(update));
  logDebug("CardSetProperty: CP_CARD_SERIAL_NO = ", update.context.serialNumber);
}

void storePinInformation(const PropertyUpdate& update) {
  update.context.pinInfo = firstValueOf<PIN_INFO>(update);
  logDebug("CardSetProperty: CP_CARD_PIN_INFO updated");
}

void storeParentWindow(const PropertyUpdate& update) {
  update.context.parentWindow = firstValueOf<HWND>(update);
  logDebug("CardSetProperty: CP_PARENT_WINDOW updated");
}

void storePinContextString(const PropertyUpdate& update) {
  update.context.pinContextString = narrowedText(update);
  logDebug("CardSetProperty: CP_PIN_CONTEXT_STRING = ", update.context.pinContextString);
}

void storePinStrengthVerify(const PropertyUpdate& update) {
  const auto value = firstValueOf<DWORD>(update);
  update.context.pinStrengthVerify = value != 0 ? 1 : 0;
  logDebug("CardSetProperty: CP_CARD_PIN_STRENGTH_VERIFY = ", value);
}

// The settable properties in the order in which their names are tested.
constexpr PropertyUpdateRow kUpdates[] = {
    {.name = CP_CARD_CACHE_MODE,
     .minimumSize = sizeof(DWORD),
     .tooSmallLine = "CardSetProperty: CP_CARD_CACHE_MODE buffer too small, cbDataLen=",
     .store = storeCacheMode},
    {.name = CP_SUPPORTS_WIN_X509_ENROLLMENT, .store = storeX509Enrollment},
    {.name = CP_CARD_GUID, .store = acceptCardIdentifier},
    {.name = CP_CARD_SERIAL_NO, .store = storeSerialNumber},
    {.name = CP_CARD_PIN_INFO,
     .minimumSize = sizeof(PIN_INFO),
     .tooSmallLine = "CardSetProperty: CP_CARD_PIN_INFO buffer too small, cbDataLen=",
     .store = storePinInformation},
    {.name = CP_PARENT_WINDOW,
     .minimumSize = sizeof(HWND),
     .tooSmallLine = "CardSetProperty: CP_PARENT_WINDOW buffer too small, cbDataLen=",
     .store = storeParentWindow},
    {.name = CP_PIN_CONTEXT_STRING, .store = storePinContextString},
    {.name = CP_CARD_PIN_STRENGTH_VERIFY,
     .minimumSize = sizeof(DWORD),
     .tooSmallLine = "CardSetProperty: CP_CARD_PIN_STRENGTH_VERIFY buffer too small, cbDataLen=",
     .store = storePinStrengthVerify},
};

DWORD updateProperty(const PropertyUpdateRow& row, const PropertyUpdate& update) {
  if (row.tooSmallLine != nullptr && (update.data == nullptr || update.dataSize < row.minimumSize)) {
    return refuse(ERROR_INSUFFICIENT_BUFFER, row.tooSmallLine, update.dataSize);
  }
  row.store(update);
  return statusCode(SCARD_S_SUCCESS);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardSetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbDataLen, DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    logDebug("dwflaogs :: ", dwFlags);
    if (pCardData == nullptr || wszProperty == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardSetProperty: pCardData or wszProperty is NULL");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardSetProperty: provider context is NULL");
    for (const PropertyUpdateRow& row : kUpdates) {
      if (row.name == wszProperty) return updateProperty(row, {*context, pbData, cbDataLen});
    }
    return decline(SCARD_E_UNSUPPORTED_FEATURE, "CardSetProperty: unsupported property = ", wszProperty);
  });
}
