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
#include "minidriver/private_key/oaep_support.h"
#include "minidriver/properties/capabilities.h"
#include "platform/card_module.h"

namespace orvane {
namespace {

// One question: the context, the caller's buffer (null for a size query) with its size in bytes, where the size of the
// answer goes, and the flags.
struct PropertyQuery {
  const ProviderContext& context;
  PBYTE data;
  DWORD dataSize;
  DWORD& dataLength;
  DWORD flags;

  // Whether the buffer is missing or takes fewer than `size` bytes; the caller then learns the size.
  bool isTooSmallFor(DWORD size) const noexcept {
    if (data != nullptr && dataSize >= size) return false;
    dataLength = size;
    return true;
  }

  // Stores the answer, for which there is room; the caller's buffer need not be aligned for it.
  template <typename Value>
  void store(const Value& value) const noexcept {
    std::memcpy(data, &value, sizeof(value));
    dataLength = sizeof(value);
  }
};

// The line before any test, for a size query, too.
void announce(const char* property) noexcept { logDebug("Property = ", property); }

// The answer to a buffer that is too small, with a line that ends in the size.
DWORD declineTooSmall(const char* line, std::size_t size) noexcept {
  return decline(ERROR_INSUFFICIENT_BUFFER, line, size);
}

DWORD getCardIdentifier(const PropertyQuery& query) {
  announce("CP_CARD_GUID");
  if (query.isTooSmallFor(kCardIdentifierSize)) {
    return declineTooSmall("CP_CARD_GUID: buffer too small, required = ", kCardIdentifierSize);
  }
  const std::string& serial = query.context.serialNumber;
  fillCardIdentifier(serial, query.data);
  query.dataLength = kCardIdentifierSize;
  return succeed("CP_CARD_GUID: returning per-device GUID for serial=[", serial, "] len=", serial.size());
}

DWORD getReadOnlyMode(const PropertyQuery& query) {
  announce("CP_CARD_READ_ONLY");
  if (query.isTooSmallFor(sizeof(BOOL))) {
    return declineTooSmall("CP_CARD_READ_ONLY: buffer too small, required = ", sizeof(BOOL));
  }
  query.store(BOOL{TRUE});
  return succeed("CP_CARD_READ_ONLY: returning TRUE (card is readble)");
}

DWORD getFreeSpace(const PropertyQuery& query) {
  announce("CP_CARD_FREE_SPACE");
  if (query.isTooSmallFor(sizeof(CARD_FREE_SPACE_INFO))) {
    return declineTooSmall("CP_CARD_FREE_SPACE: buffer too small, required = ", sizeof(CARD_FREE_SPACE_INFO));
  }
  const DWORD keySlotsUsed = processState().keySlotsUsed;
  query.store(freeSpaceInfo(keySlotsUsed));
  return succeed("CP_CARD_FREE_SPACE: key slots = ", keySlotsUsed);
}

DWORD getKeySizes(const PropertyQuery& query) {
  announce("CP_CARD_KEYSIZES");
  if (query.isTooSmallFor(sizeof(CARD_KEY_SIZES))) {
    return declineTooSmall("CP_CARD_KEYSIZES: buffer too small, required = ", sizeof(CARD_KEY_SIZES));
  }
  // Deliberately another maximum than CardQueryKeySizes states.
  query.store(keySizes(4096));
  return succeed("CP_CARD_KEYSIZES: returning 2048-bit fixed key size");
}

DWORD getCapabilities(const PropertyQuery& query) {
  announce("CP_CARD_CAPABILITIES");
  if (query.isTooSmallFor(sizeof(CARD_CAPABILITIES))) {
    return declineTooSmall("CP_CARD_CAPABILITIES: buffer too small, required = ", sizeof(CARD_CAPABILITIES));
  }
  query.store(cardCapabilities());
  // The value says that the minidriver looks after compression; the line deliberately says otherwise.
  return succeed("CP_CARD_CAPABILITIES: returning fKeyGen=FALSE, fCertificateCompression=FALSE");
}

DWORD getCacheMode(const PropertyQuery& query) {
  announce("CP_CARD_CACHE_MODE");
  if (query.isTooSmallFor(sizeof(DWORD))) {
    return declineTooSmall("CP_CARD_CACHE_MODE: buffer too small, required = ", sizeof(DWORD));
  }
  query.store(DWORD{CP_CACHE_MODE_SESSION_ONLY});
  return succeed("CP_CARD_CACHE_MODE: returning CP_CACHE_MODE_SESSION_ONLY mode");
}

// Copies the text up to its first NUL, widened byte by byte, with a terminating NUL to a buffer of `capacity` units.
// Returns 0 or an error number; on failure nothing is written.
int copyWidened(std::string_view text, PBYTE target, std::size_t capacity) {
  text = text.substr(0, text.find('\0'));
  if (text.size() >= capacity) return ERANGE;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    const WCHAR unit = i < text.size() ? static_cast<WCHAR>(static_cast<unsigned char>(text[i])) : L'\0';
    std::memcpy(target + i * sizeof(unit), &unit, sizeof(unit));
  }
  return 0;
}

DWORD getSerialNumber(const PropertyQuery& query) {
  announce("CP_CARD_SERIAL_NUMBER");
  const auto size = static_cast<DWORD>((query.context.serialNumber.size() + 1) * sizeof(WCHAR));
  if (query.isTooSmallFor(size)) return decline(ERROR_INSUFFICIENT_BUFFER, "Buffer is not sufficent");
  const int error = copyWidened(query.context.serialNumber, query.data, query.dataSize / sizeof(WCHAR));
  if (error != 0) return refuse(ERROR_INVALID_PARAMETER, "CP_CARD_SERIAL_NO: wcscpy_s failed, err=", error);
  query.dataLength = size;
  return statusCode(SCARD_S_SUCCESS);
}

DWORD getPinInformation(const PropertyQuery& query) {
  logDebug("=== CardGetProperty: CP_CARD_PIN_INFO serial=[", query.context.serialNumber, "]", " dwFlags=", query.flags);
  if (query.isTooSmallFor(sizeof(PIN_INFO))) {
    return refuse(ERROR_INSUFFICIENT_BUFFER, "CP_CARD_PIN_INFO: buffer too small, required = ", sizeof(PIN_INFO),
                  ", cbData = ", query.dataSize);
  }
  if (query.flags != ROLE_USER && query.flags != ROLE_ADMIN) {
    return refuse(SCARD_E_INVALID_PARAMETER, "CP_CARD_PIN_INFO: invalid PIN_ID=", query.flags);
  }
  // Always from constants: what the caller stored through CardSetProperty is deliberately not consulted.
  PIN_INFO info{};
  info.dwVersion = PIN_INFO_CURRENT_VERSION;
  info.PinType = AlphaNumericPinType;
  info.PinPurpose = query.flags == ROLE_ADMIN ? AdministratorPin : AuthenticationPin;
  info.dwChangePermission = 1;
  info.dwUnblockPermission = 2;
  info.PinCachePolicy.dwVersion = PIN_CACHE_POLICY_CURRENT_VERSION;
  info.PinCachePolicy.PinCachePolicyType = PinCacheNormal;
  query.store(info);
  return statusCode(SCARD_S_SUCCESS);
}

DWORD getX509Enrollment(const PropertyQuery& query) {
  announce("Supports Windows x.509 Enrollment");
  if (query.isTooSmallFor(sizeof(BOOL))) {
    return declineTooSmall("Enrollment property: buffer too small, required = ", sizeof(BOOL));
  }
  query.store(BOOL{TRUE});
  return statusCode(SCARD_S_SUCCESS);
}

DWORD getPinList(const PropertyQuery& query) {
  announce("CP_CARD_LIST_PINS");
  if (query.isTooSmallFor(sizeof(PIN_SET))) {
    return refuse(ERROR_INSUFFICIENT_BUFFER, "CP_CARD_LIST_PINS: ERROR_INSUFFICIENT_BUFFER, required=", sizeof(PIN_SET),
                  ", cbData=", query.dataSize);
  }
  query.store(PIN_SET{CREATE_PIN_SET(ROLE_USER)});
  return succeed("CP_CARD_LIST_PINS: returning PIN_SET with ROLE_USER");
}

// The user PIN is bit 0 and the administrator PIN bit 1 here, deliberately unlike "PIN List", which names them by the
// published bits.
DWORD getAuthenticatedState(const PropertyQuery& query) {
  announce("CP_CARD_AUTHENTICATED_STATE");
  if (query.isTooSmallFor(sizeof(PIN_SET))) return decline(ERROR_INSUFFICIENT_BUFFER, "Insufficient Buffer");
  const PIN_SET state =
      (query.context.userAuthenticated != 0 ? 1u : 0u) | (query.context.adminAuthenticated != 0 ? 2u : 0u);
  query.store(state);
  return succeed("CP_CARD_AUTHENTICATED_STATE: returning ", state);
}

// The only property that looks at the flags before the buffer, and so leaves the caller's size alone.
DWORD getAlgorithms(const PropertyQuery& query) {
  announce("CP_ENUM_ALGORITHMS");
  if (query.flags != CARD_ASYMMETRIC_OPERATION) {
    return decline(SCARD_E_INVALID_PARAMETER, "unknown algoritm :: ", query.flags);
  }
  const ALG_ID algorithms[] = {CALG_RSA_KEYX, CALG_RSA_SIGN};
  if (query.isTooSmallFor(sizeof(algorithms))) {
    return decline(ERROR_INSUFFICIENT_BUFFER, "Insufficient Buffer for asymmetric algs");
  }
  query.store(algorithms);
  return statusCode(SCARD_S_SUCCESS);
}

// The same for verifying, changing and unblocking: a PIN travels as it is.
DWORD getPinStrength(const PropertyQuery& query) {
  if (query.isTooSmallFor(sizeof(DWORD))) return statusCode(ERROR_INSUFFICIENT_BUFFER);
  query.store(DWORD{CARD_PIN_STRENGTH_PLAINTEXT});
  return statusCode(SCARD_S_SUCCESS);
}

DWORD getPinStrengthVerify(const PropertyQuery& query) {
  announce("CP_CARD_PIN_STRENGTH_VERIFY");
  return getPinStrength(query);
}

DWORD getPinStrengthChange(const PropertyQuery& query) {
  announce("CP_CARD_PIN_STRENGTH_CHANGE");
  return getPinStrength(query);
}

DWORD getPinStrengthUnblock(const PropertyQuery& query) {
  announce("CP_CARD_PIN_STRENGTH_UNBLOCK");
  return getPinStrength(query);
}

DWORD getKeyImportSupport(const PropertyQuery& query) {
  announce("CP_KEY_IMPORT_SUPPORT");
  if (query.isTooSmallFor(sizeof(DWORD))) return decline(ERROR_INSUFFICIENT_BUFFER, "Insufficient Buffer");
  query.store(DWORD{0});
  return statusCode(SCARD_S_SUCCESS);
}

DWORD getPaddingSchemes(const PropertyQuery& query) {
  announce("CP_PADDING_SCHEMES");
  const DWORD schemes =
      isOaepSupported(query.context.serialNumber) ? CARD_PADDING_PKCS1 | CARD_PADDING_OAEP : CARD_PADDING_PKCS1;
  if (query.isTooSmallFor(sizeof(schemes))) return decline(ERROR_INSUFFICIENT_BUFFER, "buffer is not sufficent");
  query.store(schemes);
  return statusCode(SCARD_S_SUCCESS);
}

DWORD getChainingModes(const PropertyQuery& query) {
  announce("CP_CHAINING_MODES");
  if (query.isTooSmallFor(sizeof(DWORD))) return decline(ERROR_INSUFFICIENT_BUFFER, "buffer is not sufficent");
  query.store(DWORD{3});
  return statusCode(SCARD_S_SUCCESS);
}

struct Property {
  std::wstring_view name;
  DWORD (*get)(const PropertyQuery&);
};

// The properties in the order in which their names are tested.
constexpr Property kProperties[] = {
    {CP_CARD_GUID, getCardIdentifier},
    {CP_CARD_READ_ONLY, getReadOnlyMode},
    {CP_CARD_FREE_SPACE, getFreeSpace},
    {CP_CARD_KEYSIZES, getKeySizes},
    {CP_CARD_CAPABILITIES, getCapabilities},
    {CP_CARD_CACHE_MODE, getCacheMode},
    {CP_CARD_SERIAL_NO, getSerialNumber},
    {CP_CARD_PIN_INFO, getPinInformation},
    {CP_SUPPORTS_WIN_X509_ENROLLMENT, getX509Enrollment},
    {CP_CARD_LIST_PINS, getPinList},
    {CP_CARD_AUTHENTICATED_STATE, getAuthenticatedState},
    {CP_ENUM_ALGORITHMS, getAlgorithms},
    {CP_CARD_PIN_STRENGTH_VERIFY, getPinStrengthVerify},
    {CP_CARD_PIN_STRENGTH_CHANGE, getPinStrengthChange},
    {CP_CARD_PIN_STRENGTH_UNBLOCK, getPinStrengthUnblock},
    {CP_KEY_IMPORT_SUPPORT, getKeyImportSupport},
    {CP_PADDING_SCHEMES, getPaddingSchemes},
    {CP_CHAINING_MODES, getChainingModes},
};

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardGetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbData, PDWORD pdwDataLen,
                             DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || wszProperty == nullptr || pdwDataLen == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardGetProperty: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardGetProperty: provider context is NULL");
    for (const Property& property : kProperties) {
      if (property.name == wszProperty) return property.get({*context, pbData, cbData, *pdwDataLen, dwFlags});
    }
    return decline(SCARD_E_UNSUPPORTED_FEATURE, "CardGetProperty: unsupported property requested = ", wszProperty);
  });
}
