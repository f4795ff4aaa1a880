#include "cache/device_cache.h"

#include <utility>

namespace orvane {

const DeviceState* DeviceCache::find(const std::string& serial) const {
  const auto found = devices_.find(serial);
  return found == devices_.end() ? nullptr : &found->second;
}

SecretText DeviceCache::getCachedPassword(const std::string& serial) const {
  const LockGuard lock(deviceCacheMutex);
  const DeviceState* state = find(serial);
  return state != nullptr ? state->cachedPassword : SecretText();
}

PinState DeviceCache::pinState(const std::string& serial) const {
  const LockGuard lock(deviceCacheMutex);
  const DeviceState* state = find(serial);
  if (state == nullptr) return {};
  return {!state->cachedPassword.empty(), state->passwordValidatedLocal, state->reconnectSeen};
}

void DeviceCache::storeValidatedPassword(const std::string& serial, SecretText&& password) {
  const LockGuard lock(deviceCacheMutex);
  DeviceState& state = devices_[serial];
  state.cachedPassword = std::move(password);
  state.passwordValidatedLocal = true;
}

void DeviceCache::clearValidatedPassword(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  const auto found = devices_.find(serial);
  if (found == devices_.end()) return;
  found->second.passwordValidatedLocal = false;
  found->second.cachedPassword.clear();
}

bool DeviceCache::isDeviceInitialized(const std::string& serial) const {
  const LockGuard lock(deviceCacheMutex);
  const DeviceState* state = find(serial);
  return state != nullptr && state->initialized;
}

void DeviceCache::markDeviceInitialized(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  devices_[serial].initialized = true;
}

void DeviceCache::attachContext(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  devices_[serial].contextOpen = true;
}

void DeviceCache::detachContext(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  const auto found = devices_.find(serial);
  if (found != devices_.end()) found->second.contextOpen = false;
}

std::optional<std::uint64_t> DeviceCache::updateKeyCount(const std::string& serial, std::uint64_t keyCount) {
  const LockGuard lock(deviceCacheMutex);
  const auto found = devices_.find(serial);
  if (found == devices_.end() || !found->second.contextOpen) return std::nullopt;
  return std::exchange(found->second.keyCount, keyCount);
}

bool DeviceCache::hasRecord(const std::string& serial) const {
  const LockGuard lock(deviceCacheMutex);
  return find(serial) != nullptr;
}

std::optional<std::string> DeviceCache::firmwareVersion(const std::string& serial) const {
  const LockGuard lock(deviceCacheMutex);
  const DeviceState* state = find(serial);
  if (state == nullptr) return std::nullopt;
  return state->tokenInfo.firmwareVersion;
}

Freshness DeviceCache::freshness(const std::string& serial) const {
  const LockGuard lock(deviceCacheMutex);
  const DeviceState* state = find(serial);
  if (state == nullptr) return {1, 0, 0};
  return {state->pinsFreshness, state->containersFreshness, state->filesFreshness};
}

void DeviceCache::bumpPinsFreshness(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  DeviceState& state = devices_[serial];
  state.pinsFreshness = nextFreshness(state.pinsFreshness);
}

void DeviceCache::bumpContainersFreshness(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  DeviceState& state = devices_[serial];
  state.containersFreshness = nextFreshness(state.containersFreshness);
}

void DeviceCache::bumpFilesFreshness(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  DeviceState& state = devices_[serial];
  state.filesFreshness = nextFreshness(state.filesFreshness);
}

void DeviceCache::firstPinsBump(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  DeviceState& state = devices_[serial];
  state.reconnectSeen = true;
  state.pinsFreshness = nextFreshness(state.pinsFreshness);
}

void DeviceCache::storeTokenInfo(const std::string& serial, TokenInfo tokenInfo) {
  const LockGuard lock(deviceCacheMutex);
  devices_[serial].tokenInfo = std::move(tokenInfo);
}

void DeviceCache::erase(const std::string& serial) {
  const LockGuard lock(deviceCacheMutex);
  devices_.erase(serial);
}

}  // namespace orvane
