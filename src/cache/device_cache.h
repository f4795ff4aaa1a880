// What this process knows about each token, shared by all of its contexts.
#ifndef ORVANE_CACHE_DEVICE_CACHE_H
#define ORVANE_CACHE_DEVICE_CACHE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "cache/freshness.h"
#include "support/mutex.h"
#include "support/secret.h"
#include "tokenlib/token_library.h"

namespace orvane {

// DeviceState is the record of one token. It is made by the first operation that needs it and lives until the monitor
// sees the token disappear, so its counters start from 0 again after every reconnection.
struct DeviceState {
  // The user PIN that the token accepted last, empty when it was invalidated since.
  SecretText cachedPassword;
  // True after a successful PIN validation in this process.
  bool passwordValidatedLocal = false;
  // True once the token library initialised the device, or gave a key list in spite of an error.
  bool initialized = false;
  // False until the first bump of the PIN counter; from then on a bump asks the token first.
  bool reconnectSeen = false;
  // The token's own record, as last read by a bump of the PIN counter.
  TokenInfo tokenInfo{};
  // True while a context is attached. One flag for the token, not a count of its contexts.
  bool contextOpen = false;
  // Number of key pairs that the last acquisition saw.
  std::uint64_t keyCount = 0;
  // The token's counters, as "cardcf" states them.
  std::uint8_t pinsFreshness = 0;
  std::uint16_t containersFreshness = 0;
  std::uint16_t filesFreshness = 0;
};

// PinState is what a record says about the token's PIN at one moment; all false without a record.
struct PinState {
  bool isCached = false;
  bool isValidatedLocal = false;
  bool reconnectSeen = false;
};

// Freshness is the per-token part of the file "cardcf".
struct Freshness {
  std::uint8_t pins;
  std::uint16_t containers;
  std::uint16_t files;
};

// DeviceCache holds the records by serial (plain byte order). Every operation takes `deviceCacheMutex` for its whole
// body, never across a token-library call; where the library lock is held too, that one was taken first. A missing
// record reads as empty, false or 0 and is not made by reading. Operations that make a record can throw std::bad_alloc,
// and all of them std::system_error when the calling thread already holds the mutex.
class DeviceCache {
 public:
  // `libraryMutex` is named only for the lock order that the compiler checks.
  explicit DeviceCache(Mutex& libraryMutex) : libraryMutex_(libraryMutex) {}

  // A copy of the cached PIN, empty when there is none.
  SecretText getCachedPassword(const std::string& serial) const ORVANE_EXCLUDES(deviceCacheMutex);
  // What the process knows about the PIN. All of it is read at once: another thread may store or forget the PIN at any
  // time, and a mixture of before and after would be a state that the token was never in.
  PinState pinState(const std::string& serial) const ORVANE_EXCLUDES(deviceCacheMutex);
  // Makes the record if needed, takes the PIN over and marks it validated. With a record there it cannot fail: a PIN
  // that the token has replaced never stays behind for a lack of memory.
  void storeValidatedPassword(const std::string& serial, SecretText&& password) ORVANE_EXCLUDES(deviceCacheMutex);
  // Forgets the PIN and its validation, if there is a record.
  void clearValidatedPassword(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);

  // Whether, since the record was made, the token library initialised the device or gave a key list in spite of an
  // error.
  bool isDeviceInitialized(const std::string& serial) const ORVANE_EXCLUDES(deviceCacheMutex);
  // Makes the record if needed.
  void markDeviceInitialized(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);

  // Makes the record if needed and sets its `contextOpen` flag.
  void attachContext(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);
  // Clears the flag, if there is a record.
  void detachContext(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);

  // updateKeyCount stores the number of keys just read and returns the one that stood there before. A record whose
  // `contextOpen` flag is not set, or no record, is left alone and gives no value.
  std::optional<std::uint64_t> updateKeyCount(const std::string& serial, std::uint64_t keyCount)
      ORVANE_EXCLUDES(deviceCacheMutex);

  // hasRecord tells whether the token was seen since its last disconnection.
  bool hasRecord(const std::string& serial) const ORVANE_EXCLUDES(deviceCacheMutex);
  // The firmware version text of the record's `tokenInfo`; no value when there is no record.
  std::optional<std::string> firmwareVersion(const std::string& serial) const ORVANE_EXCLUDES(deviceCacheMutex);
  // The three counters of the record. Without one they are 1, 0 and 0: the PIN byte deliberately starts at 1.
  Freshness freshness(const std::string& serial) const ORVANE_EXCLUDES(deviceCacheMutex);

  // Each makes the record if needed and counts one of its counters on.
  void bumpPinsFreshness(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);
  void bumpContainersFreshness(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);
  void bumpFilesFreshness(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);

  // Makes the record if needed, counts its PIN counter on and sets `reconnectSeen`.
  void firstPinsBump(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);
  // Makes the record if needed and stores the token's own record in it, wholly or, when memory runs out, not at all.
  void storeTokenInfo(const std::string& serial, TokenInfo tokenInfo) ORVANE_EXCLUDES(deviceCacheMutex);

  // Drops the record, with its PIN, if there is one.
  void erase(const std::string& serial) ORVANE_EXCLUDES(deviceCacheMutex);

 private:
  const DeviceState* find(const std::string& serial) const ORVANE_REQUIRES(deviceCacheMutex);

  Mutex& libraryMutex_;
  mutable Mutex deviceCacheMutex ORVANE_ACQUIRED_AFTER(libraryMutex_);
  std::map<std::string, DeviceState> devices_ ORVANE_GUARDED_BY(deviceCacheMutex);
};

}  // namespace orvane

#endif  // ORVANE_CACHE_DEVICE_CACHE_H
