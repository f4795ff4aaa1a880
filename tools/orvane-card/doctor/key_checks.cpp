// The part of "doctor" that compares the key containers with their certificates.
#include <algorithm>
#include <chrono>
#include <map>

#include "card/key_names.h"
#include "doctor/checks.h"
#include "doctor/problems.h"
#include "doctor/words.h"

namespace orvane::tool {
namespace {

constexpr const char* kReplaceCertificate =
    "Such a key cannot be used with that certificate; have the certificate on the token replaced.";
constexpr const char* kAllKeys = "\"orvane-card list\" shows all keys.";
constexpr const char* kPlugInAgain =
    "Unplug the token and plug it in again. If that does not help, \"orvane-card log --level error\" shows the cause.";

// A certificate that ends in fewer days is worth a warning.
constexpr int kSoon = 30;

// The day of a time as isoTime writes it, as a count of days.
int dayOf(const std::string& time) {
  const auto number = [&](std::size_t start, std::size_t length) {
    int value = 0;
    for (const char digit : time.substr(std::min(start, time.size()), length)) value = value * 10 + (digit - '0');
    return value;
  };
  const std::chrono::year_month_day date{std::chrono::year(number(0, 4)),
                                         std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                         std::chrono::day(static_cast<unsigned>(number(8, 2)))};
  return static_cast<int>(std::chrono::sys_days(date).time_since_epoch().count());
}

std::string dateOf(const std::string& time) { return time.substr(0, 10); }

// What the findings about keys are made from.
struct KeyReview {
  const std::vector<ContainerFacts>& containers;  // all, unused ones included
  const std::string& now;
  Problems problems = {};

  std::string name(const ContainerFacts& container) const { return keyName(container.record, containers.size()); }

  void compareSize(const ContainerFacts& container, const char* use, std::uint16_t stated,
                   const std::optional<PublicKey>& key) {
    const std::uint32_t bits = key ? key->bits : 0;
    if (stated == bits) return;
    problems.add(broken(capitalised(name(container)) + " is listed with " + std::to_string(stated) + " bits for " +
                            use + ", but its public key has " + std::to_string(bits) + ".",
                        kAllKeys));
  }

  static bool differs(const std::optional<PublicKey>& key, const std::optional<PublicKey>& certified) {
    return key && (!certified || key->modulus != certified->modulus || key->exponent != certified->exponent);
  }

  void checkValidity(const ContainerFacts& container) {
    const std::string certificate = "The certificate of " + name(container) + ", " + container.subject + ", ";
    const std::string otherwise = " If today is not " + dateOf(now) + ", set the machine's clock right.";
    if (container.notBefore > now) {
      problems.add(warning(certificate + "becomes valid on " + dateOf(container.notBefore) + ".",
                           "Wait until then; programs do not take it before." + otherwise));
    } else if (container.notAfter < now) {
      problems.add(
          warning(certificate + "expired on " + dateOf(container.notAfter) + ".", "Have it renewed." + otherwise));
    } else if (const int days = dayOf(container.notAfter) - dayOf(now); days < kSoon) {
      const std::string when = days == 0 ? "today" : days == 1 ? "tomorrow" : "in " + std::to_string(days) + " days";
      problems.add(warning(certificate + "expires " + when + ", on " + dateOf(container.notAfter) + ".",
                           "Have it renewed before then; until then it works."));
    }
  }

  void checkCertificate(const ContainerFacts& container) {
    if (!container.certificateProblem.empty()) {
      problems.add(
          broken("The certificate of " + name(container) + " cannot be read: " + container.certificateProblem + ".",
                 kPlugInAgain));
    } else if (!container.hasCertificate) {
      problems.add(warning(capitalised(name(container)) + " has no certificate, so programs do not show it.",
                           "Have its certificate put on the token."));
    } else if (differs(container.signature, container.certified) ||
               differs(container.keyExchange, container.certified)) {
      problems.add(broken("The certificate of " + name(container) + " belongs to another key.", kReplaceCertificate));
    } else {
      checkValidity(container);
    }
  }

  void checkContainer(const ContainerFacts& container) {
    if (!container.keysProblem.empty()) {
      problems.add(
          broken(capitalised(name(container)) + " cannot be read: " + container.keysProblem + ".", kPlugInAgain));
      return;
    }
    compareSize(container, "signing", container.record.signatureBits, container.signature);
    compareSize(container, "encryption", container.record.keyExchangeBits, container.keyExchange);
    checkCertificate(container);
  }

  void checkNames(const std::vector<ContainerFacts>& used) {
    std::map<std::string, const ContainerFacts*> names;
    for (const ContainerFacts& container : used) {
      const auto [earlier, isNew] = names.emplace(container.record.guid, &container);
      if (!isNew)
        problems.add(broken(capitalised(name(*earlier->second)) + " and " + name(container) +
                                " have the same name, so Windows cannot tell them apart.",
                            kAllKeys));
    }
    const auto defaults = std::count_if(used.begin(), used.end(),
                                        [](const ContainerFacts& container) { return container.record.isDefault(); });
    if (defaults != 1)
      problems.add(warning(std::to_string(defaults) + " keys are marked as the default one instead of 1.", kAllKeys));
  }
};

}  // namespace

Finding judgeKeys(const std::vector<ContainerFacts>& containers, const std::string& now) {
  std::vector<ContainerFacts> used = containers;
  std::erase_if(used, [](const ContainerFacts& container) { return !container.record.valid(); });
  if (used.empty())
    return broken(
        "The token was opened and holds no keys, so there is no certificate to show.",
        "Have keys and certificates put on the token. If it should hold some, unplug it, plug it in again and "
        "run this again.");
  KeyReview review{containers, now};
  for (const ContainerFacts& container : used) review.checkContainer(container);
  review.checkNames(used);
  const Problems& problems = review.problems;
  if (!problems.broken.empty()) return problems.finding();
  const auto certificates =
      std::count_if(used.begin(), used.end(), [](const ContainerFacts& container) { return container.hasCertificate; });
  if (certificates == 0)
    return broken("No key on the token has a certificate, so programs show none.",
                  "Have the certificates put on the token.");
  if (!problems.suspicious.empty()) return problems.finding();
  std::string names;
  for (const ContainerFacts& container : used) names += (names.empty() ? "" : ", ") + container.subject;
  return ok((used.size() == 1 ? "One key with its certificate: "
                              : std::to_string(used.size()) + " keys, each with its certificate: ") +
            names + ".");
}

}  // namespace orvane::tool
