#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <memory>

#include "softtoken/private_key.h"

namespace orvane::softtoken {
namespace {

template <auto release>
struct Release {
  template <typename Type>
  void operator()(Type* object) const {
    release(object);
  }
};

using PkeyContext = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;
using Pkey = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using ParamBuilder = std::unique_ptr<OSSL_PARAM_BLD, Release<OSSL_PARAM_BLD_free>>;
using Params = std::unique_ptr<OSSL_PARAM, Release<OSSL_PARAM_free>>;
using Number = std::unique_ptr<BIGNUM, Release<BN_clear_free>>;

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
    case 64:
      return EVP_sha512();
    default:
      return nullptr;
  }
}

class OpensslKey : public PrivateKey {
 public:
  explicit OpensslKey(Pkey pkey) : key(std::move(pkey)) {}

  bool sign(const Bytes& hash, Bytes& signature) const override {
    const EVP_MD* const algorithm = hashOfLength(hash.size());
    const PkeyContext context(EVP_PKEY_CTX_new(key.get(), nullptr));
    Bytes made(static_cast<std::size_t>(EVP_PKEY_get_size(key.get())));
    std::size_t length = made.size();
    const bool signedIt = algorithm != nullptr && context && EVP_PKEY_sign_init(context.get()) == 1 &&
                          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                          EVP_PKEY_CTX_set_signature_md(context.get(), algorithm) == 1 &&
                          EVP_PKEY_sign(context.get(), made.data(), &length, hash.data(), hash.size()) == 1;
    ERR_clear_error();
    if (!signedIt) return false;
    made.resize(length);
    signature = made;
    return true;
  }

  bool decrypt(const Bytes& cipher, Bytes& plain) const override {
    const bool decrypted =
        decryptPadded(RSA_PKCS1_OAEP_PADDING, cipher, plain) || decryptPadded(RSA_PKCS1_PADDING, cipher, plain);
    ERR_clear_error();
    return decrypted;
  }

 private:
  bool decryptPadded(int padding, const Bytes& cipher, Bytes& plain) const {
    const PkeyContext context(EVP_PKEY_CTX_new(key.get(), nullptr));
    if (!context || EVP_PKEY_decrypt_init(context.get()) != 1) return false;
    if (EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) != 1) return false;
    if (padding == RSA_PKCS1_OAEP_PADDING && (EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), EVP_sha256()) != 1 ||
                                              EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), EVP_sha256()) != 1)) {
      return false;
    }
    Bytes made(static_cast<std::size_t>(EVP_PKEY_get_size(key.get())));
    std::size_t length = made.size();
    if (EVP_PKEY_decrypt(context.get(), made.data(), &length, cipher.data(), cipher.size()) != 1) return false;
    made.resize(length);
    plain = made;
    return true;
  }

  Pkey key;
};

}  // namespace

std::shared_ptr<const PrivateKey> makePrivateKey(const RsaNumbers& numbers) {
  const struct {
    const char* name;
    const Bytes& value;
  } parameters[] = {
      {OSSL_PKEY_PARAM_RSA_N, numbers.modulus},           {OSSL_PKEY_PARAM_RSA_E, numbers.publicExponent},
      {OSSL_PKEY_PARAM_RSA_D, numbers.privateExponent},   {OSSL_PKEY_PARAM_RSA_FACTOR1, numbers.prime1},
      {OSSL_PKEY_PARAM_RSA_FACTOR2, numbers.prime2},      {OSSL_PKEY_PARAM_RSA_EXPONENT1, numbers.exponent1},
      {OSSL_PKEY_PARAM_RSA_EXPONENT2, numbers.exponent2}, {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, numbers.coefficient},
  };
  const ParamBuilder builder(OSSL_PARAM_BLD_new());
  std::vector<Number> values;  // the builder keeps pointers to them
  for (const auto& [name, value] : parameters) {
    values.emplace_back(BN_bin2bn(value.data(), static_cast<int>(value.size()), nullptr));
    if (!builder || !values.back() || OSSL_PARAM_BLD_push_BN(builder.get(), name, values.back().get()) != 1) {
      return nullptr;
    }
  }
  const Params params(OSSL_PARAM_BLD_to_param(builder.get()));
  const PkeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* made = nullptr;
  const bool imported = params && context && EVP_PKEY_fromdata_init(context.get()) == 1 &&
                        EVP_PKEY_fromdata(context.get(), &made, EVP_PKEY_KEYPAIR, params.get()) == 1;
  Pkey key(made);
  ERR_clear_error();
  return imported ? std::make_shared<OpensslKey>(std::move(key)) : nullptr;
}

}  // namespace orvane::softtoken
