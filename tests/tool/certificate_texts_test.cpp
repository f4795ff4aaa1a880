#include "card/certificate_texts.h"

#include <gtest/gtest.h>

#include <array>

#include "tool_error.h"

namespace orvane::tool {
namespace {

CertificateFacts certificate() {
  CertificateFacts facts;
  facts.subject = "CN=Nora Example, O=Works";
  facts.subjectName = "Nora Example";
  facts.issuer = "CN=Test CA";
  facts.issuerName = "Test CA";
  facts.serialNumber = "0A0B";
  facts.notBefore = "2026-11-20T10:00:00Z";
  facts.notAfter = "2036-11-20T10:00:00Z";
  facts.current = true;
  facts.sha1 = fromHex("A1B2C3D4E5F60718293A4B5C6D7E8F9001122334");
  facts.sha256 = Bytes(32, 0xAB);
  return facts;
}

TEST(ToolCertificateTexts, UsesHaveWindowsNames) {
  CertificateFacts facts = certificate();
  EXPECT_EQ(keyUsageText(facts), "not limited");
  EXPECT_EQ(purposeText(facts), "not limited");
  facts.keyUsage = 0xC0;
  facts.purposes = {"1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.4", "1.3.6.1.4.1.311.20.2.2", "1.2.3.4"};
  EXPECT_EQ(keyUsageText(facts), "Digital Signature, Non-Repudiation");
  EXPECT_EQ(purposeText(facts), "Client Authentication, Secure Email, Smart Card Log-on, 1.2.3.4");
  facts.keyUsage = 0;
  facts.purposes->clear();
  EXPECT_EQ(keyUsageText(facts), "none");
  EXPECT_EQ(purposeText(facts), "none");
  EXPECT_EQ(keyUsageNames(0x3F), (std::vector<std::string>{"Key Encipherment", "Data Encipherment", "Key Agreement",
                                                           "Certificate Signing", "CRL Signing", "Encipher Only"}));
}

TEST(ToolCertificateTexts, ExpiredAndNotYetValidAreTwoThings) {
  CertificateFacts facts = certificate();
  EXPECT_EQ(validityText(facts), "2026-11-20 to 2036-11-20");
  facts.current = false;
  EXPECT_EQ(validityText(facts), "2026-11-20 to 2036-11-20, expired");
  facts.becomesValidLater = true;
  EXPECT_EQ(validityText(facts), "2026-11-20 to 2036-11-20, not yet valid");
}

TEST(ToolCertificateTexts, FieldsCannotCommandATerminal) {
  CertificateFacts facts = certificate();
  facts.email = "nora\x1B[2J@example.com";
  const auto fields = certificateFields(facts);
  EXPECT_EQ(fields[1], (std::pair<std::string, std::string>("E-mail", "nora.[2J@example.com")));
  EXPECT_EQ(thumbprintText(facts), "a1b2c3d4e5f60718293a4b5c6d7e8f9001122334");
  EXPECT_EQ(shortThumbprint(facts), "a1b2c3d4");
}

TEST(ToolCertificateTexts, JsonHasNullForWhatIsNotThere) {
  const Json json = certificateJson(certificate());
  EXPECT_TRUE(json["email"].is_null() && json["keyUsage"].is_null() && json["purposes"].is_null());
  EXPECT_EQ(json["sha1"], "A1B2C3D4E5F60718293A4B5C6D7E8F9001122334");
}

TEST(ToolChooseCertificate, ByKeyOrThumbprintOrTheOnlyOne) {
  const std::array<CertificateOffer, 3> three = {
      {{1, fromHex("A1B2C3D4E500")}, {2, fromHex("A1B2C3D4E511")}, {4, fromHex("0011223344")}}};
  const std::span<const CertificateOffer> all = three;
  struct Case {
    std::span<const CertificateOffer> offers;
    std::optional<int> key;
    std::optional<std::string> thumbprint;
    const char* outcome;  // the place, or the error's text
    ExitCode exitCode = ExitCode::kSuccess;
  };
  const Case cases[] = {
      {all, 4, std::nullopt, "2"},
      {all, std::nullopt, "00112233", "2"},
      {all, std::nullopt,
       "\xE2\x80\x8E"
       "00 11 22:33-44",
       "2"},
      {all, std::nullopt, "a1b2c3d4e511", "1"},
      {all.first(1), std::nullopt, std::nullopt, "0"},
      {{}, std::nullopt, std::nullopt, "no certificate could be read from the token", ExitCode::kNotFound},
      {all, std::nullopt, std::nullopt, "the token has 3 certificates; which one is wanted?", ExitCode::kUsage},
      {all, 3, std::nullopt, "key 3 has no certificate, or there is no such key", ExitCode::kNotFound},
      {all, 0, std::nullopt, "key 0 has no certificate, or there is no such key", ExitCode::kNotFound},
      {all, std::nullopt, "A1B2C3D4", "several certificates have a thumbprint that begins with a1b2c3d4",
       ExitCode::kNotFound},
      {all, std::nullopt, "FFFFFFFF", "no certificate on the token has a thumbprint that begins with ffffffff",
       ExitCode::kNotFound},
      {all, std::nullopt, "A1B2C3D", "the thumbprint has fewer than 8 digits", ExitCode::kUsage},
      {all, std::nullopt, "A1B2C3D4X", "\"A1B2C3D4X\" is no thumbprint", ExitCode::kUsage},
  };
  for (const Case& row : cases) {
    std::string outcome;
    ExitCode exitCode = ExitCode::kSuccess;
    try {
      outcome = std::to_string(chooseCertificate(row.offers, row.key, row.thumbprint));
    } catch (const ToolError& error) {
      outcome = error.what();
      exitCode = error.exitCode();
      EXPECT_FALSE(error.advice().empty()) << row.outcome;
    }
    EXPECT_EQ(outcome, row.outcome);
    EXPECT_EQ(exitCode, row.exitCode) << row.outcome;
  }
}

}  // namespace
}  // namespace orvane::tool
