// X.509 certificates, read with the operating system's functions.
#ifndef ORVANE_TOOL_CARD_CERTIFICATE_H
#define ORVANE_TOOL_CARD_CERTIFICATE_H

#include <optional>
#include <string>
#include <vector>

#include "card/card_files.h"
#include "card/hash_algorithms.h"

namespace orvane::tool {

// CertificateFacts is what the tool shows of a certificate. Texts are UTF-8, times as isoTime writes them.
struct CertificateFacts {
  std::string subject;      // the whole distinguished name
  std::string subjectName;  // its common name, or what stands for it
  std::string issuer;
  std::string issuerName;
  std::string serialNumber;  // hexadecimal, most significant byte first
  std::string notBefore;
  std::string notAfter;
  bool current = false;            // now lies between the two
  bool becomesValidLater = false;  // now lies before them
  std::uint32_t keyBits = 0;
  std::optional<PublicKey> key = {};                      // none when it is no RSA key
  std::string email = {};                                 // empty when it names none
  std::optional<std::uint8_t> keyUsage = {};              // first byte of the extension; none: every use
  std::optional<std::vector<std::string>> purposes = {};  // object identifiers of the extended key usage; none: every
                                                          // purpose
  Bytes sha1 = {};                                        // the thumbprint that Windows shows
  Bytes sha256 = {};                                      // fingerprint
};

// decodeCertificate reads a DER certificate; throws ToolError (ExitCode::kCheckFailed) when it is none.
CertificateFacts decodeCertificate(ByteView der);

// pemOf gives the certificate as text: base64 between two lines of dashes. Throws ToolError (ExitCode::kInternal).
std::string pemOf(ByteView der);

// verifySignature checks a PKCS #1 v1.5 signature (most significant byte first) over `hash` with the certificate's key.
// Throws ToolError (ExitCode::kInternal) when the operating system cannot check it at all.
bool verifySignature(ByteView certificate, const HashAlgorithm& algorithm, ByteView hash, ByteView signature);

// hashFile and hashBytes compute a hash with the operating system's functions; they throw ToolError.
Bytes hashFile(const HashAlgorithm& algorithm, const std::string& path);
Bytes hashBytes(const HashAlgorithm& algorithm, ByteView data);

}  // namespace orvane::tool

#endif
