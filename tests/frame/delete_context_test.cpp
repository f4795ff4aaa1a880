// CardDeleteContext, also while another call works on the same record.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "cache/process_state.h"
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

const Lines kNothingToDelete = {"D CardDeleteContext :: LOG_FUNCTION_NAME = Entry",
                                "D pcard data or vendor specific is null"};
const Lines kDeleted = {"D CardDeleteContext :: LOG_FUNCTION_NAME = Entry", "D contaier list clear :: 0",
                        "D Delete Context Success"};

class DeleteContext : public DriverTest {
 protected:
  Outcome deleteContext(CARD_DATA* record) {
    const PFN_CARD_DELETE_CONTEXT cardDeleteContext = deleteContextExport();
    return observe([&] { return cardDeleteContext(record); });
  }
};

TEST_F(DeleteContext, AcceptsWhatHasNoContext) {
  EXPECT_EQ(deleteContext(nullptr), (Outcome{0, kNothingToDelete}));
  CARD_DATA record = newRecord();
  record.pvVendorSpecific = nullptr;
  const Bytes before = bytesOf(record);
  EXPECT_EQ(deleteContext(&record), (Outcome{0, kNothingToDelete}));
  EXPECT_EQ(bytesOf(record), before);
}

TEST_F(DeleteContext, EmptiesTheRecordAndNothingElse) {
  CARD_DATA& record = open();
  CARD_DATA& other = openContext();
  CARD_DATA expected = withoutContext(record);
  const Bytes cardCfBefore = cardCf(other);
  EXPECT_EQ(deleteContext(&record), (Outcome{0, kDeleted}));
  EXPECT_EQ(bytesOf(record), bytesOf(expected));
  EXPECT_EQ(deleteContext(&record), (Outcome{0, kNothingToDelete}));
  EXPECT_EQ(bytesOf(record), bytesOf(expected));
  // Token and process keep what they know.
  EXPECT_EQ(cardCf(other), cardCfBefore);
  EXPECT_EQ(takeAllocations(), (std::vector<std::size_t>{6, 6}));
}

TEST_F(DeleteContext, KeepsTheTokenInitialisedAndItsPinCached) {
  CARD_DATA& record = open();
  authenticate(record);
  EXPECT_EQ(deleteContext(&record).status, 0u);
  CARD_DATA next = newRecord();
  const Outcome outcome = observe([&] { return acquire(next); });
  ASSERT_EQ(outcome.status, 0u);
  EXPECT_EQ(linesWith("orvane_", outcome.trace),
            (Lines{"orvane_init(0, null, 2)", "orvane_getConnectedDeviceList(false, null)",
                   "orvane_clearExternalSmartcardHandle()", "orvane_getKeyPairList(\"0012AB\", null)"}));
  EXPECT_EQ(cachedPin(next), kUserPin);
  EXPECT_EQ(deleteContext(&next).status, 0u);
}

// Without a record a token's PIN counter reads as 1, with one it starts from 0.
TEST_F(DeleteContext, MakesNoRecordForASerialWithoutOne) {
  CARD_DATA& record = open();
  CARD_DATA& other = openContext();
  setSerial(record, "UNKNOWN");
  setSerial(other, "UNKNOWN");
  EXPECT_EQ(cardCf(other), (Bytes{0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(deleteContext(&record), (Outcome{0, kDeleted}));
  EXPECT_EQ(cardCf(other), (Bytes{0, 1, 0, 0, 0, 0}));
}

TEST_F(DeleteContext, LeavesNothingForLaterCalls) {
  CARD_DATA& record = open();
  EXPECT_EQ(deleteContext(&record).status, 0u);
  char name[] = "cardcf";
  PBYTE data = nullptr;
  DWORD size = 0;
  EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, name, 0, &data, &size), code(ERROR_INVALID_PARAMETER));
  CARD_DATA& again = record;
  EXPECT_EQ(acquire(again), 0u);
  EXPECT_EQ(deleteContext(&again).status, 0u);
}

// The calls that a running operation can be held in, each by its library call.
struct RunningCall {
  const char* name;
  const char* function;
  DWORD (*run)(CARD_DATA& record);
  bool isAuthenticated;  // before it
};

DWORD signHash(CARD_DATA& record) {
  Bytes hash(32, 0);
  CARD_SIGNING_INFO info = signingOf(hash);
  const DWORD status = record.pfnCardSignData(&record, &info);
  if (status == SCARD_S_SUCCESS) {
    // 01 02 03 ... from the token, least significant byte first for the caller.
    EXPECT_EQ(info.cbSignedData, 256u);
    EXPECT_EQ(info.pbSignedData[255], 1);
    EXPECT_EQ(info.pbSignedData[254], 2);
  }
  if (info.pbSignedData != nullptr) record.pfnCspFree(info.pbSignedData);
  return status;
}

DWORD decryptBlock(CARD_DATA& record) {
  Bytes block(256, 0);
  CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
  info.dwPaddingType = CARD_PADDING_PKCS1;
  return record.pfnCardRSADecrypt(&record, &info);
}

DWORD validatePin(CARD_DATA& record) {
  PinBytes pin{std::string(kUserPin)};
  return record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr, nullptr);
}

