// The log's file is open elsewhere, by a viewer or a backup. Windows only: nothing else has such locks.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class LogSharing : public DriverTest {
 protected:
  // Opens the file for reading and lets others do what `share` says meanwhile.
  HANDLE openFile(DWORD share) {
    return CreateFileA(logFile().c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  DWORD query(CARD_DATA& record) {
    CARD_CAPABILITIES capabilities = {};
    return record.pfnCardQueryCapabilities(&record, &capabilities);
  }
};

TEST_F(LogSharing, AReaderThatLetsOthersWriteChangesNothing) {
  CARD_DATA& record = open();
  EXPECT_EQ(query(record), 0u);
  forget();
  const HANDLE file = openFile(FILE_SHARE_READ | FILE_SHARE_WRITE);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(query(record), 0u);
  CloseHandle(file);
  EXPECT_EQ(takeLog(), (Lines{"D CardQueryCapabilities :: LOG_FUNCTION_NAME = Entry",
                              "D CardQueryCapabilities: populated with RSA support, keygen disabled"}));
}

// Lines are lost while nobody else may write; the call goes on, and so does the log afterwards.
TEST_F(LogSharing, AReaderThatLetsNobodyWriteLosesLinesOnly) {
  CARD_DATA& record = open();
  EXPECT_EQ(query(record), 0u);
  forget();
  for (const DWORD share : {DWORD{0}, DWORD{FILE_SHARE_READ}}) {
    SCOPED_TRACE(share);
    const HANDLE file = openFile(share);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(query(record), 0u);
    CloseHandle(file);
    EXPECT_EQ(takeLog(), Lines{});
    EXPECT_EQ(query(record), 0u);
    EXPECT_EQ(takeLog(), (Lines{"D CardQueryCapabilities :: LOG_FUNCTION_NAME = Entry",
                                "D CardQueryCapabilities: populated with RSA support, keygen disabled"}));
  }
}

}  // namespace
}  // namespace orvane::test
