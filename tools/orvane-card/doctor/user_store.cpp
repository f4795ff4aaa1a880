#include "doctor/user_store.h"

#include <memory>

#include "card/key_names.h"
#include "doctor/installation.h"
#include "doctor/windows_services.h"
#include "platform/windows_api.h"
#include "text/utf.h"

namespace orvane::tool {
namespace {

struct StoreCloser {
  void operator()(void* store) const { CertCloseStore(store, 0); }
};
struct CertificateCloser {
  void operator()(const CERT_CONTEXT* context) const { CertFreeCertificateContext(context); }
};
struct ChainCloser {
  void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};
using Certificate = std::unique_ptr<const CERT_CONTEXT, CertificateCloser>;

std::string textOf(const wchar_t* text) { return text ? toUtf8(text) : std::string(); }

void addKey(const CERT_CONTEXT* context, StoredCertificate& stored) {
  DWORD size = 0;
  if (!CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) return;
  // The texts lie behind the structure, which wants to be aligned.
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  if (!CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, buffer.data(), &size)) return;
  const auto* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(buffer.data());
  stored.provider = textOf(info->pwszProvName);
  stored.keyName = textOf(info->pwszContainerName);
}

void addUses(const CERT_CONTEXT* context, StoredCertificate& stored) {
  BYTE usage = 0;
  if (CertGetIntendedKeyUsage(X509_ASN_ENCODING, context->pCertInfo, &usage, sizeof usage)) stored.keyUsage = usage;
  DWORD size = 0;
  if (!CertGetEnhancedKeyUsage(context, CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG, nullptr, &size)) return;
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  auto* list = reinterpret_cast<CERT_ENHKEY_USAGE*>(buffer.data());
  if (!CertGetEnhancedKeyUsage(context, CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG, list, &size)) return;
  stored.purposes.emplace(list->rgpszUsageIdentifier, list->rgpszUsageIdentifier + list->cUsageIdentifier);
}

// What is wrong with the chain from the certificate up to a root, without a look at lists of revoked certificates.
std::uint32_t trustErrorsOf(const CERT_CONTEXT* context) {
  CERT_CHAIN_PARA wanted{};
  wanted.cbSize = sizeof wanted;
  const CERT_CHAIN_CONTEXT* chain = nullptr;
  if (!CertGetCertificateChain(nullptr, context, nullptr, nullptr, &wanted,
                               CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL | CERT_CHAIN_DISABLE_AUTH_ROOT_AUTO_UPDATE, nullptr,
                               &chain))
    return CERT_TRUST_IS_PARTIAL_CHAIN;
  const std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainCloser> owner(chain);
  return chain->TrustStatus.dwErrorStatus;
}

StoredCertificate lookUp(HCERTSTORE store, const ContainerFacts& container, std::size_t count) {
  StoredCertificate stored;
  stored.key = keyName(container.record, count);
  stored.guid = container.record.guid;
  stored.subject = container.subject;
  const Certificate wanted(CertCreateCertificateContext(X509_ASN_ENCODING, container.certificate.data(),
                                                        static_cast<DWORD>(container.certificate.size())));
  if (!wanted) return stored;
  stored.trustErrors = trustErrorsOf(wanted.get());
  if (!store) return stored;
  const Certificate found(
      CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, wanted.get(), nullptr));
  if (!found) return stored;
  stored.isStored = true;
  addKey(found.get(), stored);
  addUses(found.get(), stored);
  return stored;
}

}  // namespace

StoreFacts storeFacts(const std::vector<ContainerFacts>& containers) {
  StoreFacts facts;
  facts.propagation = serviceState(L"CertPropSvc");
  // Microsoft Learn, "Smart Card Group Policy and Registry Settings": the copying is on unless this says otherwise.
  facts.forbidden = registryNumber(L"SOFTWARE\\Policies\\Microsoft\\Windows\\CertProp", L"CertPropEnabled") == 0;
  const std::unique_ptr<void, StoreCloser> store(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0,
                    CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG, L"MY"));
  for (const ContainerFacts& container : containers) {
    if (!container.certificate.empty()) facts.certificates.push_back(lookUp(store.get(), container, containers.size()));
  }
  return facts;
}

}  // namespace orvane::tool
