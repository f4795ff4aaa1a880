// From the reader of a card handle to the serial of the token in it.
#include <cstddef>
#include <cstring>
#include <string>

#include "harness/driver_test.h"
#include "harness/machine.h"

namespace orvane::test {
namespace {

constexpr const char* kStatus = "SCardStatusA handle=0x2A name=512 atr=36 zeroed";
constexpr const char* kAskKey = "SCardTransmit handle=0x2A protocol=2 pci=8 recv=64 FFFF00A200";
constexpr const char* kAskSle = "SCardTransmit handle=0x2A protocol=2 pci=8 recv=64 FFFF00D5000000";

struct ReaderRow {
  const char* name;
  std::string readerName = {};
  LONG statusResult = SCARD_S_SUCCESS;
  LONG transmitResult = SCARD_S_SUCCESS;
  Bytes reply = {};
  Lines readerLog = {};    // before the library is initialised
  Lines serialTrace = {};  // the command, and what came of it
  std::string serial = {};
  bool hasNameNul = true;
};

// A reply with the text and a status word.
Bytes replyOf(const std::string& text, BYTE first, BYTE second) {
  Bytes reply(text.begin(), text.end());
  reply.push_back(first);
  reply.push_back(second);
  return reply;
}

// Two tokens, D1 and D2, are connected.
const ReaderRow kReaderRows[] = {
    {.name = "the resource manager fails",
     .readerName = "A B 7",
     .statusResult = static_cast<LONG>(0x80100069),
     .readerLog = {"E SCardStatusA failed: 0x80100069, defaulting to index 0"},
     .serial = "D1"},
    {.name = "its small statuses have eight digits, too",
     .readerName = "A B 7",
     .statusResult = 6,
     .readerLog = {"E SCardStatusA failed: 0x00000006, defaulting to index 0"},
     .serial = "D1"},
    {.name = "empty reader name", .readerName = "", .readerLog = {"D Reader name for hScard: "}, .serial = "D1"},
    {.name = "serial in the third piece",
     .readerName = "Brightfold Orvane 0012AB",
     .readerLog = {"D Reader name for hScard: Brightfold Orvane 0012AB"},
     .serial = "0012AB"},
    {.name = "third piece 0",
     .readerName = "Smart Token 0",
     .readerLog = {"D Reader name for hScard: Smart Token 0", "D Reader index=0"},
     .serial = "0"},
    {.name = "a digit anywhere in the third piece, an index behind it",
     .readerName = "A B x1y C 07",
     .readerLog = {"D Reader name for hScard: A B x1y C 07", "D Reader index=7"},
     .serial = "x1y"},
    {.name = "the serial in the name goes before the 7-byte command",
     .readerName = "OrvaneDSC B 5",
     .readerLog = {"D Reader name for hScard: OrvaneDSC B 5", "D Reader index=5"},
     .serial = "5"},
    {.name = "a sign is no digit of an index but may stand in a serial",
     .readerName = "A B -1",
     .readerLog = {"D Reader name for hScard: A B -1"},
     .serial = "-1"},
    {.name = "two blanks make an empty second piece",
     .readerName = "A  5",
     .readerLog = {"D Reader name for hScard: A  5", "D Reader index=5"},
     .serial = "5"},
    {.name = "blanks at the front make empty pieces",
     .readerName = "  7",
     .readerLog = {"D Reader name for hScard:   7", "D Reader index=7"},
     .serial = "7"},
    {.name = "an empty third piece has no digit",
     .readerName = "Reader x ",
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Reader x "},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: K1"},
     .serial = "K1"},
    {.name = "third piece without a digit",
     .readerName = "Brightfold Smart Token 00 01",
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Brightfold Smart Token 00 01", "D Reader index=1"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: K1"},
     .serial = "K1"},
    {.name = "a tab separates nothing",
     .readerName = "A\tB\t1",
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: A\tB\t1"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: K1"},
     .serial = "K1"},
    {.name = "no blank at all",
     .readerName = "Reader7",
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Reader7"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: K1"},
     .serial = "K1"},
    {.name = "a name that fills the buffer",
     .readerName = std::string(511, 'R'),
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: " + std::string(511, 'R')},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: K1"},
     .serial = "K1"},
    {.name = "a name that leaves no room for its NUL",
     .readerName = std::string(512, 'R'),
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: " + std::string(512, 'R')},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: K1"},
     .serial = "K1",
     .hasNameNul = false},
    {.name = "5-byte command: the status word is not looked at",
     .readerName = "Reader 1",
     .reply = {0x41, 0x42, 0x43, 0x6A, 0x82},
     .readerLog = {"D Reader name for hScard: Reader 1", "D Reader index=1"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: ABC"},
     .serial = "ABC"},
    {.name = "5-byte command: three bytes are enough",
     .readerName = "Reader 1",
     .reply = replyOf("A", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Reader 1", "D Reader index=1"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: A"},
     .serial = "A"},
    {.name = "5-byte command: a reply that fills the buffer",
     .readerName = "Reader 1",
     .reply = replyOf(std::string(62, 'S'), 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Reader 1", "D Reader index=1"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: " + std::string(62, 'S')},
     .serial = std::string(62, 'S')},
    {.name = "5-byte command: two bytes are too few",
     .readerName = "Reader 1",
     .reply = {0x90, 0x00},
     .readerLog = {"D Reader name for hScard: Reader 1", "D Reader index=1"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 1"},
     .serial = "D2"},
    {.name = "5-byte command: empty reply",
     .readerName = "Reader 0",
     .readerLog = {"D Reader name for hScard: Reader 0", "D Reader index=0"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 0"},
     .serial = "D1"},
    {.name = "5-byte command: transmission fails",
     .readerName = "Reader 1",
     .transmitResult = static_cast<LONG>(0x80100069),
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Reader 1", "D Reader index=1"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 1"},
     .serial = "D2"},
    {.name = "index equal to the number of tokens",
     .readerName = "Reader 2",
     .readerLog = {"D Reader name for hScard: Reader 2", "D Reader index=2"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 2"},
     .serial = "D1"},
    {.name = "index beyond the tokens",
     .readerName = "Reader 3",
     .readerLog = {"D Reader name for hScard: Reader 3", "D Reader index=3"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 3"},
     .serial = "D1"},
    {.name = "the largest index",
     .readerName = "Reader 2147483647",
     .readerLog = {"D Reader name for hScard: Reader 2147483647", "D Reader index=2147483647"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 2147483647"},
     .serial = "D1"},
    {.name = "zeros before an index do not count",
     .readerName = "Reader 000000000001",
     .readerLog = {"D Reader name for hScard: Reader 000000000001", "D Reader index=1"},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 1"},
     .serial = "D2"},
    {.name = "no index behind the last blank",
     .readerName = "Reader 1 ",
     .reply = {},
     .readerLog = {"D Reader name for hScard: Reader 1 "},
     .serialTrace = {kAskKey, "D Serial APDU failed, falling back to index: 0"},
     .serial = "D1"},
    {.name = "7-byte command",
     .readerName = "Brightfold Orvane OrvaneDSC 00 01",
     .reply = replyOf("SLE77", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: Brightfold Orvane OrvaneDSC 00 01", "D Reader index=1"},
     .serialTrace = {kAskSle, "D SLE serial via APDU: SLE77"},
     .serial = "SLE77"},
    {.name = "7-byte command: the shortest name and reply",
     .readerName = "OrvaneDSC",
     .reply = replyOf("A", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: OrvaneDSC"},
     .serialTrace = {kAskSle, "D SLE serial via APDU: A"},
     .serial = "A"},
    {.name = "7-byte command: inside a longer word",
     .readerName = "xOrvaneDSCx",
     .reply = replyOf("A", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: xOrvaneDSCx"},
     .serialTrace = {kAskSle, "D SLE serial via APDU: A"},
     .serial = "A"},
    {.name = "other letter case gives the 5-byte command",
     .readerName = "ORVANEDSC orvanedsc",
     .reply = replyOf("A", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: ORVANEDSC orvanedsc"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: A"},
     .serial = "A"},
    {.name = "one letter less gives the 5-byte command",
     .readerName = "OrvaneDS C",
     .reply = replyOf("A", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: OrvaneDS C"},
     .serialTrace = {kAskKey, "D OrvaneKey serial via APDU: A"},
     .serial = "A"},
    {.name = "7-byte command: second byte of the status word",
     .readerName = "OrvaneDSC 1",
     .reply = {0x41, 0x42, 0x90, 0x01},
     .readerLog = {"D Reader name for hScard: OrvaneDSC 1", "D Reader index=1"},
     .serialTrace = {kAskSle, "D SLE serial APDU failed, falling back to index: 1"},
     .serial = "D2"},
    {.name = "7-byte command: first byte of the status word",
     .readerName = "OrvaneDSC 1",
     .reply = {0x41, 0x42, 0x61, 0x00},
     .readerLog = {"D Reader name for hScard: OrvaneDSC 1", "D Reader index=1"},
     .serialTrace = {kAskSle, "D SLE serial APDU failed, falling back to index: 1"},
     .serial = "D2"},
    {.name = "7-byte command: nothing before the status word",
     .readerName = "OrvaneDSC 1",
     .reply = {0x90, 0x00},
     .readerLog = {"D Reader name for hScard: OrvaneDSC 1", "D Reader index=1"},
     .serialTrace = {kAskSle, "D SLE serial APDU failed, falling back to index: 1"},
     .serial = "D2"},
    {.name = "7-byte command: transmission fails",
     .readerName = "OrvaneDSC 3",
     .transmitResult = static_cast<LONG>(0x8010001D),
     .reply = replyOf("K1", 0x90, 0x00),
     .readerLog = {"D Reader name for hScard: OrvaneDSC 3", "D Reader index=3"},
     .serialTrace = {kAskSle, "D SLE serial APDU failed, falling back to index: 3"},
     .serial = "D1"},
};

class Reader : public DriverTest {
 protected:
  void SetUp() override {
    DriverTest::SetUp();
    defineToken({.serial = "D1"});
    defineToken({.serial = "D2"});
  }
};

// Leaves something on the stack for buffers that nobody zeroes.
void useStack() {
  volatile unsigned char bytes[16384];
  for (std::size_t i = 0; i < sizeof(bytes); ++i) bytes[i] = kPoison;
}
// Volatile, so that it is not inlined.
void (*const volatile useStackBelow)() = useStack;

bool isConnected(const ReaderRow& row) { return row.serial == "D1" || row.serial == "D2"; }

// The trace of an acquisition with this card handle, or with none.
Lines traceOf(const ReaderRow& row, bool hasCardHandle = true) {
  const std::string device = "[" + row.serial + "]";
  const std::string open = "orvane_initDevice(\"" + row.serial + "\", false, null)";
  const std::string list = "orvane_getKeyPairList(\"" + row.serial + "\", null)";
  const auto ifFailed = [&](const std::string& line) {
    return isConnected(row) ? Lines{} : Lines{line + device + ": 224"};
  };
  return inOrder("D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=0",
                 hasCardHandle ? Lines{kStatus} : Lines{}, row.readerLog, "D Global library init (skip HID scan)",
                 hasCardHandle ? "orvane_init(0, 0x2A, 2)" : "orvane_init(0, null, 2)",
                 "D Monitor thread started (startDeviceMonitor).", "orvane_getConnectedDeviceList(false, null)",
                 row.serialTrace, "D resolved serial number :: " + row.serial,
                 "D Using serial=" + row.serial + " for hScard=" + (hasCardHandle ? "42" : "0"),
                 "D Initialising device " + device, open, ifFailed("E Init device failed for "),
                 "orvane_clearExternalSmartcardHandle()", list, "D Key list empty for " + device + ", refreshing", open,
                 isConnected(row) ? Lines{list} : ifFailed("E PACE refresh failed for "), "D older key count 0",
                 "D CardAcquireContext completed successfully");
}

TEST_F(Reader, LeadsToTheSerial) {
  for (const ReaderRow& row : kReaderRows) {
    SCOPED_TRACE(row.name);
    reloadDriver();
    CARD_DATA record = newRecord();
    record.hScard = 0x2A;
    resourceManager = {row.statusResult, row.readerName, row.transmitResult, row.reply, row.hasNameNul};
    EXPECT_EQ(observe([&] { return acquire(record); }), (Outcome{0, traceOf(row)}));
  }
}

// Whatever lay there before; nothing is logged on the way, whose buffers would leave zeros.
TEST_F(Reader, IsAskedWithZeroedBuffers) {
  CARD_DATA first = newRecord();
  acquireQuietly(first);
  setDebugLog(false);
  CARD_DATA record = newRecord();
  record.hScard = 0x2A;
  const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
  const Outcome outcome = observe([&] {
    useStackBelow();
    return cardAcquireContext(&record, 0);
  });
  EXPECT_EQ(outcome.status, 0u);
  EXPECT_EQ(linesWith("SCard", outcome.trace), Lines{kStatus});
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
}

TEST_F(Reader, IsNotAskedWithoutACardHandle) {
  CARD_DATA record = newRecord();
  resourceManager.readerName = "A B 7";
  const ReaderRow first{.name = "the first token of the list", .serial = "D1"};
  EXPECT_EQ(observe([&] { return acquire(record); }), (Outcome{0, traceOf(first, false)}));
}

// The number at the end of a name must fit 32 signed bits; the acquisition ends before the library is asked anything.
TEST_F(Reader, IndexOutOfRangeEndsTheAcquisition) {
  for (const char* digits : {"2147483648", "99999999999999999999999"}) {
    SCOPED_TRACE(digits);
    CARD_DATA record = newRecord();
    record.hScard = 0x2A;
    CARD_DATA before;
    std::memcpy(&before, &record, sizeof(record));
    resourceManager.readerName = std::string("Reader ") + digits;
    EXPECT_EQ(observe([&] { return acquire(record); }),
              (Outcome{0x80100001,
                       {"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=0", kStatus,
                        "D Reader name for hScard: " + resourceManager.readerName,
                        "E CardAcquireContext: unhandled exception: reader index out of range"}}));
    EXPECT_EQ(std::memcmp(&before, &record, sizeof(record)), 0);
  }
}

}  // namespace
}  // namespace orvane::test
