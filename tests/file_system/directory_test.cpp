// CardEnumFiles and CardGetFileInfo: the card's two directories.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr char kEnum[] = "D CardEnumFiles :: LOG_FUNCTION_NAME = Entry";
constexpr char kInfo[] = "D CardGetFileInfo :: LOG_FUNCTION_NAME = Entry";

Bytes multiString(const std::vector<std::string>& names) {
  Bytes bytes;
  for (const std::string& name : names) {
    bytes.insert(bytes.end(), name.begin(), name.end());
    bytes.push_back(0);
  }
  bytes.push_back(0);
  return bytes;
}

class DirectoryTest : public DriverTest {
 protected:
  struct EnumCase {
    const char* label = "";
    bool hasRecord = true;
    bool hasContext = true;
    const char* directory = nullptr;
    bool hasNames = true;
    bool hasSize = true;
    DWORD flags = 0;
    DWORD status = 0;
    Lines trace = {};
    std::optional<Bytes> names = std::nullopt;  // none: both outputs untouched
  };

  void run(CARD_DATA& record, const EnumCase& row) {
    SCOPED_TRACE(row.label);
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    char untouched = 'x';
    LPSTR names = &untouched;
    DWORD size = kPoison32;
    EXPECT_EQ(observe([&] {
                return record.pfnCardEnumFiles(argument, const_cast<LPSTR>(row.directory),
                                               row.hasNames ? &names : nullptr, row.hasSize ? &size : nullptr,
                                               row.flags);
              }),
              (Outcome{row.status, concat({kEnum}, row.trace)}));
    EXPECT_EQ(untouched, 'x');
    if (row.names) {
      ASSERT_NE(names, &untouched);
      EXPECT_EQ(size, row.names->size());
      EXPECT_EQ(takeBuffer(names, size), *row.names);
    } else {
      EXPECT_EQ(names, &untouched);
      EXPECT_EQ(size, kPoison32);
    }
  }

  // Lists a directory that holds these names.
  void expectNames(CARD_DATA& record, const char* directory, const std::vector<std::string>& names) {
    const Bytes contents = multiString(names);
    run(record, {.label = directory != nullptr ? directory : "null",
                 .directory = directory,
                 .trace = {alloc(contents.size()), "D CardEnumFiles: returned " + std::to_string(names.size()) +
                                                       " files, size=" + std::to_string(contents.size())},
                 .names = contents});
  }

  struct InfoCase {
    const char* directory = nullptr;
    const char* file = "";
    DWORD status = 0;
    std::string line = {};  // after the line with directory and file
    std::uint32_t size = 0;
    std::uint32_t access = 0;
  };

  void run(CARD_DATA& record, const InfoCase& row) {
    const std::string directory = row.directory != nullptr ? row.directory : "";
    SCOPED_TRACE(directory + "/" + row.file);
    auto info = poisoned<CARD_FILE_INFO>();
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetFileInfo(&record, const_cast<LPSTR>(row.directory), const_cast<LPSTR>(row.file),
                                                 &info);
              }),
              (Outcome{row.status, {kInfo, "D CardGetFileInfo: dir=" + directory + " file=" + row.file, row.line}}));
    EXPECT_EQ(bytesOf(info), words({1, row.size, row.access}));
  }

  void expectFile(CARD_DATA& record, const char* directory, const char* file, std::uint32_t size,
                  std::uint32_t access) {
    run(record, InfoCase{.directory = directory,
                         .file = file,
                         .line = "D CardGetFileInfo: size=" + std::to_string(size) + " ac=" + std::to_string(access),
                         .size = size,
                         .access = access});
  }
};

