// The commands that show everything the minidriver says: files, props, containers.
#include "certificate.h"
#include "commands.h"
#include "core/properties.h"
#include "core/status_names.h"
#include "core/text_table.h"
#include "core/tool_error.h"
#include "core/utf.h"

namespace orvane::tool {
namespace {

// The number of bytes that reading a file gives, or the status that it gives instead.
Json readSize(CardSession& card, const CardPath& path) {
  try {
    return card.readFile(path).size();
  } catch (const ToolError& error) {
    return error.status() ? Json(statusLabel(*error.status())) : Json(error.what());
  }
}

std::string cell(const Json& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

Json blobJson(const Bytes& blob) {
  if (blob.empty()) return nullptr;
  const PublicKey key = decodePublicKey(blob);
  return {
      {"bits", key.bits}, {"exponent", key.exponent}, {"algorithm", key.algorithm}, {"modulus", toHex(key.modulus)}};
}

// What a comparison of a container's key with its certificate gave.
enum class Match { kNothingToCompare, kSame, kDifferent };

Match compare(const Bytes& blob, const std::optional<PublicKey>& certified) {
  if (blob.empty() || !certified) return Match::kNothingToCompare;
  const PublicKey key = decodePublicKey(blob);
  const bool same = key.modulus == certified->modulus && key.exponent == certified->exponent;
  return same ? Match::kSame : Match::kDifferent;
}

std::string matchText(Match match) {
  switch (match) {
    case Match::kSame:
      return "same as certificate";
    case Match::kDifferent:
      return "DIFFERS from certificate";
    default:
      return "not compared";
  }
}

std::optional<PublicKey> certifiedKey(const Container& container) {
  if (container.certificate.empty()) return std::nullopt;
  try {
    return decodeCertificate(container.certificate).key;
  } catch (const ToolError&) {
    return std::nullopt;
  }
}

std::string keyText(const Bytes& blob, Match match) {
  return blob.empty() ? "-" : std::to_string(decodePublicKey(blob).bits) + " bits, " + matchText(match);
}

}  // namespace

Json runFiles(Environment& environment) {
  CardSession& card = environment.card();
  const CardSession::Transaction transaction(card);
  TextTable table({"Directory", "File", ">Stated size", ">Size read", "Access"});
  Json list = Json::array();
  for (const std::string directory : {"", "mscp"}) {
    for (const std::string& name : card.listFiles(directory)) {
      const FileInfo info = card.fileInfo({directory, name});
      const Json size = readSize(card, {directory, name});
      const std::string access = accessConditionName(info.accessCondition);
      table.addRow({directory.empty() ? "(root)" : directory, name, std::to_string(info.size), cell(size), access});
      list.push_back({{"directory", directory},
                      {"name", name},
                      {"statedSize", info.size},
                      {"readSize", size},
                      {"accessCondition", access}});
    }
  }
  environment.output().text(table.text());
  return {{"files", std::move(list)}};
}

Json runProperties(Environment& environment) {
  CardSession& card = environment.card();
  const CardSession::Transaction transaction(card);
  std::vector<std::pair<std::string, std::string>> fields;
  Json list = Json::array();
  for (const PropertyQuery& query : cardPropertyQueries()) {
    const PropertyAnswer answer = card.cardProperty(std::wstring(query.name), query.flags);
    const std::string name = toUtf8(query.name);
    Json entry = {{"name", name},
                  {"flags", query.flags},
                  {"status", statusJson(answer.status)},
                  {"value", nullptr},
                  {"raw", nullptr}};
    std::string text = statusLabel(answer.status);
    if (answer.status == ERROR_SUCCESS) {
      entry["value"] = decodeProperty(query.form, answer.data);
      entry["raw"] = toHex(answer.data);
      text = propertyText(entry["value"]) + "\n[" + std::to_string(answer.data.size()) +
             " bytes: " + toHex(answer.data) + "]";
    }
    const std::string purpose = query.flagsMeaning.empty() ? "" : " (" + std::string(query.flagsMeaning) + ")";
    fields.emplace_back(name + purpose, std::move(text));
    list.push_back(std::move(entry));
  }
  environment.output().text(fieldList(fields));
  return {{"properties", std::move(list)}};
}

Json runContainers(Environment& environment) {
  CardSession& card = environment.card();
  const CardSession::Transaction transaction(card);
  TextTable table({">#", "Container", "Signature key", "Key-exchange key", "PIN"});
  Json list = Json::array();
  bool different = false;
  for (const Container& container : readContainers(card)) {
    const int index = container.record.index;
    const ContainerKeys keys = card.containerKeys(index);
    const std::optional<PublicKey> certified = certifiedKey(container);
    const Match signature = compare(keys.signature, certified);
    const Match keyExchange = compare(keys.keyExchange, certified);
    different = different || signature == Match::kDifferent || keyExchange == Match::kDifferent;
    const PropertyAnswer pin = card.containerProperty(index, CCP_PIN_IDENTIFIER);
    const std::string pinText =
        pin.status == ERROR_SUCCESS ? propertyText(decodeProperty(Form::kNumber, pin.data)) : statusLabel(pin.status);
    table.addRow({std::to_string(index), container.record.guid, keyText(keys.signature, signature),
                  keyText(keys.keyExchange, keyExchange), pinText});
    list.push_back({{"index", index},
                    {"guid", container.record.guid},
                    {"signatureKey", blobJson(keys.signature)},
                    {"signatureKeyMatch", matchText(signature)},
                    {"keyExchangeKey", blobJson(keys.keyExchange)},
                    {"keyExchangeKeyMatch", matchText(keyExchange)},
                    {"pinIdentifier", pinText}});
  }
  environment.output().text(list.empty() ? "The card has no key containers.\n" : table.text());
  Json result = {{"containers", std::move(list)}};
  if (different) {
    const ToolError error(
        ExitCode::kCheckFailed, "a container's public key is not the one in its certificate",
        "Such a key cannot be used with that certificate. The certificate on the token must be replaced.");
    throw PartialFailure(error, std::move(result));
  }
  return result;
}

}  // namespace orvane::tool
