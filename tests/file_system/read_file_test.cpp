// CardReadFile: the files that are made without the token's certificates.
#include "containers/map_record.h"
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr char kEntry[] = "D CardReadFile :: LOG_FUNCTION_NAME = Entry";

Lines started(const std::string& name, const Lines& log) {
  return concat({kEntry, "D CardReadFile filename: " + name}, log);
}

Bytes textBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes joined(const std::vector<Bytes>& parts) {
  Bytes bytes;
  for (const Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

class ReadFileTest : public DriverTest {
 protected:
  struct Read {
    Outcome outcome;
    std::optional<Bytes> contents;  // none: both outputs untouched
  };

  Read read(CARD_DATA& record, const char* name, const char* directory = nullptr, DWORD flags = 0) {
    BYTE untouched = kPoison;
    PBYTE data = &untouched;
    DWORD size = kPoison32;
    Read result;
    result.outcome = observe([&] {
      return record.pfnCardReadFile(&record, const_cast<LPSTR>(directory), const_cast<LPSTR>(name), flags, &data,
                                    &size);
    });
    EXPECT_EQ(data == &untouched, size == kPoison32);
    EXPECT_EQ(untouched, kPoison);
    if (data == &untouched) return result;
    const Lines requests = linesWith("alloc ", result.outcome.trace);
    result.contents = data != nullptr ? takeBuffer(data, std::stoul(requests.back().substr(6))) : Bytes();
    EXPECT_LE(size, result.contents->size());
    result.contents->resize(size);
    return result;
  }

  // Reads and compares everything.
  void expectRead(CARD_DATA& record, const char* name, const Outcome& outcome, const std::optional<Bytes>& contents) {
    const Read result = read(record, name);
    EXPECT_EQ(result.outcome, outcome);
    EXPECT_EQ(result.contents, contents);
  }

  // The same name without memory: an allocator that fails, and none at all.
  void expectNoMemory(CARD_DATA& record, const char* name, const Lines& begin, std::size_t size,
                      const std::string& line) {
    const auto failed = [&](const Lines& request) {
      return Outcome{code(SCARD_E_NO_MEMORY), started(name, inOrder(begin, request, line))};
    };
    failAllocationsAfter(0);
    expectRead(record, name, failed({refusedAlloc(size)}), std::nullopt);
    failAllocationsAfter(std::nullopt);
    const auto allocator = record.pfnCspAlloc;
    record.pfnCspAlloc = nullptr;
    expectRead(record, name, failed({}), std::nullopt);
    record.pfnCspAlloc = allocator;
  }
};

TEST_F(ReadFileTest, RefusesArgumentsInOrder) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  BYTE untouched = kPoison;
  PBYTE data = &untouched;
  DWORD size = kPoison32;
  char cardId[] = "cardid";
  char certificate[] = "ksc0";
  const struct {
    const char* name;
    PCARD_DATA record;
    LPSTR file;
    PBYTE* data;
    DWORD* size;
    Lines log;
  } cases[] = {
      {"no record",
       nullptr,
       cardId,
       &data,
       &size,
       {"D CardReadFile filename: cardid", "E CardReadFile: invalid parameter(s)"}},
      {"no name",
       &record,
       nullptr,
       &data,
       &size,
       {"D CardReadFile filename: ", "E CardReadFile: invalid parameter(s)"}},
      {"no data pointer",
       &record,
       cardId,
       nullptr,
       &size,
       {"D CardReadFile filename: cardid", "E CardReadFile: invalid parameter(s)"}},
      {"no size pointer, before no context",
       &noContext,
       cardId,
       &data,
       nullptr,
       {"D CardReadFile filename: cardid", "E CardReadFile: invalid parameter(s)"}},
      {"no context, before the device is opened",
       &noContext,
       certificate,
       &data,
       &size,
       {"D CardReadFile filename: ksc0", "E CardReadFile: provider context is NULL"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(observe([&] { return record.pfnCardReadFile(row.record, nullptr, row.file, 0, row.data, row.size); }),
              (Outcome{87, concat({kEntry}, row.log)}));
    EXPECT_EQ(data, &untouched);
    EXPECT_EQ(size, kPoison32);
  }
}

TEST_F(ReadFileTest, CardIdRepeatsTheSerial) {
  CARD_DATA& record = open();
  const struct {
    std::string serial;
    Bytes contents;
  } cases[] = {
      {"AB12", textBytes("AB12AB12AB12AB12")},
      {"7", textBytes("7777777777777777")},
      {"ABC", textBytes("ABCABCABCABCABCA")},
      {"0123456789ABCDE", textBytes("0123456789ABCDE0")},
      {"0123456789ABCDEF", textBytes("0123456789ABCDEF")},
      {"0123456789ABCDEFG", textBytes("0123456789ABCDEF")},
      {"ABCDEFGHIJKLMNOPQRST", textBytes("ABCDEFGHIJKLMNOP")},
      {"", Bytes(16, 0)},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE("serial " + row.serial);
    setSerial(record, row.serial);
    expectRead(record, "cardid",
               {0, started("cardid", {alloc(16), "D CardReadFile: CardId returned for serial=[" + row.serial +
                                                     "] len=" + std::to_string(row.serial.size())})},
               row.contents);
  }
}

TEST_F(ReadFileTest, CardCfCarriesTheFreshness) {
  CARD_DATA& record = open();
  const auto expectCardCf = [&](const char* what, const std::string& serial, const Bytes& contents,
                                const std::string& values) {
    SCOPED_TRACE(what);
    expectRead(record, "cardcf",
               {0, started("cardcf", {"D CardReadFile: szCACHE_FILE requested", alloc(6),
                                      "D === CardReadFile cardcf: serial=[" + serial + "] " + values})},
               contents);
  };
  expectCardCf("after the acquisition", kSerial, {0, 0, 1, 0, 1, 0},
               "Version=0 PinsFresh=0 ContainersFresh=1 FilesFresh=1");
  ASSERT_EQ(record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0), 0u);
  expectCardCf("after a deauthentication", kSerial, {0, 1, 1, 0, 1, 0},
               "Version=0 PinsFresh=1 ContainersFresh=1 FilesFresh=1");
  pollMonitor();
  expectCardCf("after the monitor saw the token", kSerial, {1, 2, 2, 0, 2, 0},
               "Version=1 PinsFresh=2 ContainersFresh=2 FilesFresh=2");
  setSerial(record, "nobody");
  expectCardCf("a serial without a record", "nobody", {1, 1, 0, 0, 0, 0},
               "Version=1 PinsFresh=1 ContainersFresh=0 FilesFresh=0");
}

TEST_F(ReadFileTest, ContainerMapDescribesTheFirstKeys) {
  OrvaneKeyPair wrapped = makeKey(6, 3);
  wrapped.modulusLength = 8193;  // 65544 bits, of which 16 bits are kept
  CARD_DATA& record = open({makeKey(1, 1, 1024), makeKey(2, 2, 2048), makeKey(3, 3, 3072), makeKey(4, 0, 4096),
                            makeKey(5, 4, 4096), wrapped});
  const Bytes contents =
      joined({mapRecord(idOf(1), 3, 1024, 0), mapRecord(idOf(2), 1, 0, 2048), mapRecord(idOf(3), 1, 3072, 3072),
              mapRecord(idOf(4), 1, 0, 0), mapRecord(idOf(5), 1, 0, 0), mapRecord(idOf(6), 1, 8, 8)});
  expectRead(record, "cmapfile",
             {0, started("cmapfile",
                         {"D === CardReadFile cmapfile: serial=[0012AB]", alloc(516), "D CMAP: container[0] sig=1024",
                          "D CMAP Output: [0] GUID=" + idOf(1), "D CMAP: container[1] kx=2048",
                          "D CMAP Output: [1] GUID=" + idOf(2), "D CMAP: container[2] sig=3072",
                          "D CMAP: container[2] kx=3072", "D CMAP Output: [2] GUID=" + idOf(3),
                          "D CMAP Output: [3] GUID=" + idOf(4), "D CMAP Output: [4] GUID=" + idOf(5),
                          "D CMAP: container[5] sig=8", "D CMAP: container[5] kx=8",
                          "D CMAP Output: [5] GUID=" + idOf(6), "D CMAP: Returned 6 containers"})},
             contents);
}

// The bytes of one record, as they lie in the file.
TEST_F(ReadFileTest, ContainerMapBytes) {
  OrvaneKeyPair key = makeKey(0, 3, 2048);
  for (unsigned i = 0; i < 16; ++i) key.credentialId[i] = static_cast<std::uint8_t>(i * 0x11);
  CARD_DATA& record = open({key});
  const Read result = read(record, "cmapfile");
  EXPECT_EQ(result.outcome.status, 0u);
  const Bytes expected = {
      '0', 0, '0', 0, '1', 0, '1', 0, '2', 0, '2', 0, '3', 0, '3', 0,  // 0011223344556677...
      '4', 0, '4', 0, '5', 0, '5', 0, '6', 0, '6', 0, '7', 0, '7', 0,  //
      '8', 0, '8', 0, '9', 0, '9', 0, 'A', 0, 'A', 0, 'B', 0, 'B', 0,  // ...8899AABBCCDDEEFF
      'C', 0, 'C', 0, 'D', 0, 'D', 0, 'E', 0, 'E', 0, 'F', 0, 'F', 0,  //
      0,   0, 0,   0, 0,   0, 0,   0, 0,   0, 0,   0, 0,   0, 0,   0,  // the rest of 40 units
      3,   0,                                                          // valid and default; reserved
      0,   8, 0,   8                                                   // 2048 bits, twice
  };
  EXPECT_EQ(result.contents, expected);
}

TEST_F(ReadFileTest, ContainerMapOfATokenWithoutKeys) {
  CARD_DATA& record = open({});
  const Lines log = {"D === CardReadFile cmapfile: serial=[0012AB]",
                     "D CMAP: no containers for 0012AB, returning empty cmapfile"};
  expectRead(record, "cmapfile", {0, started("cmapfile", concat(log, {alloc(1)}))}, Bytes());
  expectNoMemory(record, "cmapfile", log, 1, "E CardReadFile: pfnCspAlloc failed for empty cmapfile");
}

TEST_F(ReadFileTest, ContainerMapIsReadAnewWhenTheListIsGone) {
  CARD_DATA& record = open({makeKey(1, 3)});
  // A token that no context was ever acquired for.
  defineToken({.serial = kOtherSerial, .keys = {makeKey(7, 2, 4096), makeKey(8, 1, 2048)}});
  setSerial(record, kOtherSerial);
  const Bytes contents = joined({mapRecord(idOf(7), 3, 0, 4096), mapRecord(idOf(8), 1, 2048, 0)});
  const Lines output = {alloc(172),
                        "D CMAP: container[0] kx=4096",
                        "D CMAP Output: [0] GUID=" + idOf(7),
                        "D CMAP: container[1] sig=2048",
                        "D CMAP Output: [1] GUID=" + idOf(8),
                        "D CMAP: Returned 2 containers"};
  const Lines begin = {"D === CardReadFile cmapfile: serial=[0034CD]"};
  expectRead(record, "cmapfile",
             {0, started("cmapfile", inOrder(begin, "D CMAP: Serial 0034CD missing from cache. Re-populating now...",
                                             "orvane_getKeyPairList(\"0034CD\", null)", output))},
             contents);
  expectRead(record, "cmapfile", {0, started("cmapfile", concat(begin, output))}, contents);
  expectNoMemory(record, "cmapfile", begin, 172, "E CardReadFile: pfnCspAlloc failed for cmapfile, totalSize=172");

  // The context's own list is another matter: it still has the one key of the first token.
  PBYTE data = nullptr;
  DWORD size = kPoison32;
  char last[] = "ksc1";
  EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, last, 0, &data, &size), code(SCARD_E_FILE_NOT_FOUND));
}

