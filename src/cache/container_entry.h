// One key container of a token, as contexts and the process-wide container lists hold it.
#ifndef ORVANE_CACHE_CONTAINER_ENTRY_H
#define ORVANE_CACHE_CONTAINER_ENTRY_H

#include <string>
#include <vector>

#include "support/hex_text.h"
#include "tokenlib/token_library.h"

namespace orvane {

// ContainerEntry names a container and holds its keys. A container index is a position in a list of entries, from 0.
struct ContainerEntry {
  // The first key's 16-byte credential identifier as 32 upper-case hexadecimal digits, without braces or hyphens.
  std::wstring containerGuid;
  // A copy of the key pair. One in practice; everything but the public-key query looks at the first alone.
  std::vector<OrvaneKeyPair> keyPairs;
};

using ContainerList = std::vector<ContainerEntry>;

// containerEntryFor makes the entry of one key pair.
inline ContainerEntry containerEntryFor(const OrvaneKeyPair& keyPair) {
  return {hexText<std::wstring>(keyPair.credentialId, sizeof(keyPair.credentialId)), {keyPair}};
}

}  // namespace orvane

#endif  // ORVANE_CACHE_CONTAINER_ENTRY_H
