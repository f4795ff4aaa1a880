#include "card/certificate.h"

#include <cstddef>
#include <memory>

#include "local_files.h"
#include "platform/windows_api.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

struct CertificateCloser {
  void operator()(const CERT_CONTEXT* context) const { CertFreeCertificateContext(context); }
};
using Certificate = std::unique_ptr<const CERT_CONTEXT, CertificateCloser>;

struct AlgorithmCloser {
  void operator()(void* handle) const { BCryptCloseAlgorithmProvider(handle, 0); }
};
struct HashCloser {
  void operator()(void* handle) const { BCryptDestroyHash(handle); }
};
struct KeyCloser {
  void operator()(void* handle) const { BCryptDestroyKey(handle); }
};

Certificate openCertificate(ByteView der) {
  Certificate certificate(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())));
  if (!certificate) throw ToolError(ExitCode::kCheckFailed, "the data is no X.509 certificate");
  return certificate;
}

std::string wholeName(CERT_NAME_BLOB& name) {
  constexpr DWORD kForm = CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG;
  const DWORD length = CertNameToStrW(X509_ASN_ENCODING, &name, kForm, nullptr, 0);
  std::wstring text(length, L'\0');
  CertNameToStrW(X509_ASN_ENCODING, &name, kForm, text.data(), length);
  return toUtf8(text.substr(0, text.find(L'\0')));
}

std::string shortName(const Certificate& certificate, DWORD type, DWORD flags) {
  const DWORD length = CertGetNameStringW(certificate.get(), type, flags, nullptr, nullptr, 0);
  std::wstring text(length, L'\0');
  CertGetNameStringW(certificate.get(), type, flags, nullptr, text.data(), length);
  return toUtf8(text.substr(0, text.find(L'\0')));
}

std::optional<std::uint8_t> keyUsageOf(CERT_INFO& info) {
  BYTE usage = 0;
  if (!CertGetIntendedKeyUsage(X509_ASN_ENCODING, &info, &usage, sizeof usage)) return std::nullopt;
  return usage;
}

std::optional<std::vector<std::string>> purposesOf(const Certificate& certificate) {
  DWORD size = 0;
  if (!CertGetEnhancedKeyUsage(certificate.get(), CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG, nullptr, &size))
    return std::nullopt;
  // The texts lie behind the structure, which wants to be aligned.
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  auto* list = reinterpret_cast<CERT_ENHKEY_USAGE*>(buffer.data());
  if (!CertGetEnhancedKeyUsage(certificate.get(), CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG, list, &size))
    return std::nullopt;
  return std::vector<std::string>(list->rgpszUsageIdentifier, list->rgpszUsageIdentifier + list->cUsageIdentifier);
}

std::optional<PublicKey> publicKey(const CERT_PUBLIC_KEY_INFO& info) {
  if (std::string_view(info.Algorithm.pszObjId) != szOID_RSA_RSA) return std::nullopt;
  DWORD size = 0;
  const auto decode = [&](PBYTE blob) {
    return CryptDecodeObject(X509_ASN_ENCODING, RSA_CSP_PUBLICKEYBLOB, info.PublicKey.pbData, info.PublicKey.cbData, 0,
                             blob, &size) != FALSE;
  };
  if (!decode(nullptr)) return std::nullopt;
  Bytes blob(size);
  if (!decode(blob.data())) return std::nullopt;
  blob.resize(size);
  return decodePublicKey(blob);
}

void checkCrypto(const char* call, NTSTATUS status) {
  if (status >= 0) return;
  throw ToolError(ExitCode::kInternal,
                  std::string(call) + " failed: " + hexNumber(static_cast<std::uint32_t>(status), 8));
}

// A hash being computed.
class Hasher {
 public:
  explicit Hasher(const HashAlgorithm& algorithm) : size_(algorithm.size) {
    BCRYPT_ALG_HANDLE provider = nullptr;
    checkCrypto("BCryptOpenAlgorithmProvider",
                BCryptOpenAlgorithmProvider(&provider, algorithm.cngName.data(), nullptr, 0));
    provider_.reset(provider);
    BCRYPT_HASH_HANDLE hash = nullptr;
    checkCrypto("BCryptCreateHash", BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0));
    hash_.reset(hash);
  }

  void add(ByteView data) {
    if (data.empty()) return;
    checkCrypto("BCryptHashData",
                BCryptHashData(hash_.get(), const_cast<PUCHAR>(data.data()), static_cast<ULONG>(data.size()), 0));
  }

  Bytes result() {
    Bytes hash(size_);
    checkCrypto("BCryptFinishHash", BCryptFinishHash(hash_.get(), hash.data(), static_cast<ULONG>(hash.size()), 0));
    return hash;
  }

 private:
  std::size_t size_;
  std::unique_ptr<void, AlgorithmCloser> provider_;
  std::unique_ptr<void, HashCloser> hash_;
};

}  // namespace

