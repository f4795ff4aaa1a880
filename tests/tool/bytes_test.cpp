#include "text/bytes.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tool_error.h"

namespace orvane::tool {
namespace {

TEST(ToolBytes, ToHexWritesUpperCaseDigitsWithTheSeparatorBetween) {
  const Bytes data = {0x00, 0x3B, 0xAF};
  EXPECT_EQ(toHex(data), "003BAF");
  EXPECT_EQ(toHex(data, " "), "00 3B AF");
  EXPECT_EQ(toHex({}, " "), "");
}

TEST(ToolBytes, HexNumberHasItsDigits) {
  EXPECT_EQ(hexNumber(0x8010006B, 8), "8010006B");
  EXPECT_EQ(hexNumber(0xAB, 8), "000000AB");
  EXPECT_EQ(hexNumber(0x14C, 4), "014C");
}

TEST(ToolBytes, JoinedPutsTheHighHalfFirst) { EXPECT_EQ(joined(0x80000001, 0xFFFFFFFE), 0x80000001FFFFFFFEU); }

TEST(ToolBytes, FromHexReadsPairsInEitherCaseWithSeparators) {
  struct Case {
    const char* text;
    Bytes bytes;
  };
  const Case cases[] = {
      {"", {}}, {"00", {0}}, {"3b8E", {0x3B, 0x8E}}, {"3B 8E:80-01", {0x3B, 0x8E, 0x80, 0x01}}, {" 0F ", {0x0F}},
  };
  for (const Case& row : cases) EXPECT_EQ(fromHex(row.text), row.bytes) << row.text;
}

TEST(ToolBytes, FromHexRefusesAnythingElseAsAWrongCommandLine) {
  for (const char* text : {"0", "0G", "0 0", "0x00", "00 0", "--0-"}) {
    try {
      fromHex(text);
      ADD_FAILURE() << "accepted " << text;
    } catch (const ToolError& error) {
      EXPECT_EQ(error.exitCode(), ExitCode::kUsage) << text;
    }
  }
}

TEST(ToolBytes, HexDumpShowsOffsetDigitsAndCharacters) {
  Bytes data(18);
  std::iota(data.begin(), data.end(), std::uint8_t{0x3C});
  EXPECT_EQ(hexDump(data),
            "00000000  3C 3D 3E 3F 40 41 42 43  44 45 46 47 48 49 4A 4B  |<=>?@ABCDEFGHIJK|\n"
            "00000010  4C 4D                                             |LM|\n");
  EXPECT_EQ(hexDump({}), "");
}

TEST(ToolBytes, PrintableAsciiReplacesTheRest) {
  const Bytes data = {0x1F, 0x20, 0x41, 0x7E, 0x7F, 0xFF};
  EXPECT_EQ(printableAscii(data), ". A~..");
}

TEST(ToolBytes, LittleEndianReadersStopAtTheEnd) {
  const Bytes data = {0x78, 0x56, 0x34, 0x92};
  EXPECT_EQ(readLittleEndian16(data, 0), 0x5678);
  EXPECT_EQ(readLittleEndian16(data, 2), 0x9234);
  EXPECT_EQ(readLittleEndian32(data, 0), 0x92345678U);
  EXPECT_THROW(readLittleEndian16(data, 3), std::out_of_range);
  EXPECT_THROW(readLittleEndian32(data, 1), std::out_of_range);
  EXPECT_THROW(readLittleEndian32(data, static_cast<std::size_t>(-1)), std::out_of_range);
}

TEST(ToolBytes, ReversedTurnsTheOrderRound) {
  EXPECT_EQ(reversed(Bytes{1, 2, 3}), (Bytes{3, 2, 1}));
  EXPECT_EQ(reversed(Bytes{}), Bytes{});
}

TEST(ToolBytes, ByteOrderMarkStandsAtTheBeginningOnly) {
  EXPECT_EQ(byteOrderMarkSize("\xEF\xBB\xBF"
                              "1234"),
            3U);
  EXPECT_EQ(byteOrderMarkSize("\xEF\xBB\xBF"), 3U);
  EXPECT_EQ(byteOrderMarkSize("\xEF\xBB"), 0U);
  EXPECT_EQ(byteOrderMarkSize("1234\xEF\xBB\xBF"), 0U);
  EXPECT_EQ(byteOrderMarkSize(""), 0U);
  const Bytes marked = {0xEF, 0xBB, 0xBF, 0x31};
  EXPECT_EQ(withoutByteOrderMark(marked).size(), 1U);
  EXPECT_EQ(withoutByteOrderMark(ByteView(marked).subspan(3)).size(), 1U);
}

}  // namespace
}  // namespace orvane::tool
