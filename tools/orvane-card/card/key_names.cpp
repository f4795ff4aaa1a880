#include "card/key_names.h"

namespace orvane::tool {

std::string keyPurpose(const ContainerRecord& record) {
  if (record.signatureBits && record.keyExchangeBits) return "signing and encryption";
  if (record.signatureBits) return "signing";
  return record.keyExchangeBits ? "encryption" : "";
}

std::string keyName(const ContainerRecord& record, std::size_t count) {
  const std::string purpose = keyPurpose(record);
  return "key " + std::to_string(record.index + 1) + " of " + std::to_string(count) +
         (purpose.empty() ? "" : " (" + purpose + ")");
}

}  // namespace orvane::tool
