// The card identifier that is made from a token's serial.
#ifndef ORVANE_MINIDRIVER_FILE_SYSTEM_CARD_IDENTIFIER_H
#define ORVANE_MINIDRIVER_FILE_SYSTEM_CARD_IDENTIFIER_H

#include <cstddef>
#include <string_view>

namespace orvane {

inline constexpr std::size_t kCardIdentifierSize = 16;  // bytes

// fillCardIdentifier writes the 16 bytes of the card identifier: the serial's characters, repeated from the start until
// they suffice, or the first 16 of them. An empty serial leaves the buffer as it is.
inline void fillCardIdentifier(std::string_view serial, unsigned char* identifier) noexcept {
  if (serial.empty()) return;
  for (std::size_t i = 0; i < kCardIdentifierSize; ++i) {
    identifier[i] = static_cast<unsigned char>(serial[i % serial.size()]);
  }
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FILE_SYSTEM_CARD_IDENTIFIER_H
