// Which file of the card a name stands for.
#ifndef ORVANE_MINIDRIVER_FILE_SYSTEM_FILE_NAMES_H
#define ORVANE_MINIDRIVER_FILE_SYSTEM_FILE_NAMES_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "support/short_text.h"

namespace orvane {

// The files that the card is made of.
enum class CardFile { kCardId, kCardCf, kSignatureCertificate, kKeyExchangeCertificate, kContainerMap, kRootStore };

// isDirectoryMscp tells whether `directory` is the base provider's directory, in any letter case.
bool isDirectoryMscp(std::string_view directory) noexcept;

// cardFileOf tells which file a name stands for, wherever it lies; no value for an unknown name. The certificate files
// go by their prefix alone, which is compared with regard to letter case; the other names without.
std::optional<CardFile> cardFileOf(std::string_view name) noexcept;

// isCertificateFile tells whether `file` is one of the two kinds of certificate files.
constexpr bool isCertificateFile(CardFile file) noexcept {
  return file == CardFile::kSignatureCertificate || file == CardFile::kKeyExchangeCertificate;
}

// containerIndexOf reads the number after the three-letter prefix of a certificate file's name: blanks, a sign, then
// digits up to the first other character; nothing there counts as 0 ("ksc" is container 0). No value when the number is
// not below `containerCount` or negative, however long it is.
std::optional<std::size_t> containerIndexOf(std::string_view certificateFileName, std::size_t containerCount) noexcept;

// certificateFileName puts prefix and index together, the index in plain decimal: "ksc" and 10 give "ksc10". `prefix`
// has three letters. In place, since a listing of many files forms each name twice.
inline ShortText<23> certificateFileName(std::string_view prefix, std::size_t containerIndex) noexcept {
  return ShortText<23>().append(prefix).appendNumber(containerIndex);
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FILE_SYSTEM_FILE_NAMES_H
