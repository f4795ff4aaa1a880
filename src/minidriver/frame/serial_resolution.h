// Pure decisions on the way from a reader to the serial of the token in it.
#ifndef ORVANE_MINIDRIVER_FRAME_SERIAL_RESOLUTION_H
#define ORVANE_MINIDRIVER_FRAME_SERIAL_RESOLUTION_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace orvane {

// The two commands that ask a token for its serial.
enum class SerialCommand { kSle, kOrvaneKey };

// serialCommandBytes returns the command APDU: FF FF 00 D5 00 00 00 or FF FF 00 A2 00.
std::span<const std::uint8_t> serialCommandBytes(SerialCommand command) noexcept;

// readerIndexOf returns the decimal number after the last blank of a reader name ("Reader 00 1" gives 1), or no value
// when there is no blank or something else follows it. Throws std::out_of_range when the number exceeds 32 signed bits.
std::optional<std::int32_t> readerIndexOf(std::string_view readerName);

// serialInReaderName splits the name at every single blank (empty pieces count) and returns the third piece if it holds
// at least one decimal digit.
std::optional<std::string> serialInReaderName(std::string_view readerName);

// serialCommandFor chooses the command by the reader name.
SerialCommand serialCommandFor(std::string_view readerName) noexcept;

// serialInReply returns the serial in a reply to `command`: everything before the two bytes of the status word. The SLE
// reply counts only with the status 90 00 and at least 3 bytes; of the other one the status is deliberately not looked
// at, and more than 2 bytes are enough. No value when the reply does not count.
std::optional<std::string> serialInReply(SerialCommand command, std::span<const std::uint8_t> reply);

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_SERIAL_RESOLUTION_H
