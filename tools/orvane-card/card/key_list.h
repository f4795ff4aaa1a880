// The keys of a token with their certificates, as "list", "info" and "export" show them.
#ifndef ORVANE_TOOL_CARD_KEY_LIST_H
#define ORVANE_TOOL_CARD_KEY_LIST_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "card/card_files.h"
#include "card/certificate.h"
#include "card/token_facts.h"
#include "text/json.h"
#include "tool_error.h"

namespace orvane::tool {

// ListedKey is one record of "cmapfile" with what is known about the certificate of its key.
struct ListedKey {
  ContainerRecord record;
  std::optional<CertificateFacts> certificate = {};
  std::string problem = {};  // why there is none, one sentence without a full stop; empty when there is one
};

// keyTable gives the keys as a table that fits `width` columns, at least kTableWidth: number, subject, use, validity,
// issuer and the begin of the thumbprint; below it what a mark means and why a certificate is missing.
inline constexpr std::size_t kTableWidth = 79;
std::string keyTable(const std::vector<ListedKey>& keys, std::size_t width);

// keyDetails gives everything about each key, the name and number of its container and the file of its certificate,
// too.
std::string keyDetails(const std::vector<ListedKey>& keys);

// keysJson gives an object for each key.
Json keysJson(const std::vector<ListedKey>& keys);

// cardFileMeaning says in words what a file of the card holds, a certificate with the name of its key among `records`;
// an empty text for a file of another name.
std::string cardFileMeaning(std::string_view file, std::span<const ContainerRecord> records);

// noKeysText says that the token holds no keys, or, if it could not be opened, that nothing is known about them.
std::string noKeysText(const TokenFacts& token);

// unopenedToken is the failure of a command that found no keys on a token which is not known to be open: it names the
// serial in use and the token library's error, and never advises to have keys renewed.
ToolError unopenedToken(const TokenFacts& token);

// tokenJson gives {"serial", "serialFrom", "statedSerial", "access", "libraryError"}; what is not known is null.
Json tokenJson(const TokenFacts& token);

}  // namespace orvane::tool

#endif