DWORD readCertificate(CARD_DATA& record) {
  char directory[] = "mscp";
  char name[] = "ksc0";
  PBYTE data = nullptr;
  DWORD size = 0;
  const DWORD status = record.pfnCardReadFile(&record, directory, name, 0, &data, &size);
  if (status == SCARD_S_SUCCESS) {
    EXPECT_EQ(size, 100u);
    EXPECT_EQ(data[99], 100);
    record.pfnCspFree(data);
  }
  return status;
}

const RunningCall kRunningCalls[] = {
    {"a signature", "orvane_signHash", signHash, true},
    {"a decryption", "orvane_decrypt", decryptBlock, true},
    {"a PIN validation", "orvane_validatePassword", validatePin, false},
    {"a certificate", "orvane_findCertificateForKey", readCertificate, true},
};

// The record is empty at once; the call that is under way ends as if nothing had happened, and nobody waits.
TEST_F(DeleteContext, MayComeWhileACallIsRunning) {
  for (const RunningCall& row : kRunningCalls) {
    SCOPED_TRACE(row.name);
    startAnew({.keys = {makeKey(1, 3)}, .certificateLength = 100});
    CARD_DATA& record = openContext();
    if (row.isAuthenticated) authenticate(record);
    softtoken_gate(row.function, 1);
    DWORD status = kPoison32;
    std::thread call([&] { status = row.run(record); });
    EXPECT_EQ(softtoken_wait_held(row.function, 120000), 1);
    EXPECT_EQ(deleteContext(&record), (Outcome{0, kDeleted}));
    EXPECT_EQ(record.pvVendorSpecific, nullptr);
    EXPECT_EQ(deleteContext(&record), (Outcome{0, kNothingToDelete}));
    softtoken_gate(row.function, 0);
    call.join();
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(record.pvVendorSpecific, nullptr);
    // The record can be used for a new context.
    record.hScard = 0;
    EXPECT_EQ(acquire(record), 0u);
    EXPECT_EQ(deleteContext(&record), (Outcome{0, kDeleted}));
  }
}

// A deleted context counts as gone at once: the end of its last call must not touch an acquisition that began after the
// deletion, which would then not notice that the number of keys has changed.
TEST_F(DeleteContext, IsOverForTheTokenBeforeTheRunningCallEnds) {
  CARD_DATA& record = open();
  softtoken_gate("orvane_validatePassword", 1);
  PinBytes pin{std::string(kUserPin)};
  DWORD attempts = 0;
  std::thread call([&] {
    EXPECT_EQ(record.pfnCardAuthenticatePin(&record, const_cast<LPWSTR>(L"user"), pin.data(), pin.size(), &attempts),
              0u);
  });
  EXPECT_EQ(softtoken_wait_held("orvane_validatePassword", 120000), 1);
  EXPECT_EQ(deleteContext(&record), (Outcome{0, kDeleted}));
  const OrvaneKeyPair another = makeKey(7, 1);
  ASSERT_EQ(softtoken_add_key(kSerial, &another), 1);
  // A gate lets the thread pass that closes it.
  std::thread([] { softtoken_gate("orvane_getKeyPairList", 1); }).join();
  std::thread end([&] {
    EXPECT_EQ(softtoken_wait_held("orvane_getKeyPairList", 120000), 1);
    softtoken_gate("orvane_validatePassword", 0);
    call.join();
    takeLog();
    softtoken_gate("orvane_getKeyPairList", 0);
  });
  CARD_DATA next = newRecord();
  EXPECT_EQ(acquire(next), 0u);
  end.join();
  const Lines log = takeLog();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(Lines(log.begin(), log.begin() + 2), (Lines{"D older key count 1", "D new key count 2"}));
  EXPECT_EQ(deleteContext(&next).status, 0u);
}

#ifndef _WIN32

// Threads that are no more may have held any lock, so nothing is asked of anybody. In a process of its own; on Windows
// the unload tests end real ones.
TEST_F(DeleteContext, OnlyEmptiesTheRecordWhileTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EQ(deleteContext(nullptr), (Outcome{0, kNothingToDelete})) << "as long as it goes on";
  EXPECT_EXIT(
      {
        CARD_DATA& record = open();
        const CARD_DATA expected = withoutContext(record);
        EXPECT_FALSE(isProcessEnding());
        markProcessEnding();
        EXPECT_TRUE(isProcessEnding());
        EXPECT_EQ(deleteContext(&record), (Outcome{0, {}}));
        EXPECT_EQ(bytesOf(record), bytesOf(expected));
        EXPECT_EQ(deleteContext(nullptr), (Outcome{0, {}}));
        std::filesystem::remove_all(tempFolder());
        std::_Exit(HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

#endif

}  // namespace
}  // namespace orvane::test
