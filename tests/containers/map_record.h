// What a record of the container map must look like.
#ifndef ORVANE_TESTS_CONTAINERS_MAP_RECORD_H
#define ORVANE_TESTS_CONTAINERS_MAP_RECORD_H

#include <string_view>

#include "harness/test_values.h"

namespace orvane::test {

// The 86 bytes of a container with this name, these flags (1 valid, 2 default) and these key sizes.
inline Bytes mapRecord(std::string_view guid, unsigned flags, unsigned signatureBits, unsigned keyExchangeBits) {
  Bytes bytes(80, 0);
  for (std::size_t i = 0; i < guid.size(); ++i) bytes[2 * i] = static_cast<std::uint8_t>(guid[i]);
  bytes.insert(bytes.end(), {static_cast<std::uint8_t>(flags), 0});
  for (const unsigned bits : {signatureBits, keyExchangeBits}) {
    bytes.push_back(static_cast<std::uint8_t>(bits & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
  }
  return bytes;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_CONTAINERS_MAP_RECORD_H
