#include "card/certificate_texts.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "text/bytes.h"
#include "text/phrases.h"
#include "text/style.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

struct PurposeName {
  std::string_view identifier;
  std::string_view name;
};

// As Windows' own dialog for certificates names them.
constexpr PurposeName kPurposeNames[] = {
    {"1.3.6.1.5.5.7.3.1", "Server Authentication"},
    {"1.3.6.1.5.5.7.3.2", "Client Authentication"},
    {"1.3.6.1.5.5.7.3.3", "Code Signing"},
    {"1.3.6.1.5.5.7.3.4", "Secure Email"},
    {"1.3.6.1.5.5.7.3.8", "Time Stamping"},
    {"1.3.6.1.4.1.311.20.2.2", "Smart Card Log-on"},
    {"1.3.6.1.4.1.311.10.3.4", "Encrypting File System"},
    {"1.3.6.1.4.1.311.10.3.12", "Document Signing"},
    {"1.3.6.1.4.1.311.67.1.1", "BitLocker Drive Encryption"},
    {"2.5.29.37.0", "Any Purpose"},
};

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char unit) { return static_cast<char>(std::tolower(unit)); });
  return text;
}

// The digits of a thumbprint as it was typed or copied. Windows' dialog puts an invisible mark before it.
std::string digitsOf(const std::string& thumbprint) {
  std::string digits;
  for (const char unit : thumbprint) {
    if (isHexDigit(unit)) {
      digits += unit;
    } else if (static_cast<unsigned char>(unit) < 0x80 && unit != ' ' && unit != ':' && unit != '-') {
      throw ToolError(ExitCode::kUsage, "\"" + thumbprint + "\" is no thumbprint",
                      "It has 40 hexadecimal digits; its first " + std::to_string(kShortThumbprint) + " are enough.");
    }
  }
  if (digits.size() < kShortThumbprint)
    throw ToolError(ExitCode::kUsage, "the thumbprint has fewer than " + std::to_string(kShortThumbprint) + " digits",
                    "\"orvane-card list\" shows enough of them.");
  return lowerCase(std::move(digits));
}

constexpr const char* kListShowsThem = "\"orvane-card list\" shows the keys and certificates that there are.";

}  // namespace

std::vector<std::string> keyUsageNames(std::uint8_t usage) {
  constexpr std::array<const char*, 8> kNames = {"Digital Signature", "Non-Repudiation", "Key Encipherment",
                                                 "Data Encipherment", "Key Agreement",   "Certificate Signing",
                                                 "CRL Signing",       "Encipher Only"};
  std::vector<std::string> names;
  for (std::size_t bit = 0; bit < kNames.size(); ++bit) {
    if (usage & (0x80U >> bit)) names.emplace_back(kNames[bit]);
  }
  return names;
}

std::string purposeName(std::string_view identifier) {
  for (const PurposeName& row : kPurposeNames) {
    if (row.identifier == identifier) return std::string(row.name);
  }
  return std::string(identifier);
}

std::string keyUsageText(const CertificateFacts& facts) {
  if (!facts.keyUsage) return "not limited";
  const std::string names = listed(keyUsageNames(*facts.keyUsage));
  return names.empty() ? "none" : names;
}

std::string purposeText(const CertificateFacts& facts) {
  if (!facts.purposes) return "not limited";
  std::vector<std::string> names;
  for (const std::string& identifier : *facts.purposes) names.push_back(purposeName(identifier));
  return names.empty() ? "none" : listed(names);
}

std::string validityText(const CertificateFacts& facts) {
  std::string text = facts.notBefore.substr(0, 10) + " to " + facts.notAfter.substr(0, 10);
  if (facts.current) return text;
  return text + (facts.becomesValidLater ? ", not yet valid" : ", expired");
}

std::string thumbprintText(const CertificateFacts& facts) { return lowerCase(toHex(facts.sha1)); }

std::string shortThumbprint(const CertificateFacts& facts) { return thumbprintText(facts).substr(0, kShortThumbprint); }

std::vector<std::pair<std::string, std::string>> certificateFields(const CertificateFacts& facts) {
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Subject", facts.subject},
      {"E-mail", facts.email.empty() ? "none" : facts.email},
      {"Issuer", facts.issuer},
      {"Valid", validityText(facts)},
      {"Key usage", keyUsageText(facts)},
      {"Purpose", purposeText(facts)},
      {"Certificate's number", lowerCase(facts.serialNumber)},
      {"Thumbprint (SHA-1)", thumbprintText(facts)},
      {"SHA-256", lowerCase(toHex(facts.sha256))},
  };
  for (auto& [name, value] : fields) value = withoutCommands(value);
  return fields;
}

Json certificateJson(const CertificateFacts& facts) {
  return {{"subject", facts.subject},
          {"subjectName", facts.subjectName},
          {"email", textOrNull(facts.email)},
          {"issuer", facts.issuer},
          {"issuerName", facts.issuerName},
          {"serialNumber", facts.serialNumber},
          {"notBefore", facts.notBefore},
          {"notAfter", facts.notAfter},
          {"current", facts.current},
          {"keyBits", facts.keyBits},
          {"keyUsage", facts.keyUsage ? Json(keyUsageNames(*facts.keyUsage)) : Json(nullptr)},
          {"purposes", facts.purposes ? Json(*facts.purposes) : Json(nullptr)},
          {"sha1", toHex(facts.sha1)},
          {"sha256", toHex(facts.sha256)}};
}

std::size_t chooseCertificate(std::span<const CertificateOffer> offers, std::optional<int> key,
                              const std::optional<std::string>& thumbprint) {
  if (offers.empty())
    throw ToolError(ExitCode::kNotFound, "no certificate could be read from the token", kListShowsThem);
  const std::string digits = thumbprint ? digitsOf(*thumbprint) : std::string();
  std::optional<std::size_t> choice;
  for (std::size_t place = 0; place < offers.size(); ++place) {
    if (key && offers[place].key != *key) continue;
    if (thumbprint && !lowerCase(toHex(offers[place].sha1)).starts_with(digits)) continue;
    if (choice && thumbprint)
      throw ToolError(ExitCode::kNotFound, "several certificates have a thumbprint that begins with " + digits,
                      "Give more of its digits, or the number of the key.");
    if (choice)
      throw ToolError(ExitCode::kUsage,
                      "the token has " + std::to_string(offers.size()) + " certificates; which one is wanted?",
                      std::string("Name the key with --key, or the certificate with --thumbprint. ") + kListShowsThem);
    choice = place;
  }
  if (choice) return *choice;
  throw ToolError(ExitCode::kNotFound,
                  thumbprint ? "no certificate on the token has a thumbprint that begins with " + digits
                             : "key " + std::to_string(*key) + " has no certificate, or there is no such key",
                  kListShowsThem);
}

}  // namespace orvane::tool
