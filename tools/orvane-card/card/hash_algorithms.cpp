#include "card/hash_algorithms.h"

#include <string>

#include "support/text_compare.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr HashAlgorithm kAlgorithms[] = {
    {"sha256", L"SHA256", 0x800C, 32},
    {"sha384", L"SHA384", 0x800D, 48},
    {"sha512", L"SHA512", 0x800E, 64},
    {"sha1", L"SHA1", 0x8004, 20},
};

}  // namespace

std::span<const HashAlgorithm> hashAlgorithms() { return kAlgorithms; }

const HashAlgorithm& findHashAlgorithm(std::string_view name) {
  std::string plain(name);
  std::erase(plain, '-');
  for (const HashAlgorithm& algorithm : kAlgorithms) {
    if (equalsIgnoreCase(algorithm.name, plain)) return algorithm;
  }
  throw ToolError(ExitCode::kUsage, "unknown hash algorithm \"" + std::string(name) + "\"",
                  "Use sha256, sha384, sha512 or sha1.");
}

}  // namespace orvane::tool
