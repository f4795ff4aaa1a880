// Whether what explains the log still fits what the minidriver writes: a text that was changed in one place would
// otherwise only stop being explained, and nobody would notice.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "log/explanations.h"

namespace orvane::tool {
namespace {

// The text of all of the minidriver's source files.
std::string minidriverSources() {
  std::string all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(ORVANE_MINIDRIVER_SOURCES)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".cpp" && extension != ".h") continue;
    std::ifstream file(entry.path());
    all.append(std::istreambuf_iterator<char>(file), {});
  }
  return all;
}

TEST(ToolLogExplanations, EveryKnownPartIsWrittenByTheMinidriver) {
  const std::string sources = minidriverSources();
  ASSERT_GT(sources.size(), 100'000U);
  for (const KnownLine& row : knownLines()) EXPECT_NE(sources.find(row.part), std::string::npos) << row.part;
}

}  // namespace
}  // namespace orvane::tool
