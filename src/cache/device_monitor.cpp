#include "cache/device_monitor.h"

#include <algorithm>
#include <iterator>
#include <vector>

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
  }
}

// The serials of `left` that are not in `right`, in ascending order.
std::vector<std::string> difference(const std::set<std::string>& left, const std::set<std::string>& right) {
  std::vector<std::string> missing;
  std::set_difference(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(missing));
  return missing;
}

void handleDisconnection(ProcessState& state, const std::string& serial) {
  logDebug("Device disconnected [", serial, "] -> clearing per-device state");
  state.deviceCache.erase(serial);
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
  std::set<std::string> knownDevices;
  while (!monitorStopRequested) {
    try {
      knownDevices = pollDevices(knownDevices);
    } catch (...) {
      // Out of memory, most likely: the devices known so far stay known, the next poll sees what changed.
    }
    thread_.pause(kPollPeriodMilliseconds);
  }
  logDebug("Device monitor thread stopped.");
  monitorRunning = false;
}

std::set<std::string> DeviceMonitor::pollDevices(const std::set<std::string>& knownDevices) {
  ProcessState& state = processState();
  std::set<std::string> current = connectedDevices();
  for (const std::string& serial : difference(knownDevices, current)) handleDisconnection(state, serial);
  for (const std::string& serial : difference(current, knownDevices)) handleAppearance(state, serial);
  return current;
}

}  // namespace orvane
