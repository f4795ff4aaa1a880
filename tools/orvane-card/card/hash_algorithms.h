// The hash algorithms that the tool can sign with.
#ifndef ORVANE_TOOL_CARD_HASH_ALGORITHMS_H
#define ORVANE_TOOL_CARD_HASH_ALGORITHMS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace orvane::tool {

struct HashAlgorithm {
  std::string_view name;      // as on the command line and in OpenSSL's options
  std::wstring_view cngName;  // as CNG names it; ends in a NUL
  std::uint32_t algorithmId;  // ALG_ID
  std::size_t size;           // bytes
};

// hashAlgorithms lists them, the default first.
std::span<const HashAlgorithm> hashAlgorithms();

// findHashAlgorithm looks for a name in any letter case, with or without the dash ("sha256", "SHA-256"); throws
// ToolError (ExitCode::kUsage) for an unknown one.
const HashAlgorithm& findHashAlgorithm(std::string_view name);

}  // namespace orvane::tool

#endif
