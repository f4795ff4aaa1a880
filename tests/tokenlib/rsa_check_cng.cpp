#include <windows.h>
#include <bcrypt.h>

#include <iterator>

#include "rsa_check.h"

namespace orvane::tokentest {
namespace {

// A public key imported into CNG, closed at the end of the scope.
class PublicKey {
 public:
  explicit PublicKey(const Bytes& modulus) {
    const UCHAR exponent[] = {1, 0, 1};
    const BCRYPT_RSAKEY_BLOB header{BCRYPT_RSAPUBLIC_MAGIC,
                                    static_cast<ULONG>(modulus.size() * 8),
                                    sizeof(exponent),
                                    static_cast<ULONG>(modulus.size()),
                                    0,
                                    0};
    const UCHAR* const headerBytes = reinterpret_cast<const UCHAR*>(&header);
    Bytes blob(headerBytes, headerBytes + sizeof(header));
    blob.insert(blob.end(), std::begin(exponent), std::end(exponent));
    blob.insert(blob.end(), modulus.begin(), modulus.end());
    BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_RSA_ALGORITHM, nullptr, 0);
    BCryptImportKeyPair(algorithm, nullptr, BCRYPT_RSAPUBLIC_BLOB, &key, blob.data(), static_cast<ULONG>(blob.size()),
                        0);
  }
  PublicKey(const PublicKey&) = delete;
  PublicKey& operator=(const PublicKey&) = delete;
  ~PublicKey() {
    if (key != nullptr) BCryptDestroyKey(key);
    if (algorithm != nullptr) BCryptCloseAlgorithmProvider(algorithm, 0);
  }

  BCRYPT_KEY_HANDLE get() const { return key; }

 private:
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  BCRYPT_KEY_HANDLE key = nullptr;
};

const wchar_t* hashOfLength(std::size_t length) {
  switch (length) {
    case 16:
      return BCRYPT_MD5_ALGORITHM;
    case 20:
      return BCRYPT_SHA1_ALGORITHM;
    case 32:
      return BCRYPT_SHA256_ALGORITHM;
    case 48:
      return BCRYPT_SHA384_ALGORITHM;
    default:
      return BCRYPT_SHA512_ALGORITHM;
  }
}

// CNG takes input through pointers to what it does not change.
UCHAR* input(const Bytes& bytes) { return const_cast<UCHAR*>(bytes.data()); }

}  // namespace

bool verifyRsaSignature(const Bytes& modulus, const Bytes& hash, const Bytes& signature) {
  const PublicKey key(modulus);
  BCRYPT_PKCS1_PADDING_INFO padding{hashOfLength(hash.size())};
  return BCryptVerifySignature(key.get(), &padding, input(hash), static_cast<ULONG>(hash.size()), input(signature),
                               static_cast<ULONG>(signature.size()), BCRYPT_PAD_PKCS1) >= 0;
}

Bytes encryptRsa(const Bytes& modulus, RsaPadding padding, const Bytes& plain) {
  const PublicKey key(modulus);
  Bytes cipher(modulus.size());
  ULONG written = 0;
  UCHAR emptyLabel[1] = {};  // not a null pointer, which not every implementation takes
  BCRYPT_OAEP_PADDING_INFO oaep{BCRYPT_SHA256_ALGORITHM, emptyLabel, 0};
  const bool isOaep = padding == RsaPadding::kOaepSha256;
  void* const info = isOaep ? &oaep : nullptr;
  const ULONG flags = isOaep ? BCRYPT_PAD_OAEP : BCRYPT_PAD_PKCS1;
  const NTSTATUS status = BCryptEncrypt(key.get(), input(plain), static_cast<ULONG>(plain.size()), info, nullptr, 0,
                                        cipher.data(), static_cast<ULONG>(cipher.size()), &written, flags);
  return status >= 0 ? cipher : Bytes();
}

}  // namespace orvane::tokentest
