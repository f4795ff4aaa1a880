// The commands that show everything the minidriver says: files, props.
#include "card/properties.h"
#include "card/status_names.h"
#include "commands/commands.h"
#include "text/table.h"
#include "text/utf.h"
#include "tool_error.h"

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

}  // namespace orvane::tool
