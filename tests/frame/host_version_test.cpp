// Hosts of every age: whatever version of the interface the record states, it is granted version 7 in full.
#include <cstring>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

// The slots in the order of the record, by the version that brought them.
const Lines kSlotsOfFour = {"CardDeleteContext",    "CardQueryCapabilities",
                            "CardDeleteContainer",  "CardCreateContainer",
                            "CardGetContainerInfo", "CardAuthenticatePin",
                            "CardGetChallenge",     "CardAuthenticateChallenge",
                            "CardUnblockPin",       "CardChangeAuthenticator",
                            "CardDeauthenticate",   "CardCreateDirectory",
                            "CardDeleteDirectory",  "CardCreateFile",
                            "CardReadFile",         "CardWriteFile",
                            "CardDeleteFile",       "CardEnumFiles",
                            "CardGetFileInfo",      "CardQueryFreeSpace",
                            "CardQueryKeySizes",    "CardSignData",
                            "CardRSADecrypt",       "CardConstructDHAgreement"};
const Lines kSlotsSinceFive = {"CardDeriveKey", "CardDestroyDHAgreement"};
const Lines kSlotsSinceSix = {"CardGetChallengeEx",   "CardAuthenticateEx",       "CardChangeAuthenticatorEx",
                              "CardDeauthenticateEx", "CardGetContainerProperty", "CardSetContainerProperty",
                              "CardGetProperty",      "CardSetProperty"};
const Lines kSlotsSinceSeven = {
    "MDImportSessionKey",       "MDEncryptData",        "CardImportSessionKey", "CardGetSharedKeyHandle",
    "CardGetAlgorithmProperty", "CardGetKeyProperty",   "CardSetKeyProperty",   "CardDestroyKey",
    "CardProcessEncryptedData", "CardCreateContainerEx"};
const Lines kSlotsAfterFive = concat(kSlotsSinceSix, kSlotsSinceSeven);
const Lines kSlotsAfterFour = concat(kSlotsSinceFive, kSlotsAfterFive);
const Lines kAllSlots = concat(kSlotsOfFour, kSlotsAfterFour);

struct Host {
  DWORD version;
  // The bytes of the record in the interface of that version, and the slots that are filled behind them. Versions that
  // nobody published count as version 7.
  std::size_t ownSize = sizeof(CARD_DATA);
  Lines slotsBeyond = {};
  // Whether its own version makes it use requests of version 2.
  bool isHeldToTwo = false;
};

const Host kHosts[] = {
    {.version = 0},
    {.version = 1},
    {.version = 2},
    {.version = 3},
    {.version = 4, .ownSize = 328, .slotsBeyond = kSlotsAfterFour},
    {.version = 5, .ownSize = 352, .slotsBeyond = kSlotsAfterFive},
    {.version = 6, .ownSize = 416, .slotsBeyond = kSlotsSinceSeven},
    {.version = 7, .isHeldToTwo = true},
    {.version = 8},
    {.version = 9},
    {.version = 0xFFFFFFFF},
};

// A record of full size in the memory of a host, with something else of the host's behind it.
struct HostMemory {
  CARD_DATA record;
  BYTE behind[64];
};

// What an acquisition logs once the process knows the token.
const Lines kAcquisition = {"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry",
                            "D dwFlags=0",
                            "D Global library init (skip HID scan)",
                            "D Monitor thread already running, not starting again.",
                            "D resolved serial number :: 0012AB",
                            "D Using serial=0012AB for hScard=0",
                            "D older key count 1",
                            "D guidAscii (credential id ) :: 01010101010101010101010101010101",
                            "D key usage :: 3",
                            "D CardAcquireContext completed successfully"};

class HostVersion : public DriverTest {
 protected:
  HostMemory memoryOf(const Host& host) {
    HostMemory memory;
    std::memset(&memory, kPoison, sizeof(memory));
    memory.record = newRecord();
    memory.record.dwVersion = host.version;
    return memory;
  }

  // The entry points that stand in the record from this offset on, in their order.
  Lines slotsFrom(const CARD_DATA& record, std::size_t offset) {
    Lines names;
    for (; offset < sizeof(record); offset += sizeof(void*)) {
      void* function = nullptr;
      std::memcpy(&function, reinterpret_cast<const unsigned char*>(&record) + offset, sizeof(function));
      for (const std::string& name : kAllSlots) {
        if (function == exportNamed(name.c_str())) names.push_back(name);
      }
    }
    return names;
  }
};

TEST_F(HostVersion, IsNeverRefusedAndGetsEverySlotOfSeven) {
  open();
  for (const Host& host : kHosts) {
    SCOPED_TRACE(host.version);
    HostMemory memory = memoryOf(host);
    const Bytes behind = bytesOf(memory.behind);
    EXPECT_EQ(acquire(memory.record), 0u);
    EXPECT_EQ(takeLog(), kAcquisition);
    EXPECT_EQ(memory.record.dwVersion, 7u);
    EXPECT_EQ(slotsFrom(memory.record, 0), kAllSlots);
    EXPECT_EQ(slotsFrom(memory.record, host.ownSize), host.slotsBeyond);
    EXPECT_EQ(bytesOf(memory.behind), behind);
    EXPECT_EQ(memory.record.pfnCardDeleteContext(&memory.record), 0u);
    forget();
  }
}

