#include "minidriver/frame/serial_resolution.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace orvane {
namespace {

constexpr std::uint8_t kSleCommand[] = {0xFF, 0xFF, 0x00, 0xD5, 0x00, 0x00, 0x00};
constexpr std::uint8_t kOrvaneKeyCommand[] = {0xFF, 0xFF, 0x00, 0xA2, 0x00};

constexpr std::size_t kStatusWordSize = 2;

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

}  // namespace

std::span<const std::uint8_t> serialCommandBytes(SerialCommand command) noexcept {
  if (command == SerialCommand::kSle) return kSleCommand;
  return kOrvaneKeyCommand;
}

std::optional<std::int32_t> readerIndexOf(std::string_view readerName) {
  const std::size_t blank = readerName.rfind(' ');
  if (blank == std::string_view::npos) return std::nullopt;
  const std::string_view digits = readerName.substr(blank + 1);
  if (digits.empty() || !std::all_of(digits.begin(), digits.end(), isDigit)) return std::nullopt;
  std::int32_t index = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), index);
  if (result.ec != std::errc()) throw std::out_of_range("reader index out of range");
  return index;
}

std::optional<std::string> serialInReaderName(std::string_view readerName) {
  for (int piece = 0; piece < 2; ++piece) {
    const std::size_t blank = readerName.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    readerName.remove_prefix(blank + 1);
  }
  const std::string_view third = readerName.substr(0, readerName.find(' '));
  if (std::none_of(third.begin(), third.end(), isDigit)) return std::nullopt;
  return std::string(third);
}

SerialCommand serialCommandFor(std::string_view readerName) noexcept {
  const bool isSle = readerName.size() >= 9 && readerName.find("OrvaneDSC") != std::string_view::npos;
  return isSle ? SerialCommand::kSle : SerialCommand::kOrvaneKey;
}

std::optional<std::string> serialInReply(SerialCommand command, std::span<const std::uint8_t> reply) {
  if (reply.size() <= kStatusWordSize) return std::nullopt;
  const std::size_t length = reply.size() - kStatusWordSize;
  if (command == SerialCommand::kSle && (reply[length] != 0x90 || reply[length + 1] != 0x00)) return std::nullopt;
  return std::string(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(length));
}

}  // namespace orvane
