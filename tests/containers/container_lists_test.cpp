// What is made of container lists that no acquisition makes: containers without keys, with several, with long names.
#include <utility>

#include "cache/process_state.h"
#include "containers/map_record.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class ContainerListsTest : public LinkedTest {
 protected:
  void SetUp() override {
    LinkedTest::SetUp();
    bind();
  }

  // The contents of a file, by the linked entry point.
  Bytes read(const char* name) {
    PBYTE data = nullptr;
    DWORD size = 0;
    takeAllocations();
    EXPECT_EQ(CardReadFile(&bound_, nullptr, const_cast<LPSTR>(name), 0, &data, &size), 0u);
    EXPECT_EQ(takeAllocations(), std::vector<std::size_t>{size});
    return takeBuffer(data, size);
  }
};

TEST_F(ContainerListsTest, ContainersWithoutKeysTakeTheirPlace) {
  processState().containerListCache.replace(
      kSerial, shared({{L"first", {}}, {L"second", {makeKey(2, 2, 4096)}}, {L"third", {makeKey(3, 1, 2048)}}}));
  const Bytes contents = read("cmapfile");
  ASSERT_EQ(contents.size(), 258u);
  EXPECT_EQ(Bytes(contents.begin(), contents.begin() + 86), Bytes(86, 0));
  // None is the default one.
  EXPECT_EQ(Bytes(contents.begin() + 86, contents.begin() + 172), mapRecord("second", 1, 0, 4096));
  EXPECT_EQ(Bytes(contents.begin() + 172, contents.end()), mapRecord("third", 1, 2048, 0));
  EXPECT_EQ(takeLog(), (Lines{"D CardReadFile :: LOG_FUNCTION_NAME = Entry", "D CardReadFile filename: cmapfile",
                              "D === CardReadFile cmapfile: serial=[0012AB]", "D CMAP: container[1] kx=4096",
                              "D CMAP Output: [1] GUID=second", "D CMAP: container[2] sig=2048",
                              "D CMAP Output: [2] GUID=third", "D CMAP: Returned 3 containers"}));
}

TEST_F(ContainerListsTest, OnlyContainersWithoutKeys) {
  processState().containerListCache.replace(kSerial, shared({{L"first", {}}, {L"second", {}}}));
  EXPECT_EQ(read("cmapfile"), Bytes(172, 0));
}

TEST_F(ContainerListsTest, OnlyTheFirstKeyCounts) {
  processState().containerListCache.replace(kSerial, shared({{L"first", {makeKey(1, 2, 2048), makeKey(2, 1, 4096)}}}));
  EXPECT_EQ(read("cmapfile"), mapRecord("first", 3, 0, 2048));
}

TEST_F(ContainerListsTest, NamesAreCutAfter39Units) {
  const struct {
    const char* label;
    std::wstring name;
    std::string shown;
  } rows[] = {
      {"none", L"", ""},
      {"39 units", std::wstring(39, L'x'), std::string(39, 'x')},
      {"40 units", std::wstring(39, L'x') + L'y', std::string(39, 'x')},
      {"100 units", std::wstring(100, L'x'), std::string(39, 'x')},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    processState().containerListCache.replace(kSerial, shared({{row.name, {makeKey(1, 3)}}}));
    EXPECT_EQ(read("cmapfile"), mapRecord(row.shown, 3, 2048, 2048));
  }
}

// The property takes over the list, and answers a container without keys at once.
TEST_F(ContainerListsTest, PropertyOfContainersWithoutKeysAndWithSeveral) {
  processState().containerListCache.replace(
      kSerial, shared({{L"first", {}}, {L"second", {makeKey(2, 2, 4096), makeKey(3, 1, 1024)}}}));
  const auto ask = [&](BYTE index) {
    auto info = poisoned<CONTAINER_INFO>();
    DWORD length = 0;
    EXPECT_EQ(
        CardGetContainerProperty(&bound_, index, L"Container Info", reinterpret_cast<PBYTE>(&info), 40, &length, 0),
        0u);
    EXPECT_EQ(length, 40u);
    EXPECT_EQ(info.dwVersion, 1u);
    EXPECT_EQ(info.dwReserved, 0u);
    return info;
  };
  const CONTAINER_INFO none = ask(0);
  EXPECT_EQ(none.pbSigPublicKey, nullptr);
  EXPECT_EQ(none.cbSigPublicKey, 0u);
  EXPECT_EQ(none.pbKeyExPublicKey, nullptr);
  EXPECT_EQ(none.cbKeyExPublicKey, 0u);
  EXPECT_EQ(takeLog(), (Lines{"D CardGetContainerProperty :: LOG_FUNCTION_NAME = Entry",
                              "D CardGetContainerProperty bContainerIndex :: 0",
                              "D CardGetContainerProperty container list size :: 0", "D Container count = 2"}));

  const CONTAINER_INFO both = ask(1);
  ASSERT_NE(both.pbSigPublicKey, nullptr);
  ASSERT_NE(both.pbKeyExPublicKey, nullptr);
  EXPECT_EQ(takeBuffer(both.pbSigPublicKey, both.cbSigPublicKey).size(), 148u);
  EXPECT_EQ(takeBuffer(both.pbKeyExPublicKey, both.cbKeyExPublicKey).size(), 532u);
  EXPECT_EQ(takeLog(), (Lines{"D CardGetContainerProperty :: LOG_FUNCTION_NAME = Entry",
                              "D CardGetContainerProperty bContainerIndex :: 1",
                              "D CardGetContainerProperty container list size :: 2", "D Container count = 2",
                              "D CardGetContainerProperty: Sig public key length = 148",
                              "D CardGetContainerProperty: KeyEx public key length = 532",
                              "D CardGetContainerProperty: returning CONTAINER_INFO for index 1"}));
}

TEST_F(ContainerListsTest, FreshnessLiesLeastSignificantByteFirst) {
  ProcessState& state = processState();
  for (unsigned i = 0; i < 0x0102; ++i) state.deviceCache.bumpContainersFreshness(kSerial);
  for (unsigned i = 0; i < 0x0304; ++i) state.deviceCache.bumpFilesFreshness(kSerial);
  for (unsigned i = 0; i < 5; ++i) state.deviceCache.bumpPinsFreshness(kSerial);
  for (unsigned i = 0; i < 6; ++i) state.cacheVersion.bump();
  EXPECT_EQ(read("cardcf"), (Bytes{6, 5, 0x02, 0x01, 0x04, 0x03}));
}

}  // namespace
}  // namespace orvane::test