TEST_F(DirectoryTest, EnumRefusesArgumentsInOrder) {
  CARD_DATA& record = open();
  const Lines invalid = {"E CardEnumFiles: invalid parameter(s)"};
  const EnumCase cases[] = {
      {.label = "no record, before the flags", .hasRecord = false, .flags = 1, .status = 87, .trace = invalid},
      {.label = "no names", .hasNames = false, .status = 87, .trace = invalid},
      {.label = "no size, before no context", .hasContext = false, .hasSize = false, .status = 87, .trace = invalid},
      {.label = "flags 1, before no context",
       .hasContext = false,
       .flags = 1,
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {"E CardEnumFiles: dwFlags is not zero, dwFlags=1"}},
      {.label = "all flags",
       .directory = "mscp",
       .flags = 0xFFFFFFFF,
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {"E CardEnumFiles: dwFlags is not zero, dwFlags=4294967295"}},
      {.label = "no context, before the directory",
       .hasContext = false,
       .directory = "elsewhere",
       .status = 87,
       .trace = {"E CardEnumFiles: provider context is null"}},
      {.label = "other directory",
       .directory = "mscp2",
       .status = code(SCARD_E_DIR_NOT_FOUND),
       .trace = {"E CardEnumFiles: directory not found: mscp2"}},
      {.label = "a blank is a name",
       .directory = " ",
       .status = code(SCARD_E_DIR_NOT_FOUND),
       .trace = {"E CardEnumFiles: directory not found:  "}},
      {.label = "a beginning of the name",
       .directory = "msc",
       .status = code(SCARD_E_DIR_NOT_FOUND),
       .trace = {"E CardEnumFiles: directory not found: msc"}},
  };
  for (const EnumCase& row : cases) run(record, row);
}

TEST_F(DirectoryTest, EnumListsTheRoot) {
  CARD_DATA& record = open();
  expectNames(record, nullptr, {"cardid"});
  expectNames(record, "", {"cardid"});
}

TEST_F(DirectoryTest, EnumListsMscp) {
  std::vector<OrvaneKeyPair> eleven;
  std::vector<std::string> namesOfEleven = {"cardcf", "cmapfile"};
  for (unsigned i = 0; i < 11; ++i) {
    eleven.push_back(makeKey(static_cast<std::uint8_t>(i + 1), 1));
    namesOfEleven.push_back("ksc" + std::to_string(i));
  }
  const struct {
    const char* label;
    std::vector<OrvaneKeyPair> keys;
    std::vector<std::string> names;
  } cases[] = {
      {"no container", {}, {"cardcf", "cmapfile"}},
      {"signature", {makeKey(1, 1)}, {"cardcf", "cmapfile", "ksc0"}},
      {"key exchange", {makeKey(1, 2)}, {"cardcf", "cmapfile", "kxc0"}},
      {"both", {makeKey(1, 3)}, {"cardcf", "cmapfile", "ksc0", "kxc0"}},
      {"neither", {makeKey(1, 0), makeKey(2, 4)}, {"cardcf", "cmapfile"}},
      {"several",
       {makeKey(1, 2), makeKey(2, 0), makeKey(3, 3), makeKey(4, 1)},
       {"cardcf", "cmapfile", "kxc0", "ksc2", "kxc2", "ksc3"}},
      {"eleven", eleven, namesOfEleven},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.label);
    CARD_DATA& record = openFresh(row.keys);
    for (const char* const directory : {"mscp", "MSCP", "mScP"}) expectNames(record, directory, row.names);
  }
}

// The bytes of the shortest lists, as they lie in memory.
TEST_F(DirectoryTest, EnumBytes) {
  CARD_DATA& record = open({});
  LPSTR names = nullptr;
  DWORD size = 0;
  ASSERT_EQ(record.pfnCardEnumFiles(&record, nullptr, &names, &size, 0), 0u);
  EXPECT_EQ(takeBuffer(names, size), (Bytes{'c', 'a', 'r', 'd', 'i', 'd', 0, 0}));
  char mscp[] = "mscp";
  ASSERT_EQ(record.pfnCardEnumFiles(&record, mscp, &names, &size, 0), 0u);
  EXPECT_EQ(takeBuffer(names, size),
            (Bytes{'c', 'a', 'r', 'd', 'c', 'f', 0, 'c', 'm', 'a', 'p', 'f', 'i', 'l', 'e', 0, 0}));
}

TEST_F(DirectoryTest, EnumSkipsContainersWithoutKeys) {
  CARD_DATA& record = open({makeKey(1, 3), makeKey(2, 1)});
  setKeys(record, 0, {});
  expectNames(record, "mscp", {"cardcf", "cmapfile", "ksc1"});
  expectFile(record, "mscp", "cmapfile", 172, 1);
}

TEST_F(DirectoryTest, EnumLooksAtTheFirstKeyOnly) {
  CARD_DATA& record = open({makeKey(1, 2)});
  setKeys(record, 0, {makeKey(1, 2), makeKey(2, 1)});
  expectNames(record, "mscp", {"cardcf", "cmapfile", "kxc0"});
}