TEST_F(ReadFileTest, ContainerMapOfASerialThatNobodyKnows) {
  CARD_DATA& record = open();
  setSerial(record, "nobody");
  const Lines begin = {"D === CardReadFile cmapfile: serial=[nobody]"};
  const Lines empty = {"D CMAP: no containers for nobody, returning empty cmapfile", alloc(1)};
  expectRead(record, "cmapfile",
             {0, started("cmapfile", inOrder(begin, "D CMAP: Serial nobody missing from cache. Re-populating now...",
                                             "orvane_getKeyPairList(\"nobody\", null)", empty))},
             Bytes());
  // An empty list is a list.
  expectRead(record, "cmapfile", {0, started("cmapfile", concat(begin, empty))}, Bytes());
}

TEST_F(ReadFileTest, RootStoreIsEmpty) {
  CARD_DATA& record = open();
  expectRead(record, "msroots", {0, started("msroots", {"D CardReadFile: root store file requested"})}, Bytes());
}

TEST_F(ReadFileTest, NoMemory) {
  CARD_DATA& record = open();
  expectNoMemory(record, "cardid", {}, 16, "E CardReadFile: allocation failed for CardId");
  expectNoMemory(record, "cardcf", {"D CardReadFile: szCACHE_FILE requested"}, 6,
                 "E CardReadFile: allocation failed for CardCF");
  expectNoMemory(record, "cmapfile", {"D === CardReadFile cmapfile: serial=[0012AB]"}, 86,
                 "E CardReadFile: pfnCspAlloc failed for cmapfile, totalSize=86");
}

