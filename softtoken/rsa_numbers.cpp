#include "softtoken/rsa_numbers.h"

#include <cstddef>

namespace orvane::softtoken {
namespace {

constexpr std::uint8_t kIntegerTag = 0x02;
constexpr std::uint8_t kSequenceTag = 0x30;

// Reads DER elements one after the other from a part of a byte list.
class DerReader {
 public:
  DerReader(const std::uint8_t* begin, const std::uint8_t* end) : position(begin), limit(end) {}

  bool atEnd() const { return position == limit; }

  bool read(std::uint8_t tag, DerReader& content) {
    if (available() < 2 || position[0] != tag) return false;
    std::size_t length = position[1];
    const std::uint8_t* start = position + 2;
    if (length >= 0x80) {
      const std::size_t lengthBytes = length - 0x80;
      if (lengthBytes == 0 || lengthBytes > 4 || available() < 2 + lengthBytes) return false;
      length = 0;
      for (std::size_t i = 0; i < lengthBytes; ++i) length = length << 8 | start[i];
      start += lengthBytes;
    }
    if (static_cast<std::size_t>(limit - start) < length) return false;
    content = DerReader(start, start + length);
    position = start + length;
    return true;
  }

  bool readInteger(std::vector<std::uint8_t>& number) {
    DerReader content(nullptr, nullptr);
    if (!read(kIntegerTag, content) || content.atEnd()) return false;
    while (!content.atEnd() && *content.position == 0) ++content.position;
    number.assign(content.position, content.limit);
    return true;
  }

 private:
  std::size_t available() const { return static_cast<std::size_t>(limit - position); }

  const std::uint8_t* position;
  const std::uint8_t* limit;
};

}  // namespace

bool readRsaPrivateKey(const std::vector<std::uint8_t>& der, RsaNumbers& numbers) {
  DerReader file(der.data(), der.data() + der.size());
  DerReader key(nullptr, nullptr);
  if (!file.read(kSequenceTag, key) || !file.atEnd()) return false;
  std::vector<std::uint8_t> version;
  RsaNumbers read;
  if (!key.readInteger(version) || !version.empty()) return false;
  for (std::vector<std::uint8_t>* number : {&read.modulus, &read.publicExponent, &read.privateExponent, &read.prime1,
                                            &read.prime2, &read.exponent1, &read.exponent2, &read.coefficient}) {
    if (!key.readInteger(*number) || number->empty()) return false;
  }
  if (!key.atEnd()) return false;
  numbers = read;
  return true;
}

}  // namespace orvane::softtoken
