// Questions about the card as a whole: CardGetProperty.
//
// Nearly all answers are fixed values of this token family; nothing is read from the token. Some values deliberately
// contradict their log text or the published meaning. They are marked below; callers rely on them as they are.
#include <cerrno>
#include <cstring>
#include <string_view>

#include "cache/process_state.h"
#include "minidriver/file_system/card_identifier.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "minidriver/private_key/firmware.h"
#include "minidriver/properties/capabilities.h"
#include "platform/card_module.h"

namespace orvane {
namespace {

// One question: the context, the caller's buffer (null for a size query) and its size in bytes, and the flags.
struct PropertyQuery {
  const ProviderContext& context;
  PBYTE data;
  DWORD dataSize;
  DWORD flags;
};

// One property. The steps of an answer are taken in the order of the members; a null one is left out.
struct PropertyRow {
  std::wstring_view name;
  // DEBUG line before any test, and before a size query, too.
  const char* announcement = nullptr;
  void (*announce)(const PropertyQuery&) = nullptr;
  // A test before the size is looked at; a status other than 0 is the answer.
  DWORD (*testFlagsFirst)(const PropertyQuery&) = nullptr;
  // Size of the answer in bytes: fixed, or computed.
  DWORD size = 0;
  DWORD (*sizeOf)(const PropertyQuery&) = nullptr;
  // DEBUG line when the buffer is too small; one that ends in a blank is followed by the size.
  const char* tooSmallLine = nullptr;
  void (*logTooSmall)(const PropertyQuery&) = nullptr;
  // A test after the size.
  DWORD (*testFlags)(const PropertyQuery&) = nullptr;
  // Writes the value to the buffer, which is large enough; a status other than 0 is the answer.
  DWORD (*write)(const PropertyQuery&) = nullptr;
  // DEBUG line after the value was written.
  const char* successLine = nullptr;
};

// Stores a value in the caller's buffer, which need not be aligned for it.
template <typename Value>
DWORD storeValue(const PropertyQuery& query, const Value& value) {
  std::memcpy(query.data, &value, sizeof(value));
  return statusCode(SCARD_S_SUCCESS);
}

template <DWORD kValue>
DWORD writeConstant(const PropertyQuery& query) {
  return storeValue(query, kValue);
}

DWORD writeCardIdentifier(const PropertyQuery& query) {
  const std::string& serial = query.context.serialNumber;
  fillCardIdentifier(serial, query.data);
  return succeed("CP_CARD_GUID: returning per-device GUID for serial=[", serial, "] len=", serial.size());
}

DWORD writeFreeSpace(const PropertyQuery& query) {
  const DWORD keySlotsUsed = processState().keySlotsUsed;
  storeValue(query, freeSpaceInfo(keySlotsUsed));
  return succeed("CP_CARD_FREE_SPACE: key slots = ", keySlotsUsed);
}

// Deliberately another maximum than CardQueryKeySizes states.
DWORD writeKeySizes(const PropertyQuery& query) { return storeValue(query, keySizes(4096)); }

DWORD writeCapabilities(const PropertyQuery& query) { return storeValue(query, cardCapabilities()); }

DWORD serialNumberSize(const PropertyQuery& query) {
  return static_cast<DWORD>((query.context.serialNumber.size() + 1) * sizeof(WCHAR));
}

// Copies the text up to its first NUL, widened byte by byte, with a terminating NUL to a buffer of `capacity` units.
// Returns 0 or an error number; on failure nothing is written.
int copyWidened(std::string_view text, PBYTE target, std::size_t capacity) {
  text = text.substr(0, text.find('\0'));
  if (text.size() >= capacity) return ERANGE;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    const WCHAR unit = i < text.size() ? static_cast<unsigned char>(text[i]) : L'\0';
    std::memcpy(target + i * sizeof(unit), &unit, sizeof(unit));
  }
  return 0;
}

DWORD writeSerialNumber(const PropertyQuery& query) {
  const int error = copyWidened(query.context.serialNumber, query.data, query.dataSize / sizeof(WCHAR));
  if (error == 0) return statusCode(SCARD_S_SUCCESS);
  return refuse(ERROR_INVALID_PARAMETER, "CP_CARD_SERIAL_NO: wcscpy_s failed, err=", error);
}

void announcePinInformation(const PropertyQuery& query) {
  logDebug("=== CardGetProperty: CP_CARD_PIN_INFO serial=[", query.context.serialNumber, "]", " dwFlags=", query.flags);
}

void logPinInformationTooSmall(const PropertyQuery& query) {
  logError("CP_CARD_PIN_INFO: buffer too small, required = ", sizeof(PIN_INFO), ", cbData = ", query.dataSize);
}

DWORD testPinIdentifier(const PropertyQuery& query) {
  if (query.flags == ROLE_USER || query.flags == ROLE_ADMIN) return statusCode(SCARD_S_SUCCESS);
  return refuse(SCARD_E_INVALID_PARAMETER, "CP_CARD_PIN_INFO: invalid PIN_ID=", query.flags);
}

// Always from constants: what the caller stored through CardSetProperty is deliberately not consulted.
DWORD writePinInformation(const PropertyQuery& query) {
  PIN_INFO info{};
  info.dwVersion = PIN_INFO_CURRENT_VERSION;
  info.PinType = AlphaNumericPinType;
  info.PinPurpose = query.flags == ROLE_ADMIN ? AdministratorPin : AuthenticationPin;
  info.dwChangePermission = 1;
  info.dwUnblockPermission = 2;
  info.PinCachePolicy.dwVersion = PIN_CACHE_POLICY_CURRENT_VERSION;
  info.PinCachePolicy.PinCachePolicyType = PinCacheNormal;
  return storeValue(query, info);
}

void logPinListTooSmall(const PropertyQuery& query) {
  logError("CP_CARD_LIST_PINS: ERROR_INSUFFICIENT_BUFFER, required=", sizeof(PIN_SET), ", cbData=", query.dataSize);
}

// The user PIN is bit 0 and the administrator PIN bit 1 here, deliberately unlike "PIN List", which names them by the
// published bits.
DWORD writeAuthenticatedState(const PropertyQuery& query) {
  const PIN_SET state =
      (query.context.userAuthenticated != 0 ? 1u : 0u) | (query.context.adminAuthenticated != 0 ? 2u : 0u);
  storeValue(query, state);
  return succeed("CP_CARD_AUTHENTICATED_STATE: returning ", state);
}

DWORD testAsymmetric(const PropertyQuery& query) {
  if (query.flags == CARD_ASYMMETRIC_OPERATION) return statusCode(SCARD_S_SUCCESS);
  return decline(SCARD_E_INVALID_PARAMETER, "unknown algoritm :: ", query.flags);
}

DWORD writeAlgorithms(const PropertyQuery& query) {
  const ALG_ID algorithms[] = {CALG_RSA_KEYX, CALG_RSA_SIGN};
  return storeValue(query, algorithms);
}

DWORD writePaddingSchemes(const PropertyQuery& query) {
  DWORD schemes = CARD_PADDING_PKCS1;
  if (isOaepSupported(query.context.serialNumber)) schemes |= CARD_PADDING_OAEP;
  return storeValue(query, schemes);
}

// The properties in the order in which their names are tested.
constexpr PropertyRow kProperties[] = {
    {.name = CP_CARD_GUID,
     .announcement = "Property = CP_CARD_GUID",
     .size = kCardIdentifierSize,
     .tooSmallLine = "CP_CARD_GUID: buffer too small, required = ",
     .write = writeCardIdentifier},
    {.name = CP_CARD_READ_ONLY,
     .announcement = "Property = CP_CARD_READ_ONLY",
     .size = sizeof(BOOL),
     .tooSmallLine = "CP_CARD_READ_ONLY: buffer too small, required = ",
     .write = writeConstant<TRUE>,
     .successLine = "CP_CARD_READ_ONLY: returning TRUE (card is readble)"},
    {.name = CP_CARD_FREE_SPACE,
     .announcement = "Property = CP_CARD_FREE_SPACE",
     .size = sizeof(CARD_FREE_SPACE_INFO),
     .tooSmallLine = "CP_CARD_FREE_SPACE: buffer too small, required = ",
     .write = writeFreeSpace},
    {.name = CP_CARD_KEYSIZES,
     .announcement = "Property = CP_CARD_KEYSIZES",
     .size = sizeof(CARD_KEY_SIZES),
     .tooSmallLine = "CP_CARD_KEYSIZES: buffer too small, required = ",
     .write = writeKeySizes,
     .successLine = "CP_CARD_KEYSIZES: returning 2048-bit fixed key size"},
    // The value says that the minidriver looks after compression; the log line deliberately says otherwise.
    {.name = CP_CARD_CAPABILITIES,
     .announcement = "Property = CP_CARD_CAPABILITIES",
     .size = sizeof(CARD_CAPABILITIES),
     .tooSmallLine = "CP_CARD_CAPABILITIES: buffer too small, required = ",
     .write = writeCapabilities,
     .successLine = "CP_CARD_CAPABILITIES: returning fKeyGen=FALSE, fCertificateCompression=FALSE"},
    {.name = CP_CARD_CACHE_MODE,
     .announcement = "Property = CP_CARD_CACHE_MODE",
     .size = sizeof(DWORD),
     .tooSmallLine = "CP_CARD_CACHE_MODE: buffer too small, required = ",
     .write = writeConstant<CP_CACHE_MODE_SESSION_ONLY>,
     .successLine = "CP_CARD_CACHE_MODE: returning CP_CACHE_MODE_SESSION_ONLY mode"},
    {.name = CP_CARD_SERIAL_NO,
     .announcement = "Property = CP_CARD_SERIAL_NUMBER",
     .sizeOf = serialNumberSize,
     .tooSmallLine = "Buffer is not sufficent",
     .write = writeSerialNumber},
    {.name = CP_CARD_PIN_INFO,
     .announce = announcePinInformation,
     .size = sizeof(PIN_INFO),
     .logTooSmall = logPinInformationTooSmall,
     .testFlags = testPinIdentifier,
     .write = writePinInformation},
    {.name = CP_SUPPORTS_WIN_X509_ENROLLMENT,
     .announcement = "Property = Supports Windows x.509 Enrollment",
     .size = sizeof(BOOL),
     .tooSmallLine = "Enrollment property: buffer too small, required = ",
     .write = writeConstant<TRUE>},
    {.name = CP_CARD_LIST_PINS,
     .announcement = "Property = CP_CARD_LIST_PINS",
     .size = sizeof(PIN_SET),
     .logTooSmall = logPinListTooSmall,
     .write = writeConstant<CREATE_PIN_SET(ROLE_USER)>,
     .successLine = "CP_CARD_LIST_PINS: returning PIN_SET with ROLE_USER"},
    {.name = CP_CARD_AUTHENTICATED_STATE,
     .announcement = "Property = CP_CARD_AUTHENTICATED_STATE",
     .size = sizeof(PIN_SET),
     .tooSmallLine = "Insufficient Buffer",
     .write = writeAuthenticatedState},
    {.name = CP_ENUM_ALGORITHMS,
     .announcement = "Property = CP_ENUM_ALGORITHMS",
     .testFlagsFirst = testAsymmetric,
     .size = 2 * sizeof(ALG_ID),
     .tooSmallLine = "Insufficient Buffer for asymmetric algs",
     .write = writeAlgorithms},
    {.name = CP_CARD_PIN_STRENGTH_VERIFY,
     .announcement = "Property = CP_CARD_PIN_STRENGTH_VERIFY",
     .size = sizeof(DWORD),
     .write = writeConstant<CARD_PIN_STRENGTH_PLAINTEXT>},
    {.name = CP_CARD_PIN_STRENGTH_CHANGE,
     .announcement = "Property = CP_CARD_PIN_STRENGTH_CHANGE",
     .size = sizeof(DWORD),
     .write = writeConstant<CARD_PIN_STRENGTH_PLAINTEXT>},
    {.name = CP_CARD_PIN_STRENGTH_UNBLOCK,
     .announcement = "Property = CP_CARD_PIN_STRENGTH_UNBLOCK",
     .size = sizeof(DWORD),
     .write = writeConstant<CARD_PIN_STRENGTH_PLAINTEXT>},
    {.name = CP_KEY_IMPORT_SUPPORT,
     .announcement = "Property = CP_KEY_IMPORT_SUPPORT",
     .size = sizeof(DWORD),
     .tooSmallLine = "Insufficient Buffer",
     .write = writeConstant<0>},
    {.name = CP_PADDING_SCHEMES,
     .announcement = "Property = CP_PADDING_SCHEMES",
     .size = sizeof(DWORD),
     .tooSmallLine = "buffer is not sufficent",
     .write = writePaddingSchemes},
    {.name = CP_CHAINING_MODES,
     .announcement = "Property = CP_CHAINING_MODES",
     .size = sizeof(DWORD),
     .tooSmallLine = "buffer is not sufficent",
     .write = writeConstant<3>},
};

DWORD refuseTooSmall(const PropertyRow& row, const PropertyQuery& query, DWORD size) {
  if (row.logTooSmall != nullptr) {
    row.logTooSmall(query);
  } else if (row.tooSmallLine != nullptr) {
    const std::string_view line(row.tooSmallLine);
    if (line.ends_with(' ')) {
      logDebug(line, size);
    } else {
      logDebug(line);
    }
  }
  return statusCode(ERROR_INSUFFICIENT_BUFFER);
}

// `dataLength` receives the size of the answer on success and when the buffer is too small, and nothing otherwise.
DWORD answerProperty(const PropertyRow& row, const PropertyQuery& query, DWORD& dataLength) {
  if (row.announcement != nullptr) logDebug(row.announcement);
  if (row.announce != nullptr) row.announce(query);
  if (row.testFlagsFirst != nullptr) {
    if (const DWORD status = row.testFlagsFirst(query); status != SCARD_S_SUCCESS) return status;
  }
  const DWORD size = row.sizeOf != nullptr ? row.sizeOf(query) : row.size;
  if (query.data == nullptr || query.dataSize < size) {
    dataLength = size;
    return refuseTooSmall(row, query, size);
  }
  if (row.testFlags != nullptr) {
    if (const DWORD status = row.testFlags(query); status != SCARD_S_SUCCESS) return status;
  }
  if (const DWORD status = row.write(query); status != SCARD_S_SUCCESS) return status;
  dataLength = size;
  if (row.successLine != nullptr) logDebug(row.successLine);
  return statusCode(SCARD_S_SUCCESS);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardGetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbData, PDWORD pdwDataLen,
                             DWORD dwFlags) {
  return cardEntry("CardGetProperty :: LOG_FUNCTION_NAME = Entry", [&]() -> DWORD {
    if (pCardData == nullptr || wszProperty == nullptr || pdwDataLen == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardGetProperty: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardGetProperty: provider context is NULL");
    for (const PropertyRow& row : kProperties) {
      if (row.name == wszProperty) return answerProperty(row, {*context, pbData, cbData, dwFlags}, *pdwDataLen);
    }
    return decline(SCARD_E_UNSUPPORTED_FEATURE, "CardGetProperty: unsupported property requested = ", wszProperty);
  });
}
