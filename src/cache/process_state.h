// Everything that lives once in the process, for as long as the module is loaded.
#ifndef ORVANE_CACHE_PROCESS_STATE_H
#define ORVANE_CACHE_PROCESS_STATE_H

#include <atomic>
#include <cstdint>

#include "cache/container_list_cache.h"
#include "cache/device_cache.h"
#include "cache/device_monitor.h"
#include "cache/freshness.h"
#include "support/mutex.h"

namespace orvane {

// ProcessState owns the process-wide objects. The members are destroyed from the last to the first, so the monitor
// thread has ended before anything that it uses goes.
struct ProcessState {
  // The library lock. It serialises the token library's initialisation, device listing and key list of an acquisition,
  // the PIN validation of CardAuthenticateEx, signing, decryption, and the opening of the device before a certificate
  // is read, over all contexts. The certificate itself and the key list of a re-populated "cmapfile" are read without
  // it. Taken before `deviceCacheMutex`, never after it.
  Mutex libraryMutex;
  // Guards the `pvVendorSpecific` slot of every record, for the few instructions that read, fill or empty it, and the
  // serial number of a context in one while another thread may empty the slot. Taken before `deviceCacheMutex`, never
  // after it, and never together with the library lock.
  Mutex contextSlotMutex;
  DeviceCache deviceCache{libraryMutex};
  ContainerListCache containerListCache;

  // The version byte of "cardcf".
  FreshnessCounter<std::uint8_t> cacheVersion;
  // The three others are only logged; "cardcf" takes the token's own counters. Containers and files count the bumps
  // that named no token.
  FreshnessCounter<std::uint8_t> globalPinsFreshness;
  FreshnessCounter<std::uint16_t> globalContainersFreshness;
  FreshnessCounter<std::uint16_t> globalFilesFreshness;

  // Number of key slots in use, for the free-space answers. Nothing counts it: the card takes no new keys.
  std::atomic<std::uint32_t> keySlotsUsed{0};

  // Whether the monitor's last event was an appearance, and the opposite. Nothing reads them.
  std::atomic<bool> deviceConnected{false};
  std::atomic<bool> deviceRemoved{false};

  // The thread that watches the tokens; last, so that it has ended before anything that it uses goes.
  DeviceMonitor monitor;
};

// processState returns the one instance, made when the module is loaded.
ProcessState& processState() noexcept;

// markProcessEnding says that the process itself is ending, not just the module's stay in it. Other threads are then
// already gone, wherever they stood, and calls on contexts may still come: the instance is left as it is, nothing waits
// and nothing is freed.
void markProcessEnding() noexcept;

// isProcessEnding tells whether markProcessEnding was called.
bool isProcessEnding() noexcept;

}  // namespace orvane

#endif  // ORVANE_CACHE_PROCESS_STATE_H