// One call through a slot of each version, and the newest slot of all.
TEST_F(HostVersion, WorksThroughTheTableAsWithSeven) {
  open();
  for (const Host& host : kHosts) {
    SCOPED_TRACE(host.version);
    HostMemory memory = memoryOf(host);
    CARD_DATA& record = memory.record;
    acquireQuietly(record);
    record.hScard = kCardHandle;

    char cardId[] = "cardid";
    PBYTE data = nullptr;
    DWORD size = kPoison32;
    EXPECT_EQ(observe([&] { return record.pfnCardReadFile(&record, nullptr, cardId, 0, &data, &size); }),
              (Outcome{0,
                       {"D CardReadFile :: LOG_FUNCTION_NAME = Entry", "D CardReadFile filename: cardid", alloc(16),
                        "D CardReadFile: CardId returned for serial=[0012AB] len=6"}}));
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(takeBuffer(data, 16),
              (Bytes{'0', '0', '1', '2', 'A', 'B', '0', '0', '1', '2', 'A', 'B', '0', '0', '1', '2'}));

    EXPECT_EQ(observe([&] { return record.pfnCardDestroyDHAgreement(&record, 0, 0); }),
              (Outcome{code(SCARD_E_UNSUPPORTED_FEATURE), {"D CardDestroyDHAgreement :: LOG_FUNCTION_NAME = Entry"}}));

    DWORD cacheMode = kPoison32;
    size = kPoison32;
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetProperty(&record, CP_CARD_CACHE_MODE, reinterpret_cast<PBYTE>(&cacheMode),
                                                 sizeof(cacheMode), &size, 0);
              }),
              (Outcome{0,
                       {"D CardGetProperty :: LOG_FUNCTION_NAME = Entry", "D Property = CP_CARD_CACHE_MODE",
                        "D CP_CARD_CACHE_MODE: returning CP_CACHE_MODE_SESSION_ONLY mode"}}));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(cacheMode, DWORD{CP_CACHE_MODE_SESSION_ONLY});

    EXPECT_EQ(observe([&] { return record.pfnCardCreateContainerEx(&record, 0, 0, 0, 0, nullptr, 0); }),
              (Outcome{code(SCARD_E_UNSUPPORTED_FEATURE), {"D CardCreateContainerEx :: LOG_FUNCTION_NAME = Entry"}}));

    EXPECT_EQ(observe([&] { return record.pfnCardDeleteContext(&record); }),
              (Outcome{0,
                       {"D CardDeleteContext :: LOG_FUNCTION_NAME = Entry", "D contaier list clear :: 0",
                        "D Delete Context Success"}}));
    EXPECT_EQ(record.pvVendorSpecific, nullptr);
    EXPECT_EQ(record.dwVersion, 7u);
    EXPECT_EQ(slotsFrom(record, 0), kAllSlots);
  }
}

// Decryption alone looks at the version in the record. That is the granted one, so a host that still makes requests of
// version 1 is refused until it puts its own version back.
TEST_F(HostVersion, OldDecryptionRequestsNeedTheHostsOwnVersion) {
  open();
  const Lines begun = {"D CardRSADecrypt :: LOG_FUNCTION_NAME = Entry", "D CardRSADecrypt: PaddingType=PKCS1"};
  const Outcome refused{1306, concat(begun, {"E CardRSADecrypt: version mismatch"})};
  const Outcome decrypted{
      0, inOrder(begun, "D CardRSADecrypt: containerIndex=0, dwKeySpec=1", "D CardRSADecrypt: credentialId=" + idOf(1),
                 withHandle("orvane_decrypt(\"0012AB\", " + idOf(1) + ", \"\", 0504030201, 5, false, null)"),
                 "D CardRSADecrypt: decryption successful, length=3")};
  for (const Host& host : kHosts) {
    SCOPED_TRACE(host.version);
    HostMemory memory = memoryOf(host);
    CARD_DATA& record = memory.record;
    acquireQuietly(record);
    record.hScard = kCardHandle;
    Bytes block = {1, 2, 3, 4, 5};
    auto request = poisoned<CARD_RSA_DECRYPT_INFO>();
    request.dwVersion = 1;
    request.bContainerIndex = 0;
    request.dwKeySpec = AT_KEYEXCHANGE;
    request.pbData = block.data();
    request.cbData = static_cast<DWORD>(block.size());
    request.dwPaddingType = CARD_PADDING_PKCS1;

    const Bytes unchanged = bytesOf(request);
    EXPECT_EQ(observe([&] { return record.pfnCardRSADecrypt(&record, &request); }), refused);
    EXPECT_EQ(bytesOf(request), unchanged);
    EXPECT_EQ(block, (Bytes{1, 2, 3, 4, 5}));

    record.dwVersion = host.version;
    if (!host.isHeldToTwo) queueResult("orvane_decrypt", 0, kSofttokenKeep, 3, {7, 8, 9});
    EXPECT_EQ(observe([&] { return record.pfnCardRSADecrypt(&record, &request); }),
              host.isHeldToTwo ? refused : decrypted);
    EXPECT_EQ(request.cbData, host.isHeldToTwo ? 5u : 3u);
    EXPECT_EQ(block, (host.isHeldToTwo ? Bytes{1, 2, 3, 4, 5} : Bytes{9, 8, 7, 4, 5}));
    EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
  }
}

}  // namespace
}  // namespace orvane::test