CertificateFacts decodeCertificate(ByteView der) {
  const Certificate certificate = openCertificate(der);
  CERT_INFO& info = *certificate->pCertInfo;
  CertificateFacts facts;
  facts.subject = wholeName(info.Subject);
  facts.subjectName = shortName(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0);
  facts.issuer = wholeName(info.Issuer);
  facts.issuerName = shortName(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, CERT_NAME_ISSUER_FLAG);
  facts.serialNumber = toHex(reversed({info.SerialNumber.pbData, info.SerialNumber.cbData}));
  facts.notBefore = isoTime(joined(info.NotBefore.dwHighDateTime, info.NotBefore.dwLowDateTime));
  facts.notAfter = isoTime(joined(info.NotAfter.dwHighDateTime, info.NotAfter.dwLowDateTime));
  const LONG validity = CertVerifyTimeValidity(nullptr, &info);
  facts.current = validity == 0;
  facts.becomesValidLater = validity < 0;
  facts.key = publicKey(info.SubjectPublicKeyInfo);
  facts.keyBits = facts.key ? facts.key->bits : 0;
  facts.email = shortName(certificate, CERT_NAME_EMAIL_TYPE, 0);
  facts.keyUsage = keyUsageOf(info);
  facts.purposes = purposesOf(certificate);
  facts.sha1 = hashBytes(findHashAlgorithm("sha1"), der);
  facts.sha256 = hashBytes(hashAlgorithms().front(), der);
  return facts;
}

std::string pemOf(ByteView der) {
  DWORD length = 0;
  const auto encode = [&](char* text) {
    return CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), CRYPT_STRING_BASE64HEADER, text, &length) !=
           FALSE;
  };
  if (!encode(nullptr)) throw ToolError("CryptBinaryToString", GetLastError());
  std::string text(length, '\0');
  if (!encode(text.data())) throw ToolError("CryptBinaryToString", GetLastError());
  return text.substr(0, text.find('\0'));
}

bool verifySignature(ByteView certificate, const HashAlgorithm& algorithm, ByteView hash, ByteView signature) {
  const Certificate opened = openCertificate(certificate);
  const std::optional<PublicKey> key = publicKey(opened->pCertInfo->SubjectPublicKeyInfo);
  if (!key) throw ToolError(ExitCode::kInternal, "the certificate holds no RSA key");

  // The public key in the form that CNG imports: header, exponent and modulus, most significant byte first.
  const Bytes exponent = {static_cast<std::uint8_t>(key->exponent >> 24),
                          static_cast<std::uint8_t>(key->exponent >> 16), static_cast<std::uint8_t>(key->exponent >> 8),
                          static_cast<std::uint8_t>(key->exponent)};
  const BCRYPT_RSAKEY_BLOB header{BCRYPT_RSAPUBLIC_MAGIC,
                                  key->bits,
                                  static_cast<ULONG>(exponent.size()),
                                  static_cast<ULONG>(key->modulus.size()),
                                  0,
                                  0};
  const auto* start = reinterpret_cast<const std::uint8_t*>(&header);
  Bytes blob(start, start + sizeof header);
  blob.insert(blob.end(), exponent.begin(), exponent.end());
  blob.insert(blob.end(), key->modulus.begin(), key->modulus.end());

  BCRYPT_ALG_HANDLE provider = nullptr;
  checkCrypto("BCryptOpenAlgorithmProvider", BCryptOpenAlgorithmProvider(&provider, BCRYPT_RSA_ALGORITHM, nullptr, 0));
  const std::unique_ptr<void, AlgorithmCloser> providerCloser(provider);
  BCRYPT_KEY_HANDLE handle = nullptr;
  checkCrypto("BCryptImportKeyPair", BCryptImportKeyPair(provider, nullptr, BCRYPT_RSAPUBLIC_BLOB, &handle, blob.data(),
                                                         static_cast<ULONG>(blob.size()), 0));
  const std::unique_ptr<void, KeyCloser> keyCloser(handle);
  BCRYPT_PKCS1_PADDING_INFO padding{algorithm.cngName.data()};
  return BCryptVerifySignature(handle, &padding, const_cast<PUCHAR>(hash.data()), static_cast<ULONG>(hash.size()),
                               const_cast<PUCHAR>(signature.data()), static_cast<ULONG>(signature.size()),
                               BCRYPT_PAD_PKCS1) == 0;
}

Bytes hashFile(const HashAlgorithm& algorithm, const std::string& path) {
  Hasher hasher(algorithm);
  forEachPart(path, [&hasher](ByteView part) { hasher.add(part); });
  return hasher.result();
}

Bytes hashBytes(const HashAlgorithm& algorithm, ByteView data) {
  Hasher hasher(algorithm);
  hasher.add(data);
  return hasher.result();
}

}  // namespace orvane::tool
