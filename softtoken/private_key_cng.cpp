#include <windows.h>
#include <bcrypt.h>

#include <algorithm>
#include <memory>
#include <mutex>

#include "softtoken/private_key.h"

namespace orvane::softtoken {
namespace {

bool succeeded(NTSTATUS status) { return status >= 0; }

struct CloseAlgorithm {
  void operator()(void* handle) const { BCryptCloseAlgorithmProvider(handle, 0); }
};
struct DestroyKey {
  void operator()(void* handle) const { BCryptDestroyKey(handle); }
};
using Algorithm = std::unique_ptr<void, CloseAlgorithm>;
using Key = std::unique_ptr<void, DestroyKey>;

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
    case 64:
      return BCRYPT_SHA512_ALGORITHM;
    default:
      return nullptr;
  }
}

// CNG takes input through pointers to what it does not change.
UCHAR* input(const Bytes& bytes) { return const_cast<UCHAR*>(bytes.data()); }

ULONG lengthOf(const Bytes& bytes) { return static_cast<ULONG>(bytes.size()); }

class CngKey : public PrivateKey {
 public:
  CngKey(Algorithm openAlgorithm, Key pkcs1, Key oaep, std::size_t modulusLength)
      : algorithm(std::move(openAlgorithm)),
        pkcs1Key(std::move(pkcs1)),
        oaepKey(std::move(oaep)),
        length(modulusLength) {}

  bool sign(const Bytes& hash, Bytes& signature) const override {
    BCRYPT_PKCS1_PADDING_INFO padding{hashOfLength(hash.size())};
    if (padding.pszAlgId == nullptr) return false;
    Bytes made(length);
    ULONG written = 0;
    const std::lock_guard<std::mutex> lock(mutex);
    if (!succeeded(BCryptSignHash(pkcs1Key.get(), &padding, input(hash), lengthOf(hash), made.data(), lengthOf(made),
                                  &written, BCRYPT_PAD_PKCS1))) {
      return false;
    }
    made.resize(written);
    signature = made;
    return true;
  }

  bool decrypt(const Bytes& cipher, Bytes& plain) const override {
    // An empty label must not be a null pointer for every implementation of CNG.
    UCHAR emptyLabel[1] = {};
    BCRYPT_OAEP_PADDING_INFO oaep{BCRYPT_SHA256_ALGORITHM, emptyLabel, 0};
    return decryptPadded(oaepKey.get(), &oaep, BCRYPT_PAD_OAEP, cipher, plain) ||
           decryptPadded(pkcs1Key.get(), nullptr, BCRYPT_PAD_PKCS1, cipher, plain);
  }

 private:
  bool decryptPadded(BCRYPT_KEY_HANDLE key, void* padding, ULONG flags, const Bytes& cipher, Bytes& plain) const {
    Bytes made(length);
    ULONG written = 0;
    const std::lock_guard<std::mutex> lock(mutex);
    if (!succeeded(BCryptDecrypt(key, input(cipher), lengthOf(cipher), padding, nullptr, 0, made.data(), lengthOf(made),
                                 &written, flags))) {
      return false;
    }
    made.resize(written);
    plain = made;
    return true;
  }

  Algorithm algorithm;
  // A handle for each padding: in Wine, one that was used with OAEP keeps to it.
  Key pkcs1Key;
  Key oaepKey;
  std::size_t length;
  mutable std::mutex mutex;  // nothing is promised about one key handle in several threads
};

// Appends a number with leading zeros up to length bytes.
void append(Bytes& blob, const Bytes& number, std::size_t length) {
  blob.insert(blob.end(), length - std::min(length, number.size()), 0);
  blob.insert(blob.end(), number.begin(), number.end());
}

Key importKey(const Algorithm& algorithm, Bytes& blob) {
  BCRYPT_KEY_HANDLE key = nullptr;
  const NTSTATUS status =
      BCryptImportKeyPair(algorithm.get(), nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, &key, blob.data(), lengthOf(blob), 0);
  return Key(succeeded(status) ? key : nullptr);
}

}  // namespace

std::shared_ptr<const PrivateKey> makePrivateKey(const RsaNumbers& numbers) {
  const BCRYPT_RSAKEY_BLOB header{BCRYPT_RSAFULLPRIVATE_MAGIC,      static_cast<ULONG>(numbers.modulus.size() * 8),
                                  lengthOf(numbers.publicExponent), lengthOf(numbers.modulus),
                                  lengthOf(numbers.prime1),         lengthOf(numbers.prime2)};
  const UCHAR* const headerBytes = reinterpret_cast<const UCHAR*>(&header);
  Bytes blob(headerBytes, headerBytes + sizeof(header));
  append(blob, numbers.publicExponent, numbers.publicExponent.size());
  append(blob, numbers.modulus, numbers.modulus.size());
  append(blob, numbers.prime1, numbers.prime1.size());
  append(blob, numbers.prime2, numbers.prime2.size());
  append(blob, numbers.exponent1, numbers.prime1.size());
  append(blob, numbers.exponent2, numbers.prime2.size());
  append(blob, numbers.coefficient, numbers.prime1.size());
  append(blob, numbers.privateExponent, numbers.modulus.size());

  BCRYPT_ALG_HANDLE openedAlgorithm = nullptr;
  if (!succeeded(BCryptOpenAlgorithmProvider(&openedAlgorithm, BCRYPT_RSA_ALGORITHM, nullptr, 0))) return nullptr;
  Algorithm algorithm(openedAlgorithm);
  Key pkcs1Key = importKey(algorithm, blob);
  Key oaepKey = importKey(algorithm, blob);
  if (!pkcs1Key || !oaepKey) return nullptr;
  return std::make_shared<CngKey>(std::move(algorithm), std::move(pkcs1Key), std::move(oaepKey),
                                  numbers.modulus.size());
}

}  // namespace orvane::softtoken