TEST_F(DirectoryTest, EnumWithoutMemory) {
  CARD_DATA& record = open({makeKey(1, 3)});
  const EnumCase root{.label = "root",
                      .status = code(SCARD_E_NO_MEMORY),
                      .trace = {refusedAlloc(8), "E CardEnumFiles: pfnCspAlloc failed, totalSize=8"}};
  const EnumCase mscp{.label = "mscp",
                      .directory = "mscp",
                      .status = code(SCARD_E_NO_MEMORY),
                      .trace = {refusedAlloc(27), "E CardEnumFiles: pfnCspAlloc failed, totalSize=27"}};
  failAllocationsAfter(0);
  run(record, root);
  run(record, mscp);
  failAllocationsAfter(std::nullopt);
  record.pfnCspAlloc = nullptr;
  for (EnumCase row : {root, mscp}) {
    row.trace.erase(row.trace.begin());  // nobody is asked
    run(record, row);
  }
}

TEST_F(DirectoryTest, InfoRefusesArgumentsInOrder) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  char elsewhere[] = "elsewhere";
  char cardId[] = "cardid";
  const std::string invalid = "E CardGetFileInfo: invalid parameter(s)";
  const struct {
    const char* label;
    PCARD_DATA record;
    LPSTR file;
    bool hasInfo;
    std::string line;
  } cases[] = {
      {"no record", nullptr, cardId, true, invalid},
      {"no name, before no context", &noContext, nullptr, true, invalid},
      {"no result", &record, cardId, false, invalid},
      {"no context, before the directory", &noContext, cardId, true, "E CardGetFileInfo: provider context is null"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.label);
    auto info = poisoned<CARD_FILE_INFO>();
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetFileInfo(row.record, elsewhere, row.file, row.hasInfo ? &info : nullptr);
              }),
              (Outcome{87, {kInfo, row.line}}));
    EXPECT_EQ(bytesOf(info), Bytes(sizeof(info), kPoison));
  }
}

TEST_F(DirectoryTest, InfoDescribesTheFiles) {
  CARD_DATA& record = open({makeKey(1, 1), makeKey(2, 0)});
  for (const char* const file : {"cardid", "CARDID", "CardId"}) {
    expectFile(record, nullptr, file, 16, 3);
    expectFile(record, "", file, 16, 3);
  }
  for (const char* const directory : {"mscp", "MSCP"}) {
    expectFile(record, directory, "cardcf", 6, 1);
    expectFile(record, directory, "CARDCF", 6, 1);
    expectFile(record, directory, "cmapfile", 172, 1);
    expectFile(record, directory, "CMapFile", 172, 1);
    expectFile(record, directory, "msroots", 0, 1);
    expectFile(record, directory, "MSROOTS", 0, 1);
    for (const char* const file : {"ksc0", "kxc0", "ksc", "kxc", "ksc99", "kxc-1", "kscabc", "kxc 5 and more"}) {
      expectFile(record, directory, file, 4096, 1);
    }
  }
}

TEST_F(DirectoryTest, InfoOfAnEmptyContainerMap) {
  CARD_DATA& record = open({});
  expectFile(record, "mscp", "cmapfile", 0, 1);
}

TEST_F(DirectoryTest, InfoRefusesOtherNames) {
  CARD_DATA& record = open();
  const DWORD noFile = code(SCARD_E_FILE_NOT_FOUND);
  for (const char* const file : {"", "cardcf", "cmapfile", "msroots", "ksc0", "kxc0", "cardid ", "cardi", "mscp"}) {
    run(record,
        InfoCase{
            .file = file, .status = noFile, .line = std::string("E CardGetFileInfo: root file not found: ") + file});
  }
  for (const char* const file : {"", "cardid", "KSC0", "Kxc0", "ks", "kss0", "cardcf2", "cmapfile ", "msroot"}) {
    run(record, InfoCase{.directory = "mscp",
                         .file = file,
                         .status = noFile,
                         .line = std::string("E CardGetFileInfo: mscp file not found: ") + file});
  }
  for (const char* const directory : {"mscp2", "msc", " ", "mscerts"}) {
    for (const char* const file : {"cardcf", "cardid", "nothing"}) {
      run(record, InfoCase{.directory = directory,
                           .file = file,
                           .status = code(SCARD_E_DIR_NOT_FOUND),
                           .line = std::string("E CardGetFileInfo: directory not found: ") + directory});
    }
  }
}

}  // namespace
}  // namespace orvane::test
