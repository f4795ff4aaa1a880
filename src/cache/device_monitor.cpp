#include "cache/device_monitor.h"

#include "cache/bump_freshness.h"
#include "cache/process_state.h"
#include "log/log.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

// Deliberately without the library lock: a poll must not wait until another call's signature is done.
std::set<std::string> connectedDevices() {
  try {
    const auto list = tokenlib::connectedDeviceList();
    return {list.begin(), list.end()};
  } catch (const tokenlib::TokenLibraryError&) {
    return {};
  } catch (const tokenlib::TokenLibraryOutOfMemory&) {
    return {};
  }
}

// A disconnection has two steps, of which the second one can lack memory; it is then taken again by the next poll.
void forgetPin(ProcessState& state, const std::string& serial) {
  logDebug("Device disconnected [", serial, "] -> clearing per-device state");
  state.deviceCache.erase(serial);
}

void forgetContainers(ProcessState& state, const std::string& serial) {
  state.containerListCache.erase(serial);
  state.deviceConnected = false;
  state.deviceRemoved = true;
  logDebug("Cache state after disconnect: ver=", state.cacheVersion.value(),
           " pins=", state.globalPinsFreshness.value(), " cont=", state.globalContainersFreshness.value(),
           " files=", state.globalFilesFreshness.value());
}

void handleAppearance(ProcessState& state, const std::string& serial) {
  logDebug("Device reconnected [", serial, "] -> bumping freshness");
  state.deviceConnected = true;
  state.deviceRemoved = false;
  bumpCacheFreshness(kBumpAll, serial);
  logDebug("Cache state after reconnect: ver=", state.cacheVersion.value(), " pins=", state.globalPinsFreshness.value(),
           " cont=", state.globalContainersFreshness.value(), " files=", state.globalFilesFreshness.value());
}

}  // namespace

void DeviceMonitor::startDeviceMonitor() {
  bool running = false;
  if (!monitorRunning.compare_exchange_strong(running, true)) {
    logDebug("Monitor thread already running, not starting again.");
    return;
  }
  monitorStopRequested = false;
  try {
    thread_.start(&DeviceMonitor::deviceMonitorThread);
  } catch (...) {
    monitorRunning = false;
    throw;
  }
  logDebug("Monitor thread started (startDeviceMonitor).");
}

void DeviceMonitor::stopDeviceMonitor() noexcept {
  monitorStopRequested = true;
  if (thread_.holdsThread() && !thread_.isCurrentThread()) {
    thread_.wake();
    thread_.join();
    logDebug("Monitor thread joined (stopDeviceMonitor).");
  }
  monitorRunning = false;
}

void DeviceMonitor::deviceMonitorThread() { processState().monitor.pollUntilStopped(); }

void DeviceMonitor::pollUntilStopped() {
  logDebug("Device monitor thread started.");
  monitorRunning = true;
  KnownDevices knownDevices;
  while (!monitorStopRequested) {
    try {
      pollDevices(knownDevices);
    } catch (...) {
      // Out of memory, most likely: the next poll goes on where this one stopped.
    }
    thread_.pause(kPollPeriodMilliseconds);
  }
  logDebug("Device monitor thread stopped.");
  monitorRunning = false;
}

void DeviceMonitor::pollDevices(KnownDevices& knownDevices) {
  ProcessState& state = processState();
  std::set<std::string>& present = knownDevices.present;
  std::set<std::string>& leaving = knownDevices.leaving;
  std::set<std::string> current = connectedDevices();
  const auto finishLeaving = [&] {
    for (; !leaving.empty(); leaving.erase(leaving.begin())) forgetContainers(state, *leaving.begin());
  };
  finishLeaving();
  // What was done is noted at once, by moving the serial from set to set, which needs no memory.
  for (auto next = present.begin(); next != present.end();) {
    const auto device = next++;
    if (current.contains(*device)) continue;
    forgetPin(state, *device);
    leaving.insert(present.extract(device));
    finishLeaving();
  }
  for (auto next = current.begin(); next != current.end();) {
    const auto device = next++;
    if (present.contains(*device)) continue;
    handleAppearance(state, *device);
    present.insert(current.extract(device));
  }
}

}  // namespace orvane
