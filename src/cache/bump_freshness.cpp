#include "cache/bump_freshness.h"

#include <new>
#include <utility>

#include "cache/process_state.h"
#include "log/log.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// Asks the token whether it still holds its PIN as validated, and keeps its record. A library that throws, or a lack
// of memory, gives no record to keep and counts as "not validated", so that the provider rather forgets a PIN than
// trusts a stale one. What the caller asked for has been done by then and must not look as if it had failed.
std::uint32_t refreshTokenInfo(const std::string& serial) {
  try {
    TokenInfo tokenInfo = tokenlib::getTokenInfo(serial);
    const std::uint32_t passwordValidated = tokenInfo.passwordValidated;
    processState().deviceCache.storeTokenInfo(serial, std::move(tokenInfo));
    return passwordValidated;
  } catch (const tokenlib::TokenLibraryError&) {
    return 0;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

void bumpPins(const std::string& serial) {
  ProcessState& state = processState();
  // An empty serial has no record, so it takes the path without a token.
  const PinState before = serial.empty() ? PinState{} : state.deviceCache.pinState(serial);
  if (!before.reconnectSeen) {
    logDebug("device reconnect false [", serial, "]");
    state.globalPinsFreshness.bump();
    if (!serial.empty()) state.deviceCache.firstPinsBump(serial);
    return;
  }
  logDebug("device reconnect true [", serial, "]");
  const std::uint32_t validatedOnDevice = refreshTokenInfo(serial);
  logDebug("password validated (device) :: ", validatedOnDevice);
  logDebug("password validated (local)  :: ", before.isValidatedLocal);
  if (validatedOnDevice != 0 && before.isValidatedLocal) {
    logDebug("valid");
    return;
  }
  logDebug("Not valid - bumping pin freshness");
  state.globalPinsFreshness.bump();
  state.deviceCache.bumpPinsFreshness(serial);
}

}  // namespace

void bumpCacheFreshness(std::uint32_t flags, const std::string& serial) {
  ProcessState& state = processState();
  if ((flags & kBumpVersion) != 0) state.cacheVersion.bump();
  if ((flags & kBumpPins) != 0) bumpPins(serial);
  if ((flags & kBumpContainers) != 0) {
    if (serial.empty()) {
      state.globalContainersFreshness.bump();
    } else {
      state.deviceCache.bumpContainersFreshness(serial);
    }
  }
  if ((flags & kBumpFiles) != 0) {
    if (serial.empty()) {
      state.globalFilesFreshness.bump();
    } else {
      state.deviceCache.bumpFilesFreshness(serial);
    }
  }
  logDebug(">>> GLOBAL CACHE BUMPED: ver=", state.cacheVersion.value(), " pins=", state.globalPinsFreshness.value(),
           " cont=", state.globalContainersFreshness.value(), " file=", state.globalFilesFreshness.value());
}

}  // namespace orvane
