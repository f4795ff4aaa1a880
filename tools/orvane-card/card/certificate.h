// X.509 certificates, read with the operating system's functions.
#ifndef ORVANE_TOOL_CARD_CERTIFICATE_H
#define ORVANE_TOOL_CARD_CERTIFICATE_H

#include <optional>
#include <string>

#include "card/card_files.h"
#include "card/hash_algorithms.h"
#include "text/json.h"

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
  bool current = false;  // now lies between the two
  std::uint32_t keyBits = 0;
  std::optional<PublicKey> key;  // none when it is no RSA key
  Bytes sha256;                  // fingerprint
};

// decodeCertificate reads a DER certificate; throws ToolError (ExitCode::kCheckFailed) when it is none.
CertificateFacts decodeCertificate(ByteView der);

// certificateJson gives the facts as an object.
Json certificateJson(const CertificateFacts& facts);

// verifySignature checks a PKCS #1 v1.5 signature (most significant byte first) over `hash` with the certificate's key.
// Throws ToolError (ExitCode::kInternal) when the operating system cannot check it at all.
bool verifySignature(ByteView certificate, const HashAlgorithm& algorithm, ByteView hash, ByteView signature);

// hashFile and hashBytes compute a hash with the operating system's functions; they throw ToolError.
Bytes hashFile(const HashAlgorithm& algorithm, const std::string& path);
Bytes hashBytes(const HashAlgorithm& algorithm, ByteView data);

}  // namespace orvane::tool

#endif
