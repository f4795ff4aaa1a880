#include "card/hash_algorithms.h"

#include <gtest/gtest.h>

#include <string>

#include "tool_error.h"

namespace orvane::tool {
namespace {

TEST(ToolHashAlgorithms, AreFoundByNameInAnySpelling) {
  struct Case {
    const char* name;
    const char* found;
    std::size_t size;
  };
  const Case cases[] = {
      {"sha256", "sha256", 32},  {"SHA-256", "sha256", 32}, {"Sha384", "sha384", 48},
      {"sha-512", "sha512", 64}, {"SHA1", "sha1", 20},
  };
  for (const Case& row : cases) {
    const HashAlgorithm& algorithm = findHashAlgorithm(row.name);
    EXPECT_EQ(algorithm.name, row.found) << row.name;
    EXPECT_EQ(algorithm.size, row.size) << row.name;
  }
}

TEST(ToolHashAlgorithms, OthersAreAWrongCommandLine) {
  for (const char* name : {"", "md5", "sha", "sha256x", "sha 256"}) {
    try {
      findHashAlgorithm(name);
      ADD_FAILURE() << "accepted " << name;
    } catch (const ToolError& error) {
      EXPECT_EQ(error.exitCode(), ExitCode::kUsage) << name;
    }
  }
}

TEST(ToolHashAlgorithms, TheDefaultIsSha256) { EXPECT_EQ(hashAlgorithms().front().name, "sha256"); }

}  // namespace
}  // namespace orvane::tool
