#include "softtoken/token.h"

#include <algorithm>
#include <cstddef>

namespace orvane::softtoken {
namespace {

constexpr std::size_t kToyPlainLength = 48;

bool isHashLength(std::size_t length) {
  return length == 16 || length == 20 || length == 32 || length == 48 || length == 64;
}

}  // namespace

int Pin::check(std::string_view pin) {
  if (left <= 0) return kSofttokenPinBlocked;
  if (pin.empty()) return kSofttokenPinMissing;
  if (value != pin) {
    --left;
    return kSofttokenWrongPin;
  }
  left = tries;
  return kSofttokenOk;
}

void Pin::replace(std::string_view pin) {
  value = pin;
  left = tries;
}

int checkUserPin(Token& token, const char* pin) {
  const int result = token.userPin.check(pin != nullptr ? pin : "");
  if (result != kSofttokenPinMissing) token.userPinValidated = result == kSofttokenOk;
  return result;
}

const TokenKey* findKey(const Token& token, const unsigned char* credentialId) {
  if (credentialId == nullptr) return nullptr;
  const auto found = std::find_if(token.keys.begin(), token.keys.end(), [&](const TokenKey& key) {
    return std::equal(std::begin(key.record.credentialId), std::end(key.record.credentialId), credentialId);
  });
  return found == token.keys.end() ? nullptr : &*found;
}

int signWithKey(const TokenKey& key, const Bytes& hash, Bytes& signature) {
  if (!isHashLength(hash.size())) return kSofttokenBadData;
  if (key.secret) return key.secret->sign(hash, signature) ? kSofttokenOk : kSofttokenBadData;
  if (key.record.modulusLength > sizeof(key.record.modulus)) return kSofttokenBadData;
  signature.resize(key.record.modulusLength);
  for (std::size_t i = 0; i < signature.size(); ++i) signature[i] = static_cast<std::uint8_t>((i + 1) & 0xFF);
  return kSofttokenOk;
}

int decryptWithKey(const TokenKey& key, const Bytes& cipher, Bytes& plain) {
  if (cipher.empty()) return kSofttokenBadData;
  if (key.secret) return key.secret->decrypt(cipher, plain) ? kSofttokenOk : kSofttokenBadData;
  plain = cipher;
  plain.resize(std::min(plain.size(), kToyPlainLength));
  return kSofttokenOk;
}

}  // namespace orvane::softtoken
