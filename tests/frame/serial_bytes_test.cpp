// Serials with bytes that no serial should have, from the card's reply to every place where the serial shows.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class SerialBytes : public DriverTest {
 protected:
  // A context that was acquired behind a reader whose card answers with this serial.
  CARD_DATA& openReplying(const std::string& serial) {
    startAnew({.keys = {makeKey(1, 3)}});
    resourceManager.readerName = "Brightfold Smart Token";
    resourceManager.reply.assign(serial.begin(), serial.end());
    resourceManager.reply.insert(resourceManager.reply.end(), {0x90, 0x00});
    records_.push_back(newRecord());
    records_.back().hScard = kCardHandle;
    EXPECT_EQ(acquire(records_.back()), 0u);
    return records_.back();
  }

  Bytes property(CARD_DATA& record, const wchar_t* name) {
    Bytes data(64, kPoison);
    DWORD length = kPoison32;
    EXPECT_EQ(record.pfnCardGetProperty(&record, name, data.data(), static_cast<DWORD>(data.size()), &length, 0), 0u);
    data.resize(length);
    return data;
  }

  void TearDown() override {
    for (CARD_DATA& record : records_) EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
    DriverTest::TearDown();
  }

  std::deque<CARD_DATA> records_;
};

// The library takes serials as zero-terminated texts, so it knows this one up to the NUL only; for the minidriver it is
// all of its bytes: another token than the one without a NUL, with a list and freshness of its own.
TEST_F(SerialBytes, ANulIsPartOfTheSerialButEndsItForTheLibrary) {
  const std::string serial("12\0AB", 5);
  CARD_DATA& record = openReplying(serial);
  const Lines calls = takeCalls();
  EXPECT_NE(std::find(calls.begin(), calls.end(), "orvane_initDevice(\"12\", false, null)"), calls.end());
  const Lines log = takeLog();
  EXPECT_NE(std::find(log.begin(), log.end(), "D OrvaneKey serial via APDU: " + serial), log.end());
  EXPECT_NE(std::find(log.begin(), log.end(), "D resolved serial number :: " + serial), log.end());
  EXPECT_EQ(inside(record).serialNumber, serial);
  // The size counts all bytes; the text ends at the NUL, and what is behind it stays the caller's.
  const Bytes text = property(record, CP_CARD_SERIAL_NO);
  EXPECT_EQ(text, (Bytes{'1', 0, '2', 0, 0, 0, kPoison, kPoison, kPoison, kPoison, kPoison, kPoison}));
  EXPECT_EQ(property(record, CP_CARD_GUID),
            (Bytes{'1', '2', 0, 'A', 'B', '1', '2', 0, 'A', 'B', '1', '2', 0, 'A', 'B', '1'}));
  forget();
}

// Each byte is one UTF-16 unit of the same value, and stands in the log as it is.
TEST_F(SerialBytes, BytesBeyondAsciiAreWidenedOneByOne) {
  const std::string serial = "A\x80\xFF";
  CARD_DATA& record = openReplying(serial);
  const Lines log = takeLog();
  EXPECT_NE(std::find(log.begin(), log.end(), "D resolved serial number :: " + serial), log.end());
  EXPECT_EQ(property(record, CP_CARD_SERIAL_NO), (Bytes{'A', 0, 0x80, 0, 0xFF, 0, 0, 0}));
  forget();
}

}  // namespace
}  // namespace orvane::test
