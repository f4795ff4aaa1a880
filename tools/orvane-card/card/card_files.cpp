#include "card/card_files.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "support/text_compare.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr std::size_t kFreshnessSize = 6;
constexpr std::size_t kRecordSize = 86;
constexpr std::size_t kRecordNameSize = 80;
constexpr std::size_t kKeyHeaderSize = 20;
constexpr std::uint8_t kPublicKeyBlob = 6;
constexpr std::uint32_t kRsaPublicMagic = 0x31415352;

ToolError damaged(const std::string& what) {
  return {ExitCode::kCheckFailed, what, "The minidriver returned data that is not of the published form."};
}

}  // namespace

CardPath parseCardPath(std::string_view text) {
  const std::size_t separator = text.find_last_of("/\\");
  CardPath path;
  path.name = separator == std::string_view::npos ? text : text.substr(separator + 1);
  if (path.name.empty()) throw ToolError(ExitCode::kUsage, "no file name in \"" + std::string(text) + "\"");
  if (separator != std::string_view::npos) {
    path.directory = text.substr(0, separator);
  } else if (!equalsIgnoreCase(path.name, "cardid") && !equalsIgnoreCase(path.name, "cardcf")) {
    path.directory = "mscp";
  }
  return path;
}

CardPath certificateFile(int container, bool signature) {
  const std::string digits = std::to_string(container);
  return {"mscp", (signature ? "ksc" : "kxc") + std::string(digits.size() < 2 ? "0" : "") + digits};
}

bool isCertificateFile(std::string_view name) { return name.starts_with("ksc") || name.starts_with("kxc"); }

Freshness decodeFreshness(ByteView data) {
  if (data.size() != kFreshnessSize)
    throw damaged("\"cardcf\" has " + std::to_string(data.size()) + " bytes instead of 6");
  return {data[0], data[1], readLittleEndian16(data, 2), readLittleEndian16(data, 4)};
}

std::string freshnessText(const Freshness& freshness) {
  return "version " + std::to_string(freshness.version) + ", PINs " + std::to_string(freshness.pins) + ", containers " +
         std::to_string(freshness.containers) + ", files " + std::to_string(freshness.files);
}

std::vector<ContainerRecord> decodeContainerMap(ByteView data) {
  if (data.size() % kRecordSize)
    throw damaged("\"cmapfile\" has " + std::to_string(data.size()) + " bytes, which is no multiple of 86");
  std::vector<ContainerRecord> records;
  for (std::size_t start = 0; start < data.size(); start += kRecordSize) {
    const ByteView bytes = data.subspan(start, kRecordSize);
    const std::string name = toUtf8(bytes.first(kRecordNameSize));
    records.push_back({static_cast<int>(records.size()), name.substr(0, name.find('\0')), bytes[80],
                       readLittleEndian16(bytes, 82), readLittleEndian16(bytes, 84)});
  }
  return records;
}

std::string keyUse(const ContainerRecord& record) {
  if (record.signatureBits && record.keyExchangeBits) return "sign+exchange";
  if (record.signatureBits) return "sign";
  return record.keyExchangeBits ? "exchange" : "-";
}

PublicKey decodePublicKey(ByteView blob) {
  if (blob.size() < kKeyHeaderSize || blob[0] != kPublicKeyBlob || readLittleEndian32(blob, 8) != kRsaPublicMagic)
    throw damaged("a public key is no RSA PUBLICKEYBLOB");
  return {readLittleEndian32(blob, 4), readLittleEndian32(blob, 12), readLittleEndian32(blob, 16),
          reversed(blob.subspan(kKeyHeaderSize))};
}

std::vector<std::string> decodeNameList(ByteView data) {
  std::vector<std::string> names;
  std::string name;
  for (const std::uint8_t byte : data) {
    if (byte) {
      name += static_cast<char>(byte);
    } else if (name.empty()) {
      break;
    } else {
      names.push_back(std::move(name));
      name.clear();
    }
  }
  return names;
}

std::string accessConditionName(std::uint32_t value) {
  constexpr std::array<std::string_view, 7> kNames = {
      "InvalidAc", "EveryoneReadUserWriteAc", "UserWriteExecuteAc", "EveryoneReadAdminWriteAc",
      "UnknownAc", "UserReadWriteAc",         "AdminReadWriteAc"};
  return value < kNames.size() ? std::string(kNames[value]) : std::to_string(value);
}

std::string isoTime(std::uint64_t fileTime) {
  constexpr std::uint64_t kTicksPerSecond = 10'000'000;
  constexpr std::chrono::sys_days kEpoch = std::chrono::year(1601) / 1 / 1;
  const std::chrono::seconds sinceEpoch(static_cast<std::int64_t>(fileTime / kTicksPerSecond));
  const auto days = std::chrono::floor<std::chrono::days>(sinceEpoch);
  const std::chrono::year_month_day date(kEpoch + days);
  const std::chrono::hh_mm_ss time(sinceEpoch - days);

  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text.data();
}

}  // namespace orvane::tool
