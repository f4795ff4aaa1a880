#include "minidriver/file_system/file_names.h"

#include "platform/card_constants.h"
#include "support/text_compare.h"

namespace orvane {
namespace {

bool isBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

bool isDirectoryMscp(std::string_view directory) noexcept { return equalsIgnoreCase(directory, szBASE_CSP_DIR); }

std::optional<CardFile> cardFileOf(std::string_view name) noexcept {
  if (equalsIgnoreCase(name, szCARD_IDENTIFIER_FILE)) return CardFile::kCardId;
  if (equalsIgnoreCase(name, szCACHE_FILE)) return CardFile::kCardCf;
  if (name.starts_with(szUSER_SIGNATURE_CERT_PREFIX)) return CardFile::kSignatureCertificate;
  if (name.starts_with(szUSER_KEYEXCHANGE_CERT_PREFIX)) return CardFile::kKeyExchangeCertificate;
  if (equalsIgnoreCase(name, szCONTAINER_MAP_FILE)) return CardFile::kContainerMap;
  if (equalsIgnoreCase(name, szROOT_STORE_FILE)) return CardFile::kRootStore;
  return std::nullopt;
}

std::optional<std::size_t> containerIndexOf(std::string_view certificateFileName, std::size_t containerCount) noexcept {
  std::string_view rest = certificateFileName.substr(3);
  while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
  bool isNegative = false;
  if (!rest.empty() && (rest.front() == '-' || rest.front() == '+')) {
    isNegative = rest.front() == '-';
    rest.remove_prefix(1);
  }
  std::size_t index = 0;
  for (const char c : rest) {
    if (c < '0' || c > '9') break;
    index = index * 10 + static_cast<std::size_t>(c - '0');
    // Already too large: more digits can only make it larger.
    if (index >= containerCount && index != 0) return std::nullopt;
  }
  if (index >= containerCount || (isNegative && index != 0)) return std::nullopt;
  return index;
}

}  // namespace orvane
