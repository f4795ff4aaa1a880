// From a reader name or a reply to a serial.
#include "minidriver/frame/serial_resolution.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

TEST(SerialResolution, ReaderIndex) {
  const struct {
    std::string_view name;
    std::optional<std::int32_t> index;
  } rows[] = {
      {"", std::nullopt},
      {"Reader", std::nullopt},
      {"1", std::nullopt},
      {"Reader 1", 1},
      {"Reader 00 12", 12},
      {" 3", 3},
      {"Reader ", std::nullopt},
      {"Reader 1 ", std::nullopt},
      {"Reader 1a", std::nullopt},
      {"Reader a1", std::nullopt},
      {"Reader -1", std::nullopt},
      {"Reader +1", std::nullopt},
      {"Reader\t1", std::nullopt},
      {"Reader 2147483647", 2147483647},
      {"Reader 0000000000000001", 1},
      // The name ends before more digits.
      {std::string_view("Reader 12", 8), 1},
  };
  for (const auto& row : rows) EXPECT_EQ(readerIndexOf(row.name), row.index) << row.name;
  for (const char* const name : {"Reader 2147483648", "Reader 99999999999999999999"}) {
    EXPECT_THROW(readerIndexOf(name), std::out_of_range) << name;
  }
}

TEST(SerialResolution, SerialInTheReaderName) {
  const struct {
    std::string_view name;
    std::optional<std::string> serial;
  } rows[] = {
      {"", std::nullopt},
      {"A", std::nullopt},
      {"A B", std::nullopt},
      {"A 1", std::nullopt},
      {"A B C", std::nullopt},
      {"A B 0", "0"},
      {"A B x1y", "x1y"},
      {"A B 12 3", "12"},
      {"A B C 4", std::nullopt},
      {"A  5", "5"},
      {"  7", "7"},
      {"A B ", std::nullopt},
      {"A B  1", std::nullopt},
      {"A\tB\t1", std::nullopt},
  };
  for (const auto& row : rows) EXPECT_EQ(serialInReaderName(row.name), row.serial) << row.name;
}

TEST(SerialResolution, Commands) {
  for (const char* const name : {"OrvaneDSC", "a OrvaneDSC", "OrvaneDSC b", "xOrvaneDSCx"}) {
    EXPECT_EQ(serialCommandFor(name), SerialCommand::kSle) << name;
  }
  for (const char* const name : {"", "OrvaneDS", "OrvaneDsc", "ORVANEDSC", "Orvane DSC", "Smart Token"}) {
    EXPECT_EQ(serialCommandFor(name), SerialCommand::kOrvaneKey) << name;
  }
  const auto sle = serialCommandBytes(SerialCommand::kSle);
  EXPECT_EQ(Bytes(sle.begin(), sle.end()), (Bytes{0xFF, 0xFF, 0x00, 0xD5, 0x00, 0x00, 0x00}));
  const auto key = serialCommandBytes(SerialCommand::kOrvaneKey);
  EXPECT_EQ(Bytes(key.begin(), key.end()), (Bytes{0xFF, 0xFF, 0x00, 0xA2, 0x00}));
}

TEST(SerialResolution, Replies) {
  const struct {
    const char* name;
    Bytes reply;
    std::optional<std::string> sle;
    std::optional<std::string> key;
  } rows[] = {
      {"empty", {}, std::nullopt, std::nullopt},
      {"one byte", {0x90}, std::nullopt, std::nullopt},
      {"a status word alone", {0x90, 0x00}, std::nullopt, std::nullopt},
      {"one character", {'A', 0x90, 0x00}, "A", "A"},
      {"several", {'A', '1', 'b', 0x90, 0x00}, "A1b", "A1b"},
      {"another second byte", {'A', 0x90, 0x01}, std::nullopt, "A"},
      {"another first byte", {'A', 0x6A, 0x00}, std::nullopt, "A"},
      {"a failing status", {'A', 'B', 'C', 0x6A, 0x82}, std::nullopt, "ABC"},
      {"a status word in the middle",
       {'A', 0x90, 0x00, 'B', 0x90, 0x00},
       std::string("A\x90\0B", 4),
       std::string("A\x90\0B", 4)},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(serialInReply(SerialCommand::kSle, row.reply), row.sle) << row.name;
    EXPECT_EQ(serialInReply(SerialCommand::kOrvaneKey, row.reply), row.key) << row.name;
  }
}

}  // namespace
}  // namespace orvane::test
