// props: all card properties, decoded and raw.
#include "card/properties.h"
#include "card/status_names.h"
#include "commands/commands.h"
#include "text/table.h"
#include "text/utf.h"

namespace orvane::tool {

namespace {

// Puts all properties into the fields for people and the list that it gives.
Json listAll(CardSession& card, std::vector<std::pair<std::string, std::string>>& fields) {
  const CardSession::Transaction transaction(card);
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
  return list;
}

}  // namespace

Json runProperties(Environment& environment) {
  std::vector<std::pair<std::string, std::string>> fields;
  Json list = listAll(environment.card(), fields);
  environment.output().text(fieldList(fields));
  return {{"properties", std::move(list)}};
}

}  // namespace orvane::tool
