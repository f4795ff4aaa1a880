// CardAcquireContext from the first check to the finished record, for a card handle 0: no reader is asked.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "harness/driver_test.h"
#include "harness/plain_record.h"
#include "tokenlib/token_client.h"

namespace orvane::test {
namespace {

constexpr std::size_t kMembers = sizeof(CARD_DATA) / sizeof(std::uint64_t);

// The record's members as numbers, so that a difference shows its place.
std::vector<std::uint64_t> membersOf(const CARD_DATA& record) {
  std::vector<std::uint64_t> members(kMembers);
  std::memcpy(members.data(), &record, sizeof(record));
  return members;
}

class AcquireContext : public DriverTest {};

// The right ATR with one byte changed.
Bytes atrWith(std::size_t position, BYTE value) {
  Bytes atr(std::begin(kAtr), std::end(kAtr));
  atr[position] = value;
  return atr;
}

// The right ATR, cut or filled up with 0x77 to this size.
Bytes atrOfSize(std::size_t size) {
  Bytes atr(std::begin(kAtr), std::end(kAtr));
  atr.resize(size, 0x77);
  return atr;
}

struct Refusal {
  const char* name;
  std::optional<Bytes> atr = atrOfSize(19);  // none: a null pointer
  DWORD atrLength = 19;
  bool hasCardName = true;
  DWORD flags = 0;
  DWORD status;
  Lines errors;
};

const char* const kMismatch = "E ATR VALUE or length IS MISMATCH";

const Refusal kRefusals[] = {
    {.name = "last byte of the ATR differs",
     .atr = atrWith(18, 0x4D),
     .status = 0x8010000D,
     .errors = {"E ATR length :: 19", "E ATR value  :: 3B8E8001504B035858585F4453435F4B45594D", kMismatch}},
    {.name = "first byte of the ATR differs",
     .atr = atrWith(0, 0x3F),
     .status = 0x8010000D,
     .errors = {"E ATR length :: 19", "E ATR value  :: 3F8E8001504B035858585F4453435F4B45594C", kMismatch}},
    {.name = "a byte in the middle of the ATR differs",
     .atr = atrWith(9, 0x59),
     .status = 0x8010000D,
     .errors = {"E ATR length :: 19", "E ATR value  :: 3B8E8001504B035858595F4453435F4B45594C", kMismatch}},
    {.name = "right bytes and one more",
     .atr = atrOfSize(20),
     .atrLength = 20,
     .status = 0x8010000D,
     .errors = {"E ATR length :: 20", "E ATR value  :: 3B8E8001504B035858585F4453435F4B45594C77", kMismatch}},
    {.name = "right bytes, one too few",
     .atr = atrOfSize(18),
     .atrLength = 18,
     .status = 0x8010000D,
     .errors = {"E ATR length :: 18", "E ATR value  :: 3B8E8001504B035858585F4453435F4B4559", kMismatch}},
    {.name = "ATR of length 0",
     .atrLength = 0,
     .status = 0x8010000D,
     .errors = {"E ATR length :: 0", "E ATR value  :: ", kMismatch}},
    {.name = "null ATR",
     .atr = std::nullopt,
     .status = 0x8010000D,
     .errors = {"E ATR length :: 19", "E ATR value  :: ", kMismatch}},
    {.name = "no more than an ATR buffer is read",
     .atr = atrOfSize(36),
     .atrLength = 4000000000,
     .status = 0x8010000D,
     .errors = {"E ATR length :: 4000000000",
                "E ATR value  :: 3B8E8001504B035858585F4453435F4B45594C7777777777777777777777777777777777", kMismatch}},
    {.name = "wrong ATR before missing card name and flags",
     .atr = atrWith(18, 0x4D),
     .hasCardName = false,
     .flags = 1,
     .status = 0x8010000D,
     .errors = {"E ATR length :: 19", "E ATR value  :: 3B8E8001504B035858585F4453435F4B45594D", kMismatch}},
    {.name = "missing card name before flags",
     .hasCardName = false,
     .flags = 1,
     .status = 87,
     .errors = {"E CardAcquireContext: pCardData is NULL"}},
    {.name = "missing card name",
     .hasCardName = false,
     .status = 87,
     .errors = {"E CardAcquireContext: pCardData is NULL"}},
    {.name = "key injection without a card",
     .flags = 1,
     .status = 0x80100022,
     .errors = {"E CardAcquireContext: CARD_SECURE_KEY_INJECTION_NO_CARD_MODE"}},
};

TEST_F(AcquireContext, RefusesInThisOrderBeforeAnythingIsTouched) {
  defineToken({.serial = "A1", .keys = {makeKey(0x11, 1)}});
  for (const Refusal& row : kRefusals) {
    SCOPED_TRACE(row.name);
    CARD_DATA record = newRecord();
    Bytes atr = row.atr.value_or(Bytes());
    atr.shrink_to_fit();
    record.pbAtr = row.atr ? atr.data() : nullptr;
    record.cbAtr = row.atrLength;
    record.hScard = 0x2A;
    resourceManager.readerName = "Reader 1";
    if (!row.hasCardName) record.pwszCardName = nullptr;
    const auto before = membersOf(record);
    EXPECT_EQ(observe([&] { return acquire(record, row.flags); }),
              (Outcome{row.status, concat({"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry",
                                           "D dwFlags=" + std::to_string(row.flags)},
                                          row.errors)}));
    EXPECT_EQ(membersOf(record), before);
    EXPECT_EQ(takeMonitorStarts(), 0u);
  }
}

TEST_F(AcquireContext, RefusesANullRecord) {
  const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
  EXPECT_EQ(observe([&] { return cardAcquireContext(nullptr, 1); }),
            (Outcome{87,
                     {"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=1",
                      "E CardAcquireContext: pCardData is NULL"}}));
}

TEST_F(AcquireContext, BindsTheOnlyToken) {
  defineToken({.serial = "A1", .keys = {makeKey(0x11, 1), makeKey(0xA2, 2, 4096), makeKey(0x33, -1)}});
  CARD_DATA record = newRecord();
  const Outcome outcome = observe([&] { return acquire(record); });
  EXPECT_EQ(outcome.status, 0u);
  EXPECT_EQ(outcome.trace, (Lines{
                               "D CardAcquireContext :: LOG_FUNCTION_NAME = Entry",
                               "D dwFlags=0",
                               "D Global library init (skip HID scan)",
                               "orvane_init(0, null, 2)",
                               "D Monitor thread started (startDeviceMonitor).",
                               "orvane_getConnectedDeviceList(false, null)",
                               "D resolved serial number :: A1",
                               "D Using serial=A1 for hScard=0",
                               "D Initialising device [A1]",
                               "orvane_initDevice(\"A1\", false, null)",
                               "orvane_clearExternalSmartcardHandle()",
                               "orvane_getKeyPairList(\"A1\", null)",
                               "D older key count 0",
                               "D new key count 3",
                               "D >>> GLOBAL CACHE BUMPED: ver=0 pins=0 cont=0 file=0",
                               "D guidAscii (credential id ) :: 11111111111111111111111111111111",
                               "D key usage :: 1",
                               "D guidAscii (credential id ) :: A2A2A2A2A2A2A2A2A2A2A2A2A2A2A2A2",
                               "D key usage :: 2",
                               "D guidAscii (credential id ) :: 33333333333333333333333333333333",
                               "D key usage :: -1",
                               "D CardAcquireContext completed successfully",
                           }));
  EXPECT_EQ(takeMonitorStarts(), 1u);
}

// A handle that another user of the library left set goes before the keys are read.
TEST_F(AcquireContext, HandsOverNoCardHandle) {
  defineToken({.serial = "A1", .keys = {makeKey(0x11, 1)}});
  CARD_DATA record = newRecord();
  record.hScard = 0xFEDCBA9876543210;
  resourceManager.readerName = "";
  tokenlib::setExternalSmartcardHandle(0x77);
  const Outcome outcome = observe([&] { return acquire(record); });
  EXPECT_EQ(outcome.status, 0u);
  EXPECT_EQ(linesWith("orvane_", outcome.trace), (Lines{
                                                     "orvane_init(0, 0xFEDCBA9876543210, 2) [card 0x77]",
                                                     "orvane_getConnectedDeviceList(false, null) [card 0x77]",
                                                     "orvane_initDevice(\"A1\", false, null) [card 0x77]",
                                                     "orvane_clearExternalSmartcardHandle() [card 0x77]",
                                                     "orvane_getKeyPairList(\"A1\", null)",
                                                 }));
  EXPECT_EQ(linesWith("D Using serial=", outcome.trace), Lines{"D Using serial=A1 for hScard=18364758544493064720"});
}

struct Slot {
  const char* name;
  std::size_t offset;
};
#define ORVANE_TESTS_SLOT(name) \
  { #name, offsetof(CARD_DATA, pfn##name) }
const Slot kSlots[] = {
    ORVANE_TESTS_SLOT(CardDeleteContext),
    ORVANE_TESTS_SLOT(CardQueryCapabilities),
    ORVANE_TESTS_SLOT(CardDeleteContainer),
    ORVANE_TESTS_SLOT(CardCreateContainer),
    ORVANE_TESTS_SLOT(CardGetContainerInfo),
    ORVANE_TESTS_SLOT(CardAuthenticatePin),
    ORVANE_TESTS_SLOT(CardGetChallenge),
    ORVANE_TESTS_SLOT(CardAuthenticateChallenge),
    ORVANE_TESTS_SLOT(CardUnblockPin),
    ORVANE_TESTS_SLOT(CardChangeAuthenticator),
    ORVANE_TESTS_SLOT(CardDeauthenticate),
    ORVANE_TESTS_SLOT(CardCreateDirectory),
    ORVANE_TESTS_SLOT(CardDeleteDirectory),
    ORVANE_TESTS_SLOT(CardCreateFile),
    ORVANE_TESTS_SLOT(CardReadFile),
    ORVANE_TESTS_SLOT(CardWriteFile),
    ORVANE_TESTS_SLOT(CardDeleteFile),
    ORVANE_TESTS_SLOT(CardEnumFiles),
    ORVANE_TESTS_SLOT(CardGetFileInfo),
    ORVANE_TESTS_SLOT(CardQueryFreeSpace),
    ORVANE_TESTS_SLOT(CardQueryKeySizes),
    ORVANE_TESTS_SLOT(CardSignData),
    ORVANE_TESTS_SLOT(CardRSADecrypt),
    ORVANE_TESTS_SLOT(CardConstructDHAgreement),
    ORVANE_TESTS_SLOT(CardDeriveKey),
    ORVANE_TESTS_SLOT(CardDestroyDHAgreement),
    ORVANE_TESTS_SLOT(CardGetChallengeEx),
    ORVANE_TESTS_SLOT(CardAuthenticateEx),
    ORVANE_TESTS_SLOT(CardChangeAuthenticatorEx),
    ORVANE_TESTS_SLOT(CardDeauthenticateEx),
    ORVANE_TESTS_SLOT(CardGetContainerProperty),
    ORVANE_TESTS_SLOT(CardSetContainerProperty),
    ORVANE_TESTS_SLOT(CardGetProperty),
    ORVANE_TESTS_SLOT(CardSetProperty),
    ORVANE_TESTS_SLOT(MDImportSessionKey),
    ORVANE_TESTS_SLOT(MDEncryptData),
    ORVANE_TESTS_SLOT(CardImportSessionKey),
    ORVANE_TESTS_SLOT(CardGetSharedKeyHandle),
    ORVANE_TESTS_SLOT(CardGetAlgorithmProperty),
    ORVANE_TESTS_SLOT(CardGetKeyProperty),
    ORVANE_TESTS_SLOT(CardSetKeyProperty),
    ORVANE_TESTS_SLOT(CardDestroyKey),
    ORVANE_TESTS_SLOT(CardProcessEncryptedData),
    ORVANE_TESTS_SLOT(CardCreateContainerEx),
};
#undef ORVANE_TESTS_SLOT
static_assert(std::size(kSlots) == 44);

// Version, context and the 44 slots are written; everything else in the record, the slots that belong to the caller and
// the reserved ones included, is as it was.
TEST_F(AcquireContext, FillsTheRecord) {
  defineToken({.serial = "A1", .keys = {makeKey(0x11, 1)}});
  for (const DWORD version : {0u, 4u, 5u, 6u, 7u, 8u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(version);
    CARD_DATA record = newRecord();
    record.dwVersion = version;
    auto expected = membersOf(record);
    ASSERT_EQ(acquire(record), 0u);
    auto members = membersOf(record);
    EXPECT_NE(record.pvVendorSpecific, nullptr);
    constexpr std::size_t kContext = offsetof(CARD_DATA, pvVendorSpecific) / sizeof(std::uint64_t);
    EXPECT_NE(members[kContext], expected[kContext]);
    members[kContext] = expected[kContext];
    constexpr std::uint64_t kHighHalf = 0xFFFFFFFF00000000;
    expected[0] = (expected[0] & kHighHalf) | 7;
    for (const Slot& slot : kSlots) {
      void* const function = exportNamed(slot.name);
      EXPECT_NE(function, nullptr) << slot.name;
      std::memcpy(&expected[slot.offset / sizeof(std::uint64_t)], &function, sizeof(function));
    }
    EXPECT_EQ(members, expected);
  }
}

TEST_F(AcquireContext, MakesAReadyContext) {
  const OrvaneKeyPair keys[] = {makeKey(0x11, 1), makeKey(0xA2, 3, 3072)};
  defineToken({.serial = "A1", .keys = {keys[0], keys[1]}});
  CARD_DATA record = newRecord();
  ASSERT_EQ(acquire(record), 0u);
  const ProviderContext& context = inside(record);
  EXPECT_EQ(context.libraryContext, nullptr);
  EXPECT_EQ(context.cardData, &record);
  EXPECT_EQ(context.serialNumber, "A1");
  EXPECT_EQ(context.contextReady, 1u);
  EXPECT_EQ(context.sessionAuthValid, 1u);
  const PIN_INFO emptyPinInfo{};
  EXPECT_EQ(std::memcmp(&context.pinInfo, &emptyPinInfo, sizeof(emptyPinInfo)), 0);
  EXPECT_EQ(context.parentWindow, nullptr);
  EXPECT_EQ(context.pinContextString, "");
  EXPECT_EQ(context.pinStrengthVerify, 0u);
  EXPECT_EQ(context.cacheMode, 0u);
  EXPECT_EQ(context.supportsX509Enrollment, 0u);
  EXPECT_EQ(context.userAuthenticated, 0);
  EXPECT_EQ(context.adminAuthenticated, 0);
  ASSERT_EQ(context.containerCount(), 2u);
  EXPECT_TRUE(context.container(0).containerGuid == std::wstring(32, L'1'));
  EXPECT_TRUE(context.container(1).containerGuid == L"A2A2A2A2A2A2A2A2A2A2A2A2A2A2A2A2");
  for (std::size_t i = 0; i < std::size(keys); ++i) {
    ASSERT_EQ(context.container(i).keyPairs.size(), 1u);
    EXPECT_EQ(std::memcmp(&context.container(i).keyPairs[0], &keys[i], sizeof(keys[i])), 0) << i;
  }
}

TEST_F(AcquireContext, IgnoresEveryOtherFlag) {
  defineToken({.serial = "A1"});
  for (const DWORD flags : {0u, 2u, 3u, 0x40u, 0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(flags);
    CARD_DATA record = newRecord();
    EXPECT_EQ(acquire(record, flags), 0u);
    EXPECT_EQ(takeLog().at(1), "D dwFlags=" + std::to_string(flags));
  }
}

TEST_F(AcquireContext, DoesNotLookAtTheLibraryInitialisationsResult) {
  defineToken({.serial = "A1"});
  queueResult("orvane_init", 99);
  CARD_DATA record = newRecord();
  EXPECT_EQ(acquire(record), 0u);
  EXPECT_EQ(softtoken_queued("orvane_init"), 0u);
}

TEST_F(AcquireContext, FailsWithoutATokenButLeavesTheMonitorRunning) {
  const auto failed = [](const char* monitorLine) {
    return Outcome{0x8010000C,
                   {"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=0",
                    "D Global library init (skip HID scan)", "orvane_init(0, null, 2)", monitorLine,
                    "orvane_getConnectedDeviceList(false, null)", "E No smart card connected"}};
  };
  CARD_DATA record = newRecord();
  const auto before = membersOf(record);
  EXPECT_EQ(observe([&] { return acquire(record); }), failed("D Monitor thread started (startDeviceMonitor)."));
  EXPECT_EQ(membersOf(record), before);
  EXPECT_EQ(takeMonitorStarts(), 1u);

  EXPECT_EQ(observe([&] { return acquire(record); }), failed("D Monitor thread already running, not starting again."));
  EXPECT_EQ(membersOf(record), before);
  EXPECT_EQ(takeMonitorStarts(), 0u);

  defineToken({.serial = "A1"});
  EXPECT_EQ(acquire(record), 0u);
}

TEST_F(AcquireContext, TakesTheFirstOfSeveralTokens) {
  defineToken({.serial = "B2"});
  defineToken({.serial = "A1"});
  queueResult("orvane_getConnectedDeviceList", 0, kSofttokenKeep, kSofttokenKeep, {'B', '2', '\n', 'A', '1', '\n'});
  CARD_DATA record = newRecord();
  EXPECT_EQ(acquire(record), 0u);
  EXPECT_EQ(inside(record).serialNumber, "B2");
}

struct LibraryFailure {
  const char* function;
  Lines trace;  // behind the call of orvane_init
};

const Lines kListed = {"D Monitor thread already running, not starting again.",
                       "orvane_getConnectedDeviceList(false, null)"};
const Lines kBound = inOrder(kListed, "D resolved serial number :: A1", "D Using serial=A1 for hScard=0");
const Lines kOpened = inOrder(kBound, "D Initialising device [A1]", "orvane_initDevice(\"A1\", false, null)");
const char* const kCleared = "orvane_clearExternalSmartcardHandle()";

const LibraryFailure kLibraryFailures[] = {
    {"orvane_init", {}},
    {"orvane_getConnectedDeviceList", kListed},
    {"orvane_initDevice", kOpened},
    {"orvane_clearExternalSmartcardHandle", inOrder(kOpened, kCleared)},
    // The token is initialised by now.
    {"orvane_getKeyPairList", inOrder(kBound, kCleared, "orvane_getKeyPairList(\"A1\", null)")},
};

// An exception of the library ends the acquisition with a status; record and lock are as if it had not begun.
TEST_F(AcquireContext, SurvivesExceptionsOfTheLibrary) {
  CARD_DATA first = newRecord();
  EXPECT_EQ(acquire(first), 0x8010000Cu) << "only starts the monitor";
  forget();
  takeMonitorStarts();
  defineToken({.serial = "A1", .keys = {makeKey(0x11, 1)}});
  for (const LibraryFailure& row : kLibraryFailures) {
    SCOPED_TRACE(row.function);
    CARD_DATA record = newRecord();
    const auto before = membersOf(record);
    queueThrow(row.function);
    const std::string error =
        "E CardAcquireContext: unhandled exception: " + std::string(row.function) + ": exception in the token library";
    EXPECT_EQ(observe([&] { return acquire(record); }),
              (Outcome{0x80100001,
                       inOrder("D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=0",
                               "D Global library init (skip HID scan)", "orvane_init(0, null, 2)", row.trace, error)}));
    EXPECT_EQ(membersOf(record), before);
    EXPECT_EQ(takeMonitorStarts(), 0u);
    EXPECT_EQ(softtoken_queued(row.function), 0u);
  }
  CARD_DATA record = newRecord();
  EXPECT_EQ(acquire(record), 0u);
}

}  // namespace
}  // namespace orvane::test
