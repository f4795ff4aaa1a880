#include <gtest/gtest.h>

#include <functional>

#include "doctor/checks.h"

namespace orvane::tool {
namespace {

constexpr const char* kLogon = "1.3.6.1.4.1.311.20.2.2";
constexpr const char* kMail = "1.3.6.1.5.5.7.3.4";

StoredCertificate goodCertificate() {
  StoredCertificate certificate;
  certificate.key = "key 3 of 5 (encryption)";
  certificate.guid = "te-0012AB-2";
  certificate.subject = "Anna";
  certificate.isStored = true;
  certificate.provider = "Microsoft Base Smart Card Crypto Provider";
  certificate.keyName = "te-0012ab-2";
  certificate.keyUsage = std::uint8_t{0xA0};
  certificate.purposes = {{kMail, kLogon}};
  return certificate;
}

TEST(ToolDoctorStore, EveryCertificateIsStoredTiedTrustedAndOfUse) {
  struct Case {
    const char* what;
    std::function<void(StoredCertificate&)> change;
    StepState state;
    const char* part;
  };
  using Certificate = StoredCertificate;
  const Case cases[] = {
      {"good", [](Certificate&) {}, StepState::kOk,
       "In this user's store, tied to their keys and trusted: Anna (logon, signing, decryption)."},
      {"the other provider", [](Certificate& each) { each.provider = "Microsoft Smart Card Key Storage Provider"; },
       StepState::kOk, "Anna"},
      {"with the reader's name", [](Certificate& each) { each.keyName = R"(\\.\Reader 0\te-0012AB-2)"; },
       StepState::kOk, "Anna"},
      {"no key", [](Certificate& each) { each.provider.clear(); }, StepState::kBroken,
       "The certificate of key 3 of 5 (encryption), Anna, is in the store, but without its key."},
      {"another program's provider", [](Certificate& each) { each.provider = "Other"; }, StepState::kBroken,
       "is tied to another provider: Other."},
      {"another container", [](Certificate& each) { each.keyName = "te-0012AB-3"; }, StepState::kBroken,
       "is tied to another key: te-0012AB-3 instead of te-0012AB-2."},
      {"revoked", [](Certificate& each) { each.trustErrors = 0x24; }, StepState::kWarning, "has been revoked."},
      {"expired", [](Certificate& each) { each.trustErrors = 0x1; }, StepState::kWarning, "is not valid today"},
      {"unknown root", [](Certificate& each) { each.trustErrors = 0x20; }, StepState::kWarning,
       "whom this machine does not trust."},
      {"no issuer", [](Certificate& each) { each.trustErrors = 0x10000; }, StepState::kWarning,
       "whose certificate is not on this machine."},
      {"something else", [](Certificate& each) { each.trustErrors = 0x100; }, StepState::kWarning,
       "is not trusted: 0x00000100."},
      {"for nothing", [](Certificate& each) { each.keyUsage = std::uint8_t{0x02}; }, StepState::kWarning,
       "is meant for neither logon nor signing nor decryption."},
  };
  for (const Case& row : cases) {
    StoreFacts facts;
    facts.propagation = ServiceState::kRunning;
    facts.certificates = {goodCertificate()};
    row.change(facts.certificates.front());
    const Finding finding = judgeStore(facts);
    EXPECT_EQ(finding.state, row.state) << row.what << ": " << finding.text;
    EXPECT_NE(finding.text.find(row.part), std::string::npos) << row.what << ": " << finding.text;
    EXPECT_EQ(finding.advice.empty(), row.state == StepState::kOk) << row.what;
  }
}

TEST(ToolDoctorStore, WhatIsMissingHasItsCause) {
  struct Case {
    const char* what;
    ServiceState propagation;
    bool forbidden;
    StepState state;
    const char* part;
    const char* advice;
  };
  const Case cases[] = {
      {"policy", ServiceState::kRunning, true, StepState::kBroken, "A policy forbids", "certificate propagation"},
      {"policy, no service", ServiceState::kMissing, true, StepState::kBroken, "A policy forbids", "administrators"},
      {"disabled", ServiceState::kDisabled, false, StepState::kBroken, "(CertPropSvc) is disabled.", "start= demand"},
      {"stopped", ServiceState::kStopped, false, StepState::kBroken, "(CertPropSvc) does not run.",
       "sc.exe start CertPropSvc"},
      {"running", ServiceState::kRunning, false, StepState::kBroken, "(CertPropSvc) runs, and has not done it.",
       "as the user who misses them"},
      {"no such service", ServiceState::kMissing, false, StepState::kNotReached,
       "This system has no service that copies them there (CertPropSvc)", ""},
      {"cannot be asked", ServiceState::kUnknown, false, StepState::kNotReached, "(CertPropSvc) cannot be asked", ""},
  };
  for (const Case& row : cases) {
    StoreFacts facts;
    facts.propagation = row.propagation;
    facts.forbidden = row.forbidden;
    facts.certificates = {goodCertificate(), goodCertificate()};
    facts.certificates[1].isStored = false;
    facts.certificates[1].key = "key 5 of 5 (signing)";
    const Finding finding = judgeStore(facts);
    EXPECT_EQ(finding.state, row.state) << row.what << ": " << finding.text;
    EXPECT_TRUE(finding.text.starts_with("Not in this user's store: the certificate of key 5 of 5 (signing) (Anna). "))
        << row.what << ": " << finding.text;
    EXPECT_NE(finding.text.find(row.part), std::string::npos) << row.what << ": " << finding.text;
    EXPECT_NE(finding.advice.find(row.advice), std::string::npos) << row.what << ": " << finding.advice;
    EXPECT_EQ(finding.advice.empty(), row.state == StepState::kNotReached) << row.what;
  }
}

TEST(ToolDoctorStore, TrustIsLookedAtWithoutTheStoreToo) {
  StoreFacts facts;
  facts.propagation = ServiceState::kMissing;
  facts.certificates = {goodCertificate()};
  facts.certificates[0].isStored = false;
  facts.certificates[0].trustErrors = 0x20;
  const Finding finding = judgeStore(facts);
  EXPECT_EQ(finding.state, StepState::kNotReached);
  EXPECT_TRUE(
      finding.text.ends_with("so more cannot be said. The certificate of key 3 of 5 (encryption), Anna, comes from "
                             "an issuer whom this machine does not trust."))
      << finding.text;
}

TEST(ToolDoctorStore, UsesFollowFromBothExtensions) {
  struct Case {
    const char* what;
    std::optional<std::uint8_t> keyUsage;
    std::optional<std::vector<std::string>> purposes;
    const char* uses;
  };
  const Case cases[] = {
      {"all", std::nullopt, {{kLogon}}, "logon, signing, decryption"},
      {"no extension", std::nullopt, std::nullopt, "signing, decryption"},
      {"mail", std::uint8_t{0xC0}, {{kMail}}, "signing"},
      {"non-repudiation", std::uint8_t{0x40}, std::nullopt, "signing"},
      {"encryption", std::uint8_t{0x20}, {{kLogon}}, "decryption"},
      {"certificates", std::uint8_t{0x06}, {{kLogon}}, ""},
  };
  for (const Case& row : cases) {
    StoredCertificate certificate;
    certificate.keyUsage = row.keyUsage;
    certificate.purposes = row.purposes;
    EXPECT_EQ(usesOf(certificate), row.uses) << row.what;
  }
}

}  // namespace
}  // namespace orvane::tool
