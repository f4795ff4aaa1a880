#include "minidriver/frame/device_binding.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "cache/bump_freshness.h"
#include "log/log.h"
#include "minidriver/frame/serial_resolution.h"
#include "tokenlib/token_client.h"

namespace orvane {
namespace {

constexpr std::size_t kReaderNameSize = 512;
constexpr std::size_t kAtrBufferSize = 36;
constexpr std::size_t kSerialReplySize = 64;

// Sends `command` to the card; no value when the transmission failed or the reply does not count.
std::optional<std::string> askForSerial(SCARDHANDLE cardHandle, SerialCommand command) {
  const auto bytes = serialCommandBytes(command);
  SCARD_IO_REQUEST sendHeader{};
  sendHeader.dwProtocol = SCARD_PROTOCOL_T1;
  sendHeader.cbPciLength = sizeof(sendHeader);
  BYTE reply[kSerialReplySize] = {};
  DWORD replyLength = sizeof(reply);
  const LONG result = SCardTransmit(cardHandle, &sendHeader, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr,
                                    reply, &replyLength);
  if (result != SCARD_S_SUCCESS) return std::nullopt;
  return serialInReply(command, std::span(reply, std::min<std::size_t>(replyLength, sizeof(reply))));
}

std::optional<std::string> serialFromCard(SCARDHANDLE cardHandle, const ReaderIdentity& reader) {
  const SerialCommand command = serialCommandFor(reader.name);
  auto serial = askForSerial(cardHandle, command);
  if (command == SerialCommand::kSle) {
    if (serial) {
      logDebug("SLE serial via APDU: ", *serial);
    } else {
      logDebug("SLE serial APDU failed, falling back to index: ", reader.index);
    }
  } else {
    if (serial) {
      logDebug("OrvaneKey serial via APDU: ", *serial);
    } else {
      logDebug("Serial APDU failed, falling back to index: ", reader.index);
    }
  }
  return serial;
}

}  // namespace

ReaderIdentity identifyReader(SCARDHANDLE cardHandle) {
  char name[kReaderNameSize] = {};
  DWORD nameLength = sizeof(name);
  BYTE atr[kAtrBufferSize] = {};
  DWORD atrLength = sizeof(atr);
  DWORD state = 0;
  DWORD protocol = 0;
  const LONG result = SCardStatusA(cardHandle, name, &nameLength, &state, &protocol, atr, &atrLength);
  if (result != SCARD_S_SUCCESS) {
    logError("SCardStatusA failed: 0x", hex8(static_cast<std::uint32_t>(result)), ", defaulting to index 0");
    return {};
  }
  ReaderIdentity reader;
  const std::string_view buffer(name, sizeof(name));
  reader.name = buffer.substr(0, buffer.find('\0'));
  logDebug("Reader name for hScard: ", reader.name);
  if (const auto index = readerIndexOf(reader.name)) {
    reader.index = *index;
    logDebug("Reader index=", reader.index);
  }
  return reader;
}

std::string resolveSerial(SCARDHANDLE cardHandle, const ReaderIdentity& reader,
                          const std::vector<std::string>& connectedDevices) {
  if (reader.name.empty()) return connectedDevices.front();
  if (auto serial = serialInReaderName(reader.name)) return *std::move(serial);
  if (auto serial = serialFromCard(cardHandle, reader)) return *std::move(serial);
  const auto position = static_cast<std::size_t>(reader.index);
  return position < connectedDevices.size() ? connectedDevices[position] : connectedDevices.front();
}

std::vector<OrvaneKeyPair> openDevice(const std::string& serial) {
  DeviceCache& devices = processState().deviceCache;
  devices.attachContext(serial);
  if (!devices.isDeviceInitialized(serial)) {
    logDebug("Initialising device [", serial, "]");
    const int result = tokenlib::initDevice(serial, false);
    if (result != 0) {
      logError("Init device failed for [", serial, "]: ", result);
    } else {
      devices.markDeviceInitialized(serial);
    }
  }
  // No handle is set during an acquisition; one that another user of the library left behind must not be used below.
  tokenlib::clearExternalSmartcardHandle();

  auto keyPairs = tokenlib::keyPairList(serial, nullptr);
  if (!keyPairs.empty()) {
    // The key list decides, not the initialisation's result: a token that gives its keys is usable.
    if (!devices.isDeviceInitialized(serial)) {
      logDebug("Key list available via HID despite init error — marking [", serial, "] as initialized");
      devices.markDeviceInitialized(serial);
    }
    return keyPairs;
  }
  logDebug("Key list empty for [", serial, "], refreshing");
  const int result = tokenlib::initDevice(serial, false);
  if (result != 0) {
    logError("PACE refresh failed for [", serial, "]: ", result);
    return keyPairs;
  }
  devices.markDeviceInitialized(serial);
  return tokenlib::keyPairList(serial, nullptr);
}

void updateKeyCount(const std::string& serial, std::size_t keyCount) {
  const auto olderKeyCount = processState().deviceCache.updateKeyCount(serial, keyCount);
  if (!olderKeyCount) return;
  logDebug("older key count ", *olderKeyCount);
  if (*olderKeyCount == keyCount) return;
  logDebug("new key count ", keyCount);
  bumpCacheFreshness(kBumpContainers | kBumpFiles, serial);
}

void buildContainers(ProviderContext& context, const std::vector<OrvaneKeyPair>& keyPairs) {
  auto containers = std::make_shared<ContainerList>();
  containers->reserve(keyPairs.size());
  for (const OrvaneKeyPair& keyPair : keyPairs) {
    logDebug("guidAscii (credential id ) :: ", hexBytes(keyPair.credentialId, sizeof(keyPair.credentialId)));
    logDebug("key usage :: ", keyPair.keyUsage);
    containers->push_back(containerEntryFor(keyPair));
  }
  context.containers = std::move(containers);
  processState().containerListCache.replace(context.serialNumber, context.containers);
}

}  // namespace orvane
