// PIN verification: CardAuthenticatePin and CardAuthenticateEx.
#include <utility>

#include "cache/process_state.h"
#include "minidriver/authentication/pin_rules.h"
#include "minidriver/frame/card_handover.h"
#include "minidriver/frame/entry.h"
#include "minidriver/frame/provider_context.h"
#include "platform/card_module.h"
#include "support/secret.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// Reported whenever the token was not asked, and the counter's value when it is.
constexpr int kDefaultAttempts = 8;

constexpr DWORD kAcceptedAuthenticateFlags = CARD_PIN_SILENT_CONTEXT | CARD_AUTHENTICATE_GENERATE_SESSION_PIN;

// The optional outputs of CardAuthenticateEx. No session PIN is ever made.
struct AuthenticateOutputs {
  PBYTE* sessionPin;
  PDWORD sessionPinLength;
  PDWORD attemptsRemaining;

  void store(int attempts) const noexcept {
    if (attemptsRemaining != nullptr) *attemptsRemaining = static_cast<DWORD>(attempts);
    if (sessionPin != nullptr) *sessionPin = nullptr;
    if (sessionPinLength != nullptr) *sessionPinLength = 0;
  }
};

// `pinId` is looked at bit by bit, so 3 means both roles, and any other value neither.
void setAuthenticated(ProviderContext& context, PIN_ID pinId, std::uint8_t value) noexcept {
  if ((pinId & ROLE_USER) != 0) context.userAuthenticated = value;
  if ((pinId & ROLE_ADMIN) != 0) context.adminAuthenticated = value;
}

DWORD authenticateSilently(ProviderContext& context, PIN_ID pinId, bool isUsable, const AuthenticateOutputs& outputs) {
  if (!isUsable) {
    return decline(SCARD_W_CARD_NOT_AUTHENTICATED, "CardAuthenticateEx: no cached PIN, silent auth not possible [",
                   context.serialNumber, "]");
  }
  logDebug("CardAuthenticateEx: silent auth with cached PIN [", context.serialNumber, "]");
  outputs.store(kDefaultAttempts);
  setAuthenticated(context, pinId, 1);
  return statusCode(SCARD_S_SUCCESS);
}

int validateOnToken(const CARD_DATA& cardData, const std::string& serial, const SecretText& pin, int& attempts) {
  const CardHandover handover(cardData);
  return tokenlib::validatePassword(serial, pin.c_str(), attempts);
}

DWORD authenticateOnToken(const CARD_DATA& cardData, ProviderContext& context, PIN_ID pinId, const BYTE* pinData,
                          DWORD pinLength, const AuthenticateOutputs& outputs) {
  const std::string& serial = context.serialNumber;
  logDebug("empty password for [", serial, "]");
  if (pinData == nullptr || !isPinLengthValid(pinLength)) {
    return refuse(SCARD_E_INVALID_PARAMETER, "CardAuthenticateEx: PIN length invalid, size=", pinLength);
  }
  SecretText pin(pinData, pinLength);
  int attempts = kDefaultAttempts;
  const int result = validateOnToken(cardData, serial, pin, attempts);
  DeviceCache& devices = processState().deviceCache;
  if (result != 0) {
    devices.clearValidatedPassword(serial);
    logError("invalid password for [", serial, "] : ", result);
    outputs.store(attempts);
    setAuthenticated(context, pinId, 0);
    if (attempts != 0) return refuse(SCARD_W_WRONG_CHV, "CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV");
    return refuse(SCARD_W_CHV_BLOCKED, "CardAuthenticateEx: PIN blocked, returning SCARD_W_CHV_BLOCKED");
  }
  devices.storeValidatedPassword(serial, std::move(pin));
  outputs.store(attempts);
  setAuthenticated(context, pinId, 1);
  return succeed("CardAuthenticateEx: returning SCARD_S_SUCCESS [", serial, "]");
}

