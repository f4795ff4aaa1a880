// One token of the software token: its keys, certificates and PINs.
#ifndef ORVANE_SOFTTOKEN_TOKEN_H
#define ORVANE_SOFTTOKEN_TOKEN_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "softtoken/private_key.h"
#include "softtoken/softtoken_control.h"
#include "tokenlib/token_library.h"

namespace orvane::softtoken {

using CredentialId = std::array<std::uint8_t, 16>;

// A PIN with its retry counter.
class Pin {
 public:
  Pin() = default;
  Pin(std::string pin, int allowedTries) : value(std::move(pin)), tries(allowedTries), left(allowedTries) {}

  // kSofttokenOk restores the tries; a wrong PIN uses one up; without tries the PIN is not looked at.
  int check(std::string_view pin);

  // Sets a new PIN and restores the tries.
  void replace(std::string_view pin);

  int triesLeft() const { return left; }
  void setTriesLeft(int count) { left = count; }

 private:
  std::string value;
  int tries = 0;
  int left = 0;
};

// A key as the library hands it out, and what signs and decrypts with it.
struct TokenKey {
  OrvaneKeyPair record{};
  std::shared_ptr<const PrivateKey> secret;  // null: the readable arithmetic of tokens in memory
};

// Everything about one token; see SofttokenTokenDefinition for what the members mean.
struct Token {
  std::string firmwareVersion;
  Pin userPin;
  Pin soPin;
  bool fips = false;
  int initResult = 0;
  int passwordValidated = kSofttokenKeep;  // fixed value, or kSofttokenKeep to follow userPinValidated
  bool userPinValidated = false;
  bool connected = true;
  std::vector<TokenKey> keys;
  std::map<CredentialId, OrvaneCertificate> certificates;
};

// Checks the user PIN and notes whether it is validated now.
int checkUserPin(Token& token, const char* pin);

// The token's first key with this credential id, or null.
const TokenKey* findKey(const Token& token, const unsigned char* credentialId);

// Signing and decrypting with a key, without any PIN; results are those of the library.
int signWithKey(const TokenKey& key, const Bytes& hash, Bytes& signature);
int decryptWithKey(const TokenKey& key, const Bytes& cipher, Bytes& plain);

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_TOKEN_H
