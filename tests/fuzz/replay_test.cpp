// The seeds of the fuzz targets, and what fuzzing found worth keeping, once each.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

#include "fuzz/targets.h"
#include "harness/all_properties.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class Corpus : public LinkedTest, public ::testing::WithParamInterface<fuzz::Target> {};

TEST_P(Corpus, Runs) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(ORVANE_FUZZ_CORPUS) / GetParam().name)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_FALSE(files.empty());
  for (const auto& path : files) {
    SCOPED_TRACE(path.filename().string());
    std::ifstream file(path, std::ios::binary);
    const Bytes content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    ASSERT_FALSE(content.empty());
    GetParam().run(content);
  }
}

// A target that takes a property's name as text begins with all names that there are.
TEST(PropertySeeds, NameEveryProperty) {
  std::set<std::string> seeded;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(ORVANE_FUZZ_CORPUS) / "properties")) {
    std::ifstream file(entry.path(), std::ios::binary);
    std::string name;
    std::getline(file, name);
    seeded.insert(name);
  }
  for (const std::wstring_view name : allPropertyNames()) {
    EXPECT_EQ(seeded.count(std::string(name.begin(), name.end())), 1u) << std::string(name.begin(), name.end());
  }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, ::testing::ValuesIn(fuzz::kTargets), [](const auto& row) {
  std::string name = row.param.name;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace
}  // namespace orvane::test
