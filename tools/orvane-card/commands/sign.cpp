// sign: signs with one key, or with all.
#include "card/certificate.h"
#include "card/key_names.h"
#include "commands/commands.h"
#include "local_files.h"
#include "text/style.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

bool canSign(const ContainerRecord& record) { return record.valid() && record.signatureBits; }

Bytes hashToSign(const SignOptions& options, const HashAlgorithm& algorithm) {
  if (options.digest.empty()) return hashFile(algorithm, options.file);
  Bytes hash = fromHex(options.digest);
  if (hash.size() != algorithm.size)
    throw ToolError(ExitCode::kUsage, "the digest has " + std::to_string(hash.size()) + " bytes, but " +
                                          std::string(algorithm.name) + " gives " + std::to_string(algorithm.size));
  return hash;
}

// What is to sign: some of the token's keys.
struct Signers {
  std::vector<Container> containers;
  std::size_t count = 0;  // of all keys that the token has
};

Signers signersFor(Environment& environment, const SignOptions& options) {
  std::vector<Container> containers = seenKeys(environment);
  const std::size_t count = containers.size();
  if (!options.all) return {{chooseContainer(containers, options.key, canSign, "sign")}, count};
  std::erase_if(containers, [](const Container& container) { return !canSign(container.record); });
  if (containers.empty()) throw ToolError(ExitCode::kNotFound, "the token has no key that can sign");
  return {std::move(containers), count};
}

// Writes what the options ask for and notes the files' names.
void writeResults(const SignOptions& options, const Container& container, const Bytes& signature, Json& result) {
  std::string signaturePath = options.signature;
  std::string certificatePath = options.certificate;
  if (!options.folder.empty()) {
    const std::string number = std::to_string(container.record.index + 1);
    createFolder(options.folder);
    signaturePath = joinPath(options.folder, "signature-" + number + ".bin");
    certificatePath = joinPath(options.folder, "certificate-" + number + ".der");
  }
  result["signatureFile"] = nullptr;
  result["certificateFile"] = nullptr;
  if (!signaturePath.empty()) {
    writeLocalFile(signaturePath, signature);
    result["signatureFile"] = signaturePath;
  }
  if (!certificatePath.empty() && !container.certificate.empty()) {
    writeLocalFile(certificatePath, container.certificate);
    result["certificateFile"] = certificatePath;
  }
}

// The subject's name for people; signing does not depend on it.
std::string ownerOf(const Container& container) {
  try {
    return container.certificate.empty() ? "no certificate" : decodeCertificate(container.certificate).subjectName;
  } catch (const ToolError&) {
    return "unreadable certificate";
  }
}

std::string titleOf(const Container& container, std::size_t count) {
  return capitalised(keyName(container.record, count)) + ", " + withoutCommands(ownerOf(container));
}

std::string resultLine(const std::string& title, const Json& result) {
  std::string line = title + ": signature of " + std::to_string(result["size"].get<std::size_t>()) + " bytes";
  if (!result["signatureFile"].is_null()) line += " -> " + result["signatureFile"].get<std::string>();
  if (!result["certificateFile"].is_null()) line += ", certificate -> " + result["certificateFile"].get<std::string>();
  if (!result["verified"].is_null()) line += result["verified"].get<bool>() ? ", verified" : ", DOES NOT VERIFY";
  line += "\n";
  if (result["signatureFile"].is_null()) line += "  " + result["signature"].get<std::string>() + "\n";
  return line;
}

// What signing with one key gave.
struct Outcome {
  const Container& container;
  Bytes signature;
  std::optional<ToolError> failure;
};

// One transaction for PIN and signatures: to the provider, a verification counts only within its transaction. What is
// to be done with the signatures comes behind it, as writing and printing may take any time.
std::vector<Outcome> signWithAll(CardSession& card, std::optional<SecretText>& pin,
                                 const std::vector<Container>& containers, const HashAlgorithm& algorithm,
                                 const Bytes& hash) {
  const CardSession::Transaction transaction(card);
  if (pin) card.verifyPin(ROLE_USER, *pin);
  pin.reset();
  std::vector<Outcome> outcomes;
  for (const Container& container : containers) {
    Outcome outcome{container, {}, {}};
    try {
      outcome.signature = card.sign(container.record.index, algorithm, hash);
    } catch (const ToolError& error) {
      // One key that cannot sign says nothing about the others.
      outcome.failure = error;
    }
    outcomes.push_back(std::move(outcome));
  }
  return outcomes;
}

// Checks, writes and shows what was signed; throws the failure if it was not.
Json resultOf(Environment& environment, const Outcome& outcome, const std::string& title,
              const HashAlgorithm& algorithm, const Bytes& hash, const SignOptions& options) {
  if (outcome.failure) throw ToolError(*outcome.failure);
  const auto& [container, signature, failure] = outcome;
  Json result = {{"key", container.record.index + 1},
                 {"container", container.record.index},
                 {"size", signature.size()},
                 {"signature", toHex(signature)},
                 {"verified", nullptr}};
  if (options.check) result["verified"] = verifySignature(container.certificate, algorithm, hash, signature);
  writeResults(options, container, signature, result);
  environment.output().text(resultLine(title, result));
  if (result["verified"] == false)
    throw ToolError(ExitCode::kCheckFailed, "the signature does not verify with the certificate of the key");
  return result;
}

}  // namespace

Json runSign(Environment& environment, const SignOptions& options) {
  const HashAlgorithm& algorithm = findHashAlgorithm(options.hash);
  const Bytes hash = hashToSign(options, algorithm);
  CardSession& card = environment.card();
  const Signers signers = signersFor(environment, options);

  std::optional<SecretText> pin = neededPin(environment, options.pin);
  Json signatures = Json::array();
  std::optional<ToolError> firstFailure;
  for (const Outcome& outcome : signWithAll(card, pin, signers.containers, algorithm, hash)) {
    const std::string title = titleOf(outcome.container, signers.count);
    try {
      signatures.push_back(resultOf(environment, outcome, title, algorithm, hash, options));
    } catch (const ToolError& error) {
      if (!firstFailure) firstFailure = error;
      signatures.push_back({{"key", outcome.container.record.index + 1},
                            {"container", outcome.container.record.index},
                            {"error", errorJson(error)}});
      if (options.all) environment.output().text(title + ": " + error.what() + "\n");
    }
  }
  Json result = {{"hash", std::string(algorithm.name)}, {"digest", toHex(hash)}, {"signatures", std::move(signatures)}};
  if (firstFailure) throw PartialFailure(*firstFailure, std::move(result));
  return result;
}

}  // namespace orvane::tool
