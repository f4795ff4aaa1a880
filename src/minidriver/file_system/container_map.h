// The records of the file "cmapfile".
#ifndef ORVANE_MINIDRIVER_FILE_SYSTEM_CONTAINER_MAP_H
#define ORVANE_MINIDRIVER_FILE_SYSTEM_CONTAINER_MAP_H

#include <algorithm>
#include <cstddef>

#include "cache/container_entry.h"
#include "minidriver/containers/key_usage.h"
#include "platform/card_module.h"

namespace orvane {

// containerMapRecord makes the record of a container that has at least one key: at most 39 units of its name, the
// flags, and the size in bits of the first key (kept to the record's 16 bits) in the field or fields that its usage
// calls for. Only the first container of a token is marked as the default one.
inline CONTAINER_MAP_RECORD containerMapRecord(const ContainerEntry& container, bool isFirst) noexcept {
  CONTAINER_MAP_RECORD record{};
  const std::size_t length = std::min<std::size_t>(container.containerGuid.size(), MAX_CONTAINER_NAME_LEN);
  std::copy_n(container.containerGuid.begin(), length, record.wszGuid);
  record.bFlags = static_cast<BYTE>(CONTAINER_MAP_VALID_CONTAINER | (isFirst ? CONTAINER_MAP_DEFAULT_CONTAINER : 0));
  const OrvaneKeyPair& keyPair = container.keyPairs.front();
  const auto keySizeBits = static_cast<WORD>(keyPair.modulusLength * 8);
  if (isSignatureUsage(keyPair.keyUsage)) record.wSigKeySizeBits = keySizeBits;
  if (isKeyExchangeUsage(keyPair.keyUsage)) record.wKeyExchangeKeySizeBits = keySizeBits;
  return record;
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FILE_SYSTEM_CONTAINER_MAP_H
