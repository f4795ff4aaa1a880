// What the tool says about a certificate: texts without a look at Windows.
#ifndef ORVANE_TOOL_CARD_CERTIFICATE_TEXTS_H
#define ORVANE_TOOL_CARD_CERTIFICATE_TEXTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "card/certificate.h"
#include "text/json.h"

namespace orvane::tool {

// keyUsageNames gives the names of the bits in the first byte of the extension "key usage", as Windows shows them.
std::vector<std::string> keyUsageNames(std::uint8_t usage);

// purposeName gives Windows' name for an extended key usage, or its object identifier.
std::string purposeName(std::string_view identifier);

// keyUsageText and purposeText list those names; without the extension the certificate is good for everything.
std::string keyUsageText(const CertificateFacts& facts);
std::string purposeText(const CertificateFacts& facts);

// validityText gives "2026-11-20 to 2036-11-20", and behind it ", expired" or ", not yet valid" when that is so.
std::string validityText(const CertificateFacts& facts);

// thumbprintText gives the SHA-1 hash of the certificate as Windows shows it, in lower-case digits.
std::string thumbprintText(const CertificateFacts& facts);

// shortThumbprint gives its first kShortThumbprint digits, which a person can compare and type.
inline constexpr std::size_t kShortThumbprint = 8;
std::string shortThumbprint(const CertificateFacts& facts);

// certificateFields gives everything for people to read, by name; texts from the certificate cannot give a terminal
// commands.
std::vector<std::pair<std::string, std::string>> certificateFields(const CertificateFacts& facts);

// certificateJson gives the facts as an object.
Json certificateJson(const CertificateFacts& facts);

// CertificateOffer is a certificate that can be chosen: by the number of its key, counted from 1, or its thumbprint.
struct CertificateOffer {
  int key = 0;
  Bytes sha1;
};

// chooseCertificate gives the place in `offers` of the one with that key number, or whose thumbprint begins with the
// digits of `thumbprint` (blanks, colons and marks that are copied from a dialog along with it do not count); without
// either the only one that there is. Throws ToolError: ExitCode::kNotFound when none or several fit,
// ExitCode::kUsage for a thumbprint of fewer than kShortThumbprint digits and when there are several to choose from.
std::size_t chooseCertificate(std::span<const CertificateOffer> offers, std::optional<int> key,
                              const std::optional<std::string>& thumbprint);

}  // namespace orvane::tool

#endif
