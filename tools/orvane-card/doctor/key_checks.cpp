// The part of "doctor" that compares the key containers with their certificates.
#include <algorithm>
#include <map>

#include "doctor/checks.h"
#include "doctor/problems.h"

namespace orvane::tool {
namespace {

constexpr const char* kReplaceCertificate =
    "Such a key cannot be used with that certificate; have the certificate on the token replaced.";
constexpr const char* kAllKeys = "\"orvane-card list\" shows all keys.";
constexpr const char* kPlugInAgain =
    "Unplug the token and plug it in again. If that does not help, \"orvane-card log --level error\" shows the cause.";

std::string nameOf(const ContainerFacts& container) { return "container " + std::to_string(container.record.index); }

void compareSize(const ContainerFacts& container, const char* kind, std::uint16_t stated,
                 const std::optional<PublicKey>& key, Problems& problems) {
  const std::uint32_t bits = key ? key->bits : 0;
  if (stated == bits) return;
  problems.add(broken("\"cmapfile\" states a " + std::string(kind) + " key of " + std::to_string(stated) +
                          " bits for " + nameOf(container) + ", but the public key has " + std::to_string(bits) + ".",
                      kAllKeys));
}

bool differs(const std::optional<PublicKey>& key, const std::optional<PublicKey>& certified) {
  return key && (!certified || key->modulus != certified->modulus || key->exponent != certified->exponent);
}

void checkCertificate(const ContainerFacts& container, Problems& problems) {
  const std::string name = nameOf(container);
  if (!container.certificateProblem.empty()) {
    problems.add(
        broken("The certificate of " + name + " cannot be read: " + container.certificateProblem + ".", kPlugInAgain));
  } else if (!container.hasCertificate) {
    problems.add(warning("The key of " + name + " has no certificate, so Windows shows none for it.",
                         "Have the certificate put on the token."));
  } else if (differs(container.signature, container.certified) || differs(container.keyExchange, container.certified)) {
    problems.add(broken("The key of " + name + " is not the one in its certificate.", kReplaceCertificate));
  } else if (!container.current) {
    problems.add(warning("The certificate of " + name + " (" + container.subject + ") is valid from " +
                             container.notBefore.substr(0, 10) + " to " + container.notAfter.substr(0, 10) +
                             ", which is not today.",
                         "Check the machine's date; otherwise have the certificate renewed."));
  }
}

void checkContainer(const ContainerFacts& container, Problems& problems) {
  if (!container.keysProblem.empty()) {
    problems.add(broken("The public keys of " + nameOf(container) + " cannot be read: " + container.keysProblem + ".",
                        kPlugInAgain));
    return;
  }
  compareSize(container, "signature", container.record.signatureBits, container.signature, problems);
  compareSize(container, "key-exchange", container.record.keyExchangeBits, container.keyExchange, problems);
  checkCertificate(container, problems);
}

void checkNames(const std::vector<ContainerFacts>& containers, Problems& problems) {
  std::map<std::string, const ContainerFacts*> names;
  for (const ContainerFacts& container : containers) {
    const auto [earlier, isNew] = names.emplace(container.record.guid, &container);
    if (!isNew)
      problems.add(broken("Containers " + std::to_string(earlier->second->record.index) + " and " +
                              std::to_string(container.record.index) +
                              " have the same name, so Windows cannot tell them apart.",
                          kAllKeys));
  }
  const auto defaults = std::count_if(containers.begin(), containers.end(),
                                      [](const ContainerFacts& container) { return container.record.isDefault(); });
  if (defaults != 1)
    problems.add(
        warning("\"cmapfile\" marks " + std::to_string(defaults) + " containers as the default one.", kAllKeys));
}

}  // namespace

Finding judgeKeys(const std::vector<ContainerFacts>& containers) {
  std::vector<ContainerFacts> used = containers;
  std::erase_if(used, [](const ContainerFacts& container) { return !container.record.valid(); });
  if (used.empty())
    return broken("The token holds no keys, so Windows shows no certificate.",
                  "Have keys and certificates put on the token. If it holds some, unplug it and plug it in again.");
  Problems problems;
  for (const ContainerFacts& container : used) checkContainer(container, problems);
  checkNames(used, problems);
  if (!problems.broken.empty()) return problems.finding();
  const auto certificates =
      std::count_if(used.begin(), used.end(), [](const ContainerFacts& container) { return container.hasCertificate; });
  if (certificates == 0)
    return broken("No key on the token has a certificate, so Windows shows none.",
                  "Have the certificates put on the token.");
  if (!problems.suspicious.empty()) return problems.finding();
  std::string names;
  for (const ContainerFacts& container : used) names += (names.empty() ? "" : ", ") + container.subject;
  return ok((used.size() == 1 ? "One key with its certificate: "
                              : std::to_string(used.size()) + " keys, each with its certificate: ") +
            names + ".");
}

}  // namespace orvane::tool
