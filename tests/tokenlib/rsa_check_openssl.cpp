#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <memory>

#include "rsa_check.h"

namespace orvane::tokentest {
namespace {

struct Release {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
  void operator()(OSSL_PARAM_BLD* builder) const { OSSL_PARAM_BLD_free(builder); }
  void operator()(OSSL_PARAM* params) const { OSSL_PARAM_free(params); }
  void operator()(BIGNUM* number) const { BN_free(number); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, Release>;

Owned<EVP_PKEY_CTX> openKey(const Bytes& modulus, Owned<EVP_PKEY>& key) {
  const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
  const Owned<BIGNUM> number(BN_bin2bn(modulus.data(), static_cast<int>(modulus.size()), nullptr));
  OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, number.get());
  OSSL_PARAM_BLD_push_ulong(builder.get(), OSSL_PKEY_PARAM_RSA_E, 65537);
  const Owned<OSSL_PARAM> params(OSSL_PARAM_BLD_to_param(builder.get()));
  const Owned<EVP_PKEY_CTX> importer(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* imported = nullptr;
  EVP_PKEY_fromdata_init(importer.get());
  EVP_PKEY_fromdata(importer.get(), &imported, EVP_PKEY_PUBLIC_KEY, params.get());
  key.reset(imported);
  return Owned<EVP_PKEY_CTX>(EVP_PKEY_CTX_new(key.get(), nullptr));
}

const EVP_MD* hashOfLength(std::size_t length) {
  switch (length) {
    case 16:
      return EVP_md5();
    case 20:
      return EVP_sha1();
    case 32:
      return EVP_sha256();
    case 48:
      return EVP_sha384();
    default:
      return EVP_sha512();
  }
}

}  // namespace

bool verifyRsaSignature(const Bytes& modulus, const Bytes& hash, const Bytes& signature) {
  Owned<EVP_PKEY> key;
  const Owned<EVP_PKEY_CTX> context = openKey(modulus, key);
  const bool verified =
      EVP_PKEY_verify_init(context.get()) == 1 && EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
      EVP_PKEY_CTX_set_signature_md(context.get(), hashOfLength(hash.size())) == 1 &&
      EVP_PKEY_verify(context.get(), signature.data(), signature.size(), hash.data(), hash.size()) == 1;
  ERR_clear_error();
  return verified;
}

Bytes encryptRsa(const Bytes& modulus, RsaPadding padding, const Bytes& plain) {
  Owned<EVP_PKEY> key;
  const Owned<EVP_PKEY_CTX> context = openKey(modulus, key);
  Bytes cipher(modulus.size());
  std::size_t length = cipher.size();
  bool ready = EVP_PKEY_encrypt_init(context.get()) == 1;
  if (padding == RsaPadding::kPkcs1) {
    ready = ready && EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1;
  } else {
    ready = ready && EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) == 1 &&
            EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), EVP_sha256()) == 1 &&
            EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), EVP_sha256()) == 1;
  }
  const bool encrypted =
      ready && EVP_PKEY_encrypt(context.get(), cipher.data(), &length, plain.data(), plain.size()) == 1;
  ERR_clear_error();
  return encrypted ? cipher : Bytes();
}

}  // namespace orvane::tokentest
