// info: the readers, the card, its minidriver, "cardid" and "cardcf".
#include "commands/commands.h"
#include "text/table.h"

namespace orvane::tool {
namespace {

Json readersJson(const std::vector<Reader>& readers) {
  Json list = Json::array();
  for (const Reader& reader : readers) {
    list.push_back({{"name", reader.name},
                    {"cardPresent", reader.cardPresent},
                    {"exclusive", reader.exclusive},
                    {"mute", reader.mute},
                    {"atr", reader.cardPresent ? Json(toHex(reader.atr)) : Json(nullptr)}});
  }
  return list;
}

std::string readerState(const Reader& reader) {
  if (!reader.cardPresent) return "no card";
  std::string state = "card " + toHex(reader.atr, " ");
  if (reader.mute) state += " (does not answer)";
  if (reader.exclusive) state += " (in exclusive use)";
  return state;
}

// "cardid" and "cardcf".
std::pair<Bytes, Freshness> identity(CardSession& card) {
  const CardSession::Transaction transaction(card);
  Bytes identifier = card.readFile(parseCardPath("cardid"));
  return {std::move(identifier), decodeFreshness(card.readFile(parseCardPath("cardcf")))};
}

}  // namespace

Json runInfo(Environment& environment) {
  const Output& output = environment.output();
  const std::vector<Reader> readers = environment.service().readers();
  std::string list;
  for (const Reader& reader : readers) list += (list.empty() ? "" : "\n") + reader.name + ": " + readerState(reader);
  output.text(fieldList({{"Readers", list.empty() ? "none" : list}}));

  CardSession& card = environment.card();
  const auto [identifier, freshness] = identity(card);
  const std::string version = fileVersion(card.driver().path);
  const std::string origin =
      card.driver().registered ? "registry entry \"" + card.driver().cardName + "\"" : std::string("command line");
  output.text(fieldList({
      {"Reader", card.reader().name},
      {"ATR", toHex(card.reader().atr, " ")},
      {"Minidriver", card.driver().path},
      {"  chosen by", origin},
      {"  file version", version.empty() ? "none stated" : version},
      {"  interface version", std::to_string(card.version())},
      {"Card identifier", toHex(identifier, " ") + "  " + printableAscii(identifier)},
      {"Freshness", freshnessText(freshness)},
  }));
  return {{"readers", readersJson(readers)},
          {"reader", card.reader().name},
          {"atr", toHex(card.reader().atr)},
          {"driver",
           {{"path", card.driver().path},
            {"cardName", card.driver().cardName},
            {"fromRegistry", card.driver().registered},
            {"fileVersion", textOrNull(version)},
            {"interfaceVersion", card.version()}}},
          {"cardid", {{"hex", toHex(identifier)}, {"ascii", printableAscii(identifier)}}},
          {"cardcf",
           {{"version", freshness.version},
            {"pins", freshness.pins},
            {"containers", freshness.containers},
            {"files", freshness.files}}}};
}

}  // namespace orvane::tool
