#include "text/bytes.h"

#include <algorithm>
#include <stdexcept>

#include "support/hex_text.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr std::size_t kBytesPerDumpLine = 16;

int digitValue(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

void appendHex(std::string& text, std::uint8_t byte) { text += hexText(&byte, 1); }

}  // namespace

std::string toHex(ByteView data, std::string_view separator) {
  std::string text;
  for (const std::uint8_t byte : data) {
    if (!text.empty()) text += separator;
    appendHex(text, byte);
  }
  return text;
}

Bytes fromHex(std::string_view text) {
  Bytes data;
  int high = -1;
  for (const char character : text) {
    if (high < 0 && (character == ' ' || character == ':' || character == '-')) continue;
    const int value = digitValue(character);
    if (value < 0) throw ToolError(ExitCode::kUsage, "not a hexadecimal number: \"" + std::string(text) + "\"");
    if (high < 0) {
      high = value;
    } else {
      data.push_back(static_cast<std::uint8_t>(high * 16 + value));
      high = -1;
    }
  }
  if (high >= 0) throw ToolError(ExitCode::kUsage, "odd number of hexadecimal digits: \"" + std::string(text) + "\"");
  return data;
}

std::string hexDump(ByteView data) {
  std::string text;
  for (std::size_t offset = 0; offset < data.size(); offset += kBytesPerDumpLine) {
    const ByteView line = data.subspan(offset, std::min(kBytesPerDumpLine, data.size() - offset));
    for (int shift = 24; shift >= 0; shift -= 8) appendHex(text, static_cast<std::uint8_t>(offset >> shift));
    text += ' ';
    for (std::size_t i = 0; i < kBytesPerDumpLine; ++i) {
      text += i == kBytesPerDumpLine / 2 ? "  " : " ";
      if (i < line.size()) {
        appendHex(text, line[i]);
      } else {
        text += "  ";
      }
    }
    text += "  |" + printableAscii(line) + "|\n";
  }
  return text;
}

std::string printableAscii(ByteView data) {
  std::string text;
  for (const std::uint8_t byte : data) text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
  return text;
}

std::uint16_t readLittleEndian16(ByteView data, std::size_t offset) {
  if (offset > data.size() || data.size() - offset < 2) throw std::out_of_range("16-bit value past the end");
  return static_cast<std::uint16_t>(data[offset] | data[offset + 1] << 8);
}

std::uint32_t readLittleEndian32(ByteView data, std::size_t offset) {
  if (offset > data.size() || data.size() - offset < 4) throw std::out_of_range("32-bit value past the end");
  return static_cast<std::uint32_t>(readLittleEndian16(data, offset)) |
         static_cast<std::uint32_t>(readLittleEndian16(data, offset + 2)) << 16;
}

Bytes reversed(ByteView data) { return {data.rbegin(), data.rend()}; }

}  // namespace orvane::tool
