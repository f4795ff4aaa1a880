// decrypt: decrypts one block.
#include "card/key_names.h"
#include "commands/commands.h"
#include "local_files.h"
#include "text/style.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

bool canDecrypt(const ContainerRecord& record) { return record.valid() && record.keyExchangeBits; }

// Said before a PIN is asked for: the minidriver would complain about the padding first.
void requireDecryptionKey(const Container& container, std::size_t count) {
  if (canDecrypt(container.record)) return;
  throw ToolError(ExitCode::kNotFound, keyName(container.record, count) + " is not one that can decrypt",
                  "\"orvane-card list\" shows what each key is for.");
}

// One transaction for PIN and decryption: to the provider, a verification counts only within its transaction.
Bytes decrypted(CardSession& card, std::optional<SecretText>& pin, const Container& container, const Bytes& block,
                Padding padding, const HashAlgorithm& oaepHash) {
  const CardSession::Transaction transaction(card);
  if (pin) card.verifyPin(ROLE_USER, *pin);
  pin.reset();
  return card.decrypt(container.record.index, block, padding, oaepHash);
}

}  // namespace

Json runDecrypt(Environment& environment, const DecryptOptions& options) {
  const Padding padding = options.padding == "oaep"   ? Padding::kOaep
                          : options.padding == "none" ? Padding::kNone
                                                      : Padding::kPkcs1;
  const HashAlgorithm& oaepHash = findHashAlgorithm(options.oaepHash);
  const Bytes block = readLocalFile(options.file);
  CardSession& card = environment.card();
  const std::vector<Container> containers = seenKeys(environment);
  const Container& container = chooseContainer(containers, options.key, canDecrypt, "decrypt");
  requireDecryptionKey(container, containers.size());

  std::optional<SecretText> pin = neededPin(environment, options.pin);
  const Bytes plaintext = decrypted(card, pin, container, block, padding, oaepHash);
  Json result = {{"key", container.record.index + 1},
                 {"container", container.record.index},
                 {"size", plaintext.size()},
                 {"file", nullptr}};
  if (options.output == "-") {
    environment.output().raw(plaintext);
    return result;
  }
  writeLocalFile(options.output, plaintext);
  result["file"] = options.output;
  environment.output().text(capitalised(keyName(container.record, containers.size())) + ": " +
                            std::to_string(plaintext.size()) + " bytes -> " + options.output + "\n");
  return result;
}

}  // namespace orvane::tool
