// Taking back what a PIN verification established: CardDeauthenticate and CardDeauthenticateEx.
#include <optional>
#include <string_view>

#include "cache/process_state.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "support/text_compare.h"

namespace orvane {
namespace {

// The set of PINs that a user id stands for; no value for an unknown one.
std::optional<PIN_SET> pinSetOf(std::wstring_view userId) noexcept {
  if (equalsIgnoreCase(userId, L"USER")) return PIN_SET{ROLE_USER};
  if (equalsIgnoreCase(userId, L"ADMIN")) return PIN_SET{ROLE_ADMIN};
  if (equalsIgnoreCase(userId, L"ALL")) return PIN_SET{PIN_SET_ALL_ROLES};
  return std::nullopt;
}

void clearAllPins(ProviderContext& context) {
  context.sessionAuthValid = 0;
  context.userAuthenticated = 0;
  context.adminAuthenticated = 0;
  processState().deviceCache.clearValidatedPassword(context.serialNumber);
  logDebug("CardDeauthenticateEx: cleared all PINs [", context.serialNumber, "]");
}

// Clears the roles that are in `pinSet` and authenticated in this context. Returns whether there was one.
bool clearAuthenticatedPins(ProviderContext& context, PIN_SET pinSet) {
  bool changed = false;
  if (context.userAuthenticated == 1 && (pinSet & ROLE_USER) != 0) {
    context.sessionAuthValid = 0;
    context.userAuthenticated = 0;
    processState().deviceCache.clearValidatedPassword(context.serialNumber);
    logDebug("CardDeauthenticateEx: cleared USER PIN [", context.serialNumber, "]");
    changed = true;
  }
  if (context.adminAuthenticated == 1 && (pinSet & ROLE_ADMIN) != 0) {
    // The cached PIN is the user's and stays.
    context.sessionAuthValid = 0;
    context.adminAuthenticated = 0;
    logDebug("CardDeauthenticateEx: cleared ADMIN PIN [", context.serialNumber, "]");
    changed = true;
  }
  return changed;
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardDeauthenticate(PCARD_DATA pCardData, LPWSTR pwszUserId, DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr) return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticate: invalid card data");
    if (dwFlags != 0) {
      return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticate: dwFlags must be zero, got dwFlags=", dwFlags);
    }
    if (pwszUserId == nullptr) return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticate: userId is null");
    const auto pinSet = pinSetOf(pwszUserId);
    if (!pinSet) return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticate: unknown userId=", pwszUserId);
    // The text of another entry point's message, on purpose: log evaluations know this line by it.
    logDebug("CardGetProperty: unsupported property requested = ", pwszUserId);
    return CardDeauthenticateEx(pCardData, *pinSet, 0);
  });
}

DWORD WINAPI CardDeauthenticateEx(PCARD_DATA pCardData, PIN_SET PinId, DWORD dwFlags) {
  return cardEntry(__func__, [&]() -> DWORD {
    logDebug("pinset :: ", PinId);
    logDebug("dwflags :: ", dwFlags);
    if (pCardData == nullptr) return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticateEx: pCardData is NULL");
    if (dwFlags != 0) {
      return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticateEx: dwFlags must be zero, got dwFlags=", dwFlags);
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardDeauthenticateEx: provider context is NULL");
    if (PinId == PIN_SET_ALL_ROLES) {
      clearAllPins(*context);
    } else if (!clearAuthenticatedPins(*context, PinId)) {
      return statusCode(SCARD_S_SUCCESS);
    }
    processState().deviceCache.bumpPinsFreshness(context->serialNumber);
    return statusCode(SCARD_S_SUCCESS);
  });
}
