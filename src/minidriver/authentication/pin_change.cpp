// Changing the token's PINs: CardChangeAuthenticator and CardChangeAuthenticatorEx.
#include <new>
#include <string_view>
#include <utility>

#include "cache/bump_freshness.h"
#include "cache/process_state.h"
#include "minidriver/authentication/pin_rules.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "support/secret.h"
#include "support/text_compare.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// Reported when the token was not asked, and always by an administrator change, which has no counter.
constexpr int kUnknownAttempts = -1;

void storeAttempts(PDWORD attemptsRemaining, int attempts) noexcept {
  if (attemptsRemaining != nullptr) *attemptsRemaining = static_cast<DWORD>(attempts);
}

// What a change came to: whether the token made it, and the attempts left if it says so.
struct ChangeResult {
  bool isChanged = false;
  int attempts = kUnknownAttempts;
};

// One of the two PINs as the caller hands it over.
struct PinData {
  const BYTE* bytes;
  DWORD length;
};

// What follows a change that the token has made. A lack of memory in it must not make the change look as if it had
// failed. There is one only for making the token's record anew, after the monitor saw the token go: then no old PIN is
// there that would have to go, and the monitor counts everything on when it sees the token again.
template <typename Step>
void afterChange(const Step& step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    // The record is made by whoever needs it next.
  }
}

// The library is deliberately called without its lock and the card handle in the two functions below.

// Changes the user PIN. Success makes the new PIN the cached one; failure leaves none cached.
ChangeResult changeUserPin(const std::string& serial, PinData currentPinData, PinData newPinData) {
  SecretText newPin(newPinData.bytes, newPinData.length);
  ChangeResult result;
  if (isPinReadable(currentPinData.length)) {
    const SecretText currentPin(currentPinData.bytes, currentPinData.length);
    result.isChanged = tokenlib::changeUserPassword(serial, currentPin.c_str(), newPin.c_str(), result.attempts);
  }
  DeviceCache& devices = processState().deviceCache;
  if (result.isChanged) {
    afterChange([&] { devices.storeValidatedPassword(serial, std::move(newPin)); });
  } else {
    devices.clearValidatedPassword(serial);
  }
  return result;
}

// Changes the administrator's PIN. The cached PIN is the user's and stays.
ChangeResult changeAdminPin(const std::string& serial, PinData currentPinData, PinData newPinData) {
  if (!isPinReadable(currentPinData.length)) return {};
  const SecretText currentPin(currentPinData.bytes, currentPinData.length);
  const SecretText newPin(newPinData.bytes, newPinData.length);
  return {tokenlib::changeSOPassword(serial, currentPin.view(), newPin.view()), kUnknownAttempts};
}

// Which PIN is changed.
enum class PinRole { kUser, kAdmin };

// The last step of both entry points, once everything was tested. `successLine` is followed by the serial and "]",
// `failedLine` by the attempts.
DWORD changePin(const std::string& serial, PinRole role, PinData currentPinData, PinData newPinData,
                PDWORD attemptsRemaining, const char* successLine, const char* failedLine) {
  const ChangeResult result = role == PinRole::kUser ? changeUserPin(serial, currentPinData, newPinData)
                                                     : changeAdminPin(serial, currentPinData, newPinData);
  storeAttempts(attemptsRemaining, result.attempts);
  if (!result.isChanged) {
    return refuse(result.attempts != 0 ? SCARD_W_WRONG_CHV : SCARD_W_CHV_BLOCKED, failedLine, result.attempts);
  }
  logDebug(successLine, serial, "]");
  afterChange([&] { bumpCacheFreshness(kBumpPins, serial); });
  return statusCode(SCARD_S_SUCCESS);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardChangeAuthenticator(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbCurrentAuthenticator,
                                     DWORD cbCurrentAuthenticator, PBYTE pbNewAuthenticator, DWORD cbNewAuthenticator,
                                     DWORD, DWORD dwFlags, PDWORD pcAttemptsRemaining) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pwszUserId == nullptr || pbCurrentAuthenticator == nullptr ||
        pbNewAuthenticator == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardChangeAuthenticator: invalid parameter(s)");
    }
    if (dwFlags != CARD_AUTHENTICATE_PIN_PIN) {
      return refuse(SCARD_E_UNSUPPORTED_FEATURE, "CardChangeAuthenticator: unsupported dwFlags=", dwFlags);
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return statusCode(ERROR_INVALID_PARAMETER);
    if (!isPinLengthValid(cbNewAuthenticator)) {
      storeAttempts(pcAttemptsRemaining, kUnknownAttempts);
      return refuse(SCARD_E_INVALID_PARAMETER,
                    "CardChangeAuthenticator: new PIN length invalid, size=", cbNewAuthenticator);
    }
    const bool isUser = equalsIgnoreCase(pwszUserId, wszCARD_USER_USER);
    if (!isUser && !equalsIgnoreCase(pwszUserId, wszCARD_USER_ADMIN)) {
      return refuse(ERROR_INVALID_PARAMETER, "CardChangeAuthenticator: unknown userId");
    }
    return changePin(context->serialNumber, isUser ? PinRole::kUser : PinRole::kAdmin,
                     {pbCurrentAuthenticator, cbCurrentAuthenticator}, {pbNewAuthenticator, cbNewAuthenticator},
                     pcAttemptsRemaining, "CardChangeAuthenticator: success [",
                     "CardChangeAuthenticator: change failed, attempts=");
  });
}

DWORD WINAPI CardChangeAuthenticatorEx(PCARD_DATA pCardData, DWORD dwFlags, PIN_ID dwAuthenticatingPinId,
                                       PBYTE pbAuthenticatingPinData, DWORD cbAuthenticatingPinData,
                                       PIN_ID dwTargetPinId, PBYTE pbTargetData, DWORD cbTargetData, DWORD,
                                       PDWORD pcAttemptsRemaining) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pbAuthenticatingPinData == nullptr || pbTargetData == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardChangeAuthenticatorEx: invalid parameter(s)");
    }
    if (dwFlags != PIN_CHANGE_FLAG_CHANGEPIN) {
      return refuse(SCARD_E_UNSUPPORTED_FEATURE, "CardChangeAuthenticatorEx: unsupported dwFlags=", dwFlags);
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return statusCode(ERROR_INVALID_PARAMETER);
    if (!isPinLengthValid(cbTargetData)) {
      storeAttempts(pcAttemptsRemaining, kUnknownAttempts);
      return refuse(SCARD_E_INVALID_PARAMETER,
                    "CardChangeAuthenticatorEx: new PIN length invalid, size=", cbTargetData);
    }
    const bool isUser = dwAuthenticatingPinId == ROLE_USER && dwTargetPinId == ROLE_USER;
    if (!isUser && !(dwAuthenticatingPinId == ROLE_ADMIN && dwTargetPinId == ROLE_ADMIN)) {
      return refuse(SCARD_E_UNSUPPORTED_FEATURE,
                    "CardChangeAuthenticatorEx: unsupported PIN ID combination auth=", dwAuthenticatingPinId,
                    " target=", dwTargetPinId);
    }
    return changePin(context->serialNumber, isUser ? PinRole::kUser : PinRole::kAdmin,
                     {pbAuthenticatingPinData, cbAuthenticatingPinData}, {pbTargetData, cbTargetData},
                     pcAttemptsRemaining, "CardChangeAuthenticatorEx: success [",
                     "CardChangeAuthenticatorEx: change failed, attempts=");
  });
}
