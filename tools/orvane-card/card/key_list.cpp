#include "card/key_list.h"

#include <algorithm>
#include <charconv>

#include "card/certificate_texts.h"
#include "card/key_names.h"
#include "text/style.h"
#include "text/table.h"

namespace orvane::tool {
namespace {

std::string numberOf(const ContainerRecord& record) {
  return (record.isDefault() ? "*" : "") + std::to_string(record.index + 1);
}

Json accessJson(TokenAccess access) {
  switch (access) {
    case TokenAccess::kOpen:
      return "open";
    case TokenAccess::kRefused:
      return "refused";
    default:
      return nullptr;
  }
}

Json originJson(SerialOrigin origin) {
  switch (origin) {
    case SerialOrigin::kReaderName:
      return "reader name";
    case SerialOrigin::kToken:
      return "token";
    case SerialOrigin::kPosition:
      return "position";
    default:
      return nullptr;
  }
}

}  // namespace

std::string keyTable(const std::vector<ListedKey>& keys, std::size_t width) {
  TextTable table({">Key", "~Subject", "~Use", "~Valid", "~Issuer", "Thumbprint"});
  bool hasDefault = false;
  std::string notes;
  for (const ListedKey& key : keys) {
    hasDefault = hasDefault || key.record.isDefault();
    std::vector<std::string> row = {numberOf(key.record), "", keyPurpose(key.record)};
    if (key.certificate) {
      row[1] = withoutCommands(key.certificate->subjectName);
      row.push_back(validityText(*key.certificate));
      row.push_back(withoutCommands(key.certificate->issuerName));
      row.push_back(shortThumbprint(*key.certificate));
    } else {
      row[1] = key.record.valid() ? "(no certificate)" : "(not in use)";
      if (key.record.valid())
        notes += wrapped(capitalised(keyName(key.record, keys.size())) + ": " + withoutCommands(key.problem) + ".", 0,
                         std::max(width, kTableWidth)) +
                 "\n";
    }
    table.addRow(std::move(row));
  }
  return table.text(std::max(width, kTableWidth)) + (hasDefault ? "* the default key\n" : "") + notes;
}

std::string keyDetails(const std::vector<ListedKey>& keys) {
  std::string text;
  for (const ListedKey& key : keys) {
    const ContainerRecord& record = key.record;
    text += (text.empty() ? "" : "\n") + capitalised(keyName(record, keys.size())) +
            (record.isDefault() ? ", the default key" : "") + "\n";
    if (!record.valid()) {
      text += "  not in use\n";
      continue;
    }
    std::vector<std::pair<std::string, std::string>> fields;
    if (key.certificate) {
      fields = certificateFields(*key.certificate);
    } else {
      fields.emplace_back("Certificate", "none: " + withoutCommands(key.problem));
    }
    fields.emplace_back("Key size", std::to_string(std::max(record.signatureBits, record.keyExchangeBits)) + " bits");
    fields.emplace_back("Container", std::to_string(record.index) + ", named " + withoutCommands(record.guid));
    fields.emplace_back("Certificate's file", certificateFile(record.index, record.signatureBits).name);
    for (auto& field : fields) field.first.insert(0, "  ");
    text += fieldList(fields);
  }
  return text;
}

Json keysJson(const std::vector<ListedKey>& keys) {
  Json list = Json::array();
  for (const ListedKey& key : keys) {
    const ContainerRecord& record = key.record;
    list.push_back({{"key", record.index + 1},
                    {"name", keyName(record, keys.size())},
                    {"index", record.index},
                    {"guid", record.guid},
                    {"valid", record.valid()},
                    {"default", record.isDefault()},
                    {"signatureBits", record.signatureBits},
                    {"keyExchangeBits", record.keyExchangeBits},
                    {"use", keyUse(record)},
                    {"certificate", key.certificate ? certificateJson(*key.certificate) : Json(nullptr)},
                    {"certificateError", textOrNull(key.problem)}});
  }
  return list;
}

std::string cardFileMeaning(std::string_view file, std::span<const ContainerRecord> records) {
  if (file == "cardid") return "card identifier";
  if (file == "cardcf") return "freshness numbers";
  if (file == "cmapfile") return "list of the keys";
  if (!isCertificateFile(file)) return {};
  // Listed with as many digits as it takes, read with two as well.
  const std::string_view digits = file.substr(3);
  std::size_t index = 0;
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), index);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == digits.data() + digits.size();
  if (isNumber && index < records.size()) return "certificate of " + keyName(records[index], records.size());
  return {};
}

std::string noKeysText(const TokenFacts& token) {
  if (token.access == TokenAccess::kOpen) return "The token holds no keys.";
  return accessText(token);
}

ToolError unopenedToken(const TokenFacts& token) {
  return {ExitCode::kRefused, serialText(token) + " " + accessText(token), kOpenTokenAdvice};
}

Json tokenJson(const TokenFacts& token) {
  return {{"serial", textOrNull(token.serial)},
          {"serialFrom", originJson(token.origin)},
          {"statedSerial", textOrNull(token.stated)},
          {"access", accessJson(token.access)},
          {"libraryError", token.error ? Json(*token.error) : Json(nullptr)}};
}

}  // namespace orvane::tool
