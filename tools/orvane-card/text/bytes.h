// Byte strings as the tool reads them from the card and shows them.
#ifndef ORVANE_TOOL_TEXT_BYTES_H
#define ORVANE_TOOL_TEXT_BYTES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// toHex writes two upper-case digits a byte, with `separator` between bytes.
std::string toHex(ByteView data, std::string_view separator = {});

// hexNumber writes a number as `digits` upper-case digits, at most eight.
std::string hexNumber(std::uint32_t number, std::size_t digits);

// isHexDigit is true for the digits of hexadecimal numbers, in either case.
bool isHexDigit(char unit);

// fromHex reads pairs of hexadecimal digits in either case; blanks, colons and dashes between pairs are skipped.
// Throws ToolError (ExitCode::kUsage) for any other character or an odd number of digits.
Bytes fromHex(std::string_view text);

// hexDump writes lines of sixteen bytes: offset, hexadecimal digits, printable ASCII. Every line ends in a newline; no
// data gives no line.
std::string hexDump(ByteView data);

// printableAscii gives the characters of `data` with a dot for each one that is not printable ASCII.
std::string printableAscii(ByteView data);

// readLittleEndian16 and readLittleEndian32 read at `offset`; throw std::out_of_range past the end.
std::uint16_t readLittleEndian16(ByteView data, std::size_t offset);
std::uint32_t readLittleEndian32(ByteView data, std::size_t offset);

// joined puts together the halves in which the operating system gives numbers of 64 bits.
constexpr std::uint64_t joined(std::uint32_t high, std::uint32_t low) { return std::uint64_t{high} << 32 | low; }

// byteOrderMarkSize gives the size of the mark that says that a text is in UTF-8, when it begins with one, else 0.
std::size_t byteOrderMarkSize(std::string_view text);

// withoutByteOrderMark gives the bytes behind that mark.
ByteView withoutByteOrderMark(ByteView text);

// reversed gives the bytes in the opposite order: the interface's numbers start with the least significant byte, the
// files that other programs read start with the most significant one.
Bytes reversed(ByteView data);

}  // namespace orvane::tool

#endif
