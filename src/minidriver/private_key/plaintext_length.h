// How much of a decrypted block the caller gets.
#ifndef ORVANE_MINIDRIVER_PRIVATE_KEY_PLAINTEXT_LENGTH_H
#define ORVANE_MINIDRIVER_PRIVATE_KEY_PLAINTEXT_LENGTH_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace orvane {

// plaintextSize gives the number of bytes to take of a plaintext with the length that the library states, or none when
// it is larger than the cipher text, both in bytes. A negative length counts as a large one; where even that is not too
// large, for a cipher text of 2 GiB and more, there are no bytes to take.
inline std::optional<std::size_t> plaintextSize(int statedLength, std::uint32_t cipherTextLength) noexcept {
  if (static_cast<std::uint32_t>(statedLength) > cipherTextLength) return std::nullopt;
  return static_cast<std::size_t>(std::max(statedLength, 0));
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_PRIVATE_KEY_PLAINTEXT_LENGTH_H
