// Judging what Windows has made of the token's certificates.
#include <algorithm>

#include "doctor/checks.h"
#include "doctor/problems.h"
#include "support/text_compare.h"

namespace orvane::tool {
namespace {

constexpr const char* kThenPlugInAgain =
    " Then unplug the token and plug it in again; Windows copies its certificates when it is plugged in.";

std::string nameOf(const StoredCertificate& certificate) { return certificate.key + ", " + certificate.subject + ","; }

struct TrustError {
  std::uint32_t flag;
  const char* text;
  const char* advice;
};

// The flags of CERT_TRUST_STATUS (Microsoft Learn), those that say most first.
constexpr TrustError kTrustErrors[] = {
    {0x00000004, "has been revoked", "Have it replaced on the token."},
    {0x00000008, "has a wrong signature", "Have it replaced on the token."},
    {0x00000001, "is not valid today, or its issuer's is not", "Check the machine's date; otherwise have it renewed."},
    {0x00000020, "comes from an issuer whom this machine does not trust",
     "If the issuer is known, have its root certificate installed on this machine by the administrators."},
    {0x00010000, "comes from an issuer whose certificate is not on this machine",
     "Have the certificates of the issuers installed on this machine."},
    {0x00000010, "is meant for more than its issuers allow", "Have it replaced on the token."},
};

Finding distrusted(const StoredCertificate& certificate) {
  const std::string name = "The certificate of " + nameOf(certificate);
  for (const TrustError& row : kTrustErrors) {
    if (certificate.trustErrors & row.flag) return warning(name + " " + row.text + ".", row.advice);
  }
  return warning(name + " is not trusted: 0x" + hexNumber(certificate.trustErrors, 8) + ".",
                 "certmgr.msc shows the certificate and what is wrong with it.");
}

// The container's name, without the reader's that may stand before it.
std::string_view lastPart(std::string_view keyName) {
  const std::size_t separator = keyName.find_last_of('\\');
  return separator == std::string_view::npos ? keyName : keyName.substr(separator + 1);
}

void checkStored(const StoredCertificate& certificate, Problems& problems) {
  const std::string name = nameOf(certificate);
  if (certificate.provider.empty()) {
    problems.add(broken("The certificate of " + name + " is in the store, but without its key.",
                        std::string("Delete it in certmgr.msc, below Personal.") + kThenPlugInAgain));
  } else if (certificate.provider != kCryptoProvider && certificate.provider != kKeyStorageProvider) {
    problems.add(broken("The certificate of " + name + " is tied to another provider: " + certificate.provider + ".",
                        std::string("Remove the other software for this token, and delete the certificate in "
                                    "certmgr.msc, below Personal.") +
                            kThenPlugInAgain));
  } else if (!equalsIgnoreCase(lastPart(certificate.keyName), certificate.guid)) {
    problems.add(broken("The certificate of " + name + " is tied to another key: " + certificate.keyName +
                            " instead of " + certificate.guid + ".",
                        std::string("Delete it in certmgr.msc, below Personal.") + kThenPlugInAgain));
  } else if (certificate.trustErrors) {
    problems.add(distrusted(certificate));
  } else if (usesOf(certificate).empty()) {
    problems.add(warning("The certificate of " + name + " is meant for neither logon nor signing nor decryption.",
                         "Have one for the use that is wanted put on the token."));
  }
}

// What is wrong with the trust in the first certificate that is not in the store, or an empty text.
std::string distrustedMissing(const StoreFacts& facts) {
  for (const StoredCertificate& certificate : facts.certificates) {
    if (!certificate.isStored && certificate.trustErrors) return " " + distrusted(certificate).text;
  }
  return {};
}

// Why certificates are not in the store. `missing` names them.
Finding judgeMissing(const StoreFacts& facts, const std::string& missing) {
  const std::string text = "Not in this user's store: the certificate of " + missing + ".";
  if (facts.forbidden)
    return broken(text + " A policy forbids Windows to copy certificates there (CertPropEnabled is 0).",
                  "Have the machine's administrators switch \"Turn on certificate propagation from smart card\" on.");
  switch (facts.propagation) {
    case ServiceState::kMissing:
      return {StepState::kNotReached,
              text + " This system has no service that copies them there (CertPropSvc), so more cannot be said." +
                  distrustedMissing(facts),
              ""};
    case ServiceState::kUnknown:
      return {StepState::kNotReached,
              text + " The service that copies them there (CertPropSvc) cannot be asked, so more cannot be said." +
                  distrustedMissing(facts),
              ""};
    case ServiceState::kDisabled:
      return broken(text + " The service that copies them there (CertPropSvc) is disabled.",
                    std::string("As an administrator: sc.exe config CertPropSvc start= demand, then: sc.exe start "
                                "CertPropSvc.") +
                        kThenPlugInAgain);
    case ServiceState::kStopped:
      return broken(text + " The service that copies them there (CertPropSvc) does not run.",
                    std::string("As an administrator: sc.exe start CertPropSvc.") + kThenPlugInAgain);
    default:
      return broken(text + " The service that copies them there (CertPropSvc) runs, and has not done it.",
                    std::string("Run this as the user who misses them, not as another one.") + kThenPlugInAgain +
                        " If that does not help, \"certutil -scinfo\" asks Windows' own way.");
  }
}

}  // namespace

std::string usesOf(const StoredCertificate& certificate) {
  constexpr std::string_view kSmartCardLogon = "1.3.6.1.4.1.311.20.2.2";
  constexpr int kSigning = 0x80 | 0x40;     // digital signature, non-repudiation
  constexpr int kDecryption = 0x20 | 0x10;  // key and data encipherment
  const int usage = certificate.keyUsage.value_or(kSigning | kDecryption);
  // Without a list of purposes Windows takes a certificate for logon only if a policy says so.
  const bool mayLogOn = certificate.purposes && std::find(certificate.purposes->begin(), certificate.purposes->end(),
                                                          kSmartCardLogon) != certificate.purposes->end();
  std::string uses;
  const auto add = [&uses](bool applies, const char* use) {
    if (applies) uses += std::string(uses.empty() ? "" : ", ") + use;
  };
  add(mayLogOn && (usage & kSigning), "logon");
  add((usage & kSigning) != 0, "signing");
  add((usage & kDecryption) != 0, "decryption");
  return uses;
}

Finding judgeStore(const StoreFacts& facts) {
  std::string missing;
  std::string stored;
  Problems problems;
  for (const StoredCertificate& certificate : facts.certificates) {
    if (!certificate.isStored) {
      missing += (missing.empty() ? "" : "; ") + certificate.key + " (" + certificate.subject + ")";
      continue;
    }
    stored += (stored.empty() ? "" : "; ") + certificate.subject + " (" + usesOf(certificate) + ")";
    checkStored(certificate, problems);
  }
  if (!missing.empty()) return judgeMissing(facts, missing);
  if (!problems.empty()) return problems.finding();
  return ok("In this user's store, tied to their keys and trusted: " + stored + ".");
}

}  // namespace orvane::tool
