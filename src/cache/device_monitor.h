// The background thread that notices tokens coming and going.
#ifndef ORVANE_CACHE_DEVICE_MONITOR_H
#define ORVANE_CACHE_DEVICE_MONITOR_H

#include <atomic>
#include <set>
#include <string>

#include "platform/worker_thread.h"

namespace orvane {

// DeviceMonitor polls the token library's list of connected tokens once a second. A token that is gone loses everything
// that was cached for it; one that appears (each token present at the first poll included) gets all its freshness
// counters bumped, so that the base provider reads PIN state, containers and files again. There is one instance, in
// ProcessState.
class DeviceMonitor {
 public:
  DeviceMonitor() = default;
  // Stops the thread: the module is going away.
  ~DeviceMonitor() { stopDeviceMonitor(); }

  // startDeviceMonitor starts the thread unless it runs, and logs which of the two it was. Any thread may call it; the
  // caller holds the library lock. Throws std::system_error when the system refuses the thread; a later call tries
  // again.
  void startDeviceMonitor();

  // stopDeviceMonitor asks the thread to stop and waits for it: the library calls of one poll at the most, since the
  // pause between two polls ends at once; WorkerThread::join says what bounds that. Nothing is waited for or logged
  // when no thread was started, or when the thread itself calls.
  void stopDeviceMonitor() noexcept;

  // The tokens that the last poll saw, and those that it saw go but could not forget wholly for a lack of memory.
  struct KnownDevices {
    std::set<std::string> present;
    std::set<std::string> leaving;
  };

  // One poll. All disconnections are handled before any appearance, both in ascending order of the serials. A library
  // call that throws counts as an empty list. Throws std::bad_alloc; then `knownDevices` says what was done, so that
  // the next poll does nothing twice, leaves nothing out, and treats a token that came back meanwhile as a new one.
  static void pollDevices(KnownDevices& knownDevices);

  static constexpr unsigned kPollPeriodMilliseconds = 1000;

 private:
  static void deviceMonitorThread();
  void pollUntilStopped();

  std::atomic<bool> monitorRunning{false};
  std::atomic<bool> monitorStopRequested{false};
  WorkerThread thread_;
};

}  // namespace orvane

#endif  // ORVANE_CACHE_DEVICE_MONITOR_H