// The PIN that was validated before counts for this call as well; what the caller supplied is deliberately not looked
// at.
DWORD trustEarlierValidation(ProviderContext& context, PIN_ID pinId, const AuthenticateOutputs& outputs) {
  logDebug("password already validated for [", context.serialNumber, "]");
  if (outputs.attemptsRemaining != nullptr) {
    *outputs.attemptsRemaining = kDefaultAttempts;
    logDebug("CardAuthenticateEx: pcAttemptsRemaining set to ", kDefaultAttempts);
  }
  if (outputs.sessionPin != nullptr) {
    *outputs.sessionPin = nullptr;
    logDebug("CardAuthenticateEx: ppbSessionPin set to NULL");
  }
  if (outputs.sessionPinLength != nullptr) {
    *outputs.sessionPinLength = 0;
    logDebug("CardAuthenticateEx: pcbSessionPin set to 0");
  }
  setAuthenticated(context, pinId, 1);
  if ((pinId & ROLE_USER) != 0) logDebug("CardAuthenticateEx: USER PIN authenticated");
  if ((pinId & ROLE_ADMIN) != 0) logDebug("CardAuthenticateEx: ADMIN PIN authenticated");
  return statusCode(SCARD_S_SUCCESS);
}

}  // namespace
}  // namespace orvane

using namespace orvane;

DWORD WINAPI CardAuthenticatePin(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbPin, DWORD cbPin,
                                 PDWORD pcAttemptsRemaining) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr || pwszUserId == nullptr || pbPin == nullptr) {
      return refuse(ERROR_INVALID_PARAMETER, "CardAuthenticatePin: invalid parameter(s)");
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardAuthenticatePin: null provider context");
    if (cbPin == 0) return refuse(ERROR_INVALID_PASSWORD, "CardAuthenticatePin: PIN length is zero");

    const std::string& serial = context->serialNumber;
    SecretText pin;
    int attempts = 0;
    bool isRight = false;
    if (isPinReadable(cbPin)) {
      pin = SecretText(pbPin, cbPin);
      // Deliberately without the library lock and the card handle: callers of this older entry point rely on not
      // waiting for another context's signature.
      isRight = tokenlib::validatePassword(serial, pin.c_str(), attempts) == 0;
    }
    DeviceCache& devices = processState().deviceCache;
    DWORD status = statusCode(SCARD_S_SUCCESS);
    if (!isRight) {
      devices.clearValidatedPassword(serial);
      status = refuse(SCARD_W_WRONG_CHV, "CardAuthenticatePin: wrong PIN [", serial, "]");
    } else {
      devices.storeValidatedPassword(serial, std::move(pin));
      logDebug("CardAuthenticatePin: PIN verified successfully [", serial, "]");
    }
    if (pcAttemptsRemaining != nullptr) *pcAttemptsRemaining = static_cast<DWORD>(attempts);
    return status;
  });
}

DWORD WINAPI CardAuthenticateEx(PCARD_DATA pCardData, PIN_ID PinId, DWORD dwFlags, PBYTE pbPinData, DWORD cbPinData,
                                PBYTE* ppbSessionPin, PDWORD pcbSessionPin, PDWORD pcAttemptsRemaining) {
  return cardEntry(__func__, [&]() -> DWORD {
    if (pCardData == nullptr) return refuse(ERROR_INVALID_PARAMETER, "CardAuthenticateEx: pCardData is NULL");
    if ((dwFlags & ~kAcceptedAuthenticateFlags) != 0) {
      return refuse(ERROR_INVALID_PARAMETER, "CardAuthenticateEx: unsupported dwFlags=", dwFlags);
    }
    const ContextRef context = contextOf(*pCardData);
    if (!context) return refuse(ERROR_INVALID_PARAMETER, "CardAuthenticateEx: provider context is NULL");
    const std::string& serial = context->serialNumber;
    const bool isSilent = (dwFlags & CARD_PIN_SILENT_CONTEXT) != 0;
    if (pbPinData == nullptr && cbPinData == 0 && !isSilent) {
      return decline(SCARD_W_CARD_NOT_AUTHENTICATED,
                     "CardAuthenticateEx: NULL pbPinData probe -> SCARD_W_CARD_NOT_AUTHENTICATED [", serial, "]");
    }
    const AuthenticateOutputs outputs{ppbSessionPin, pcbSessionPin, pcAttemptsRemaining};
    const PinState pin = processState().deviceCache.pinState(serial);
    if (isSilent) return authenticateSilently(*context, PinId, pin.isCached && pin.isValidatedLocal, outputs);
    if (!pin.isCached) return authenticateOnToken(*pCardData, *context, PinId, pbPinData, cbPinData, outputs);
    if (pin.isValidatedLocal) return trustEarlierValidation(*context, PinId, outputs);
    // Storing a PIN validates it and forgetting it does both, so no record says this; the answer stands for the case.
    return refuse(ERROR_INVALID_PARAMETER, "CardAuthenticateEx: invalid param state");
  });
}