TEST_F(ReadFileTest, LetterCaseDirectoryAndFlagsDoNotMatter) {
  CARD_DATA& record = open();
  const struct {
    const char* name;
    const char* likeName;
    const char* directory;
    DWORD flags;
  } cases[] = {
      {"CARDID", "cardid", nullptr, 0},     {"CardId", "cardid", "mscp", 0},
      {"cardid", "cardid", "elsewhere", 0}, {"cardid", "cardid", "", 0xFFFFFFFF},
      {"CARDCF", "cardcf", "", 0},          {"cardcf", "cardcf", "mscp", 1},
      {"CMAPFILE", "cmapfile", "mscp", 0},  {"cMapFile", "cmapfile", nullptr, 0x80000000},
      {"MSROOTS", "msroots", "mscp", 0},    {"msRoots", "msroots", "", 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const Read like = read(record, row.likeName);
    Read result = read(record, row.name, row.directory, row.flags);
    EXPECT_EQ(result.outcome.status, 0u);
    EXPECT_EQ(result.contents, like.contents);
    ASSERT_GE(result.outcome.trace.size(), 2u);
    EXPECT_EQ(result.outcome.trace[1], std::string("D CardReadFile filename: ") + row.name);
    result.outcome.trace[1] = like.outcome.trace[1];
    EXPECT_EQ(result.outcome, like.outcome);
  }
}

TEST_F(ReadFileTest, RefusesOtherNames) {
  CARD_DATA& record = open();
  for (const char* const name : {"", "ks", "kx", "KSC0", "KSC00", "Kxc0", "kXc", "kss0", "ksp0", "cardi", "cardid0",
                                 " cardid", "cardcf ", "cmapfile0", "CMAPFILE1", "msroots0", "mscp", "mscp/cmapfile"}) {
    SCOPED_TRACE(name);
    expectRead(
        record, name,
        {code(SCARD_E_FILE_NOT_FOUND), started(name, {std::string("D CardReadFile: unsupported file name=") + name})},
        std::nullopt);
  }
}

}  // namespace
}  // namespace orvane::test
