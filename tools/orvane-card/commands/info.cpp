// info: the readers, and what can be known about a token without a PIN.
#include "card/containers.h"
#include "commands/commands.h"
#include "text/style.h"
#include "text/table.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

Json readersJson(const std::vector<Reader>& readers) {
  Json list = Json::array();
  for (const Reader& reader : readers) {
    list.push_back({{"name", reader.name},
                    {"cardPresent", reader.cardPresent},
                    {"orvane", isOrvane(reader)},
                    {"exclusive", reader.exclusive},
                    {"mute", reader.mute},
                    {"atr", reader.cardPresent ? Json(toHex(reader.atr)) : Json(nullptr)}});
  }
  return list;
}

std::string readerState(const Reader& reader) {
  if (!reader.cardPresent) return "no card";
  if (reader.mute) return "a card that does not answer";
  std::string state = isOrvane(reader) ? "an Orvane token" : "a card of another kind, ATR " + toHex(reader.atr, " ");
  if (reader.exclusive) state += ", in exclusive use";
  return state;
}

// "cardid" and "cardcf".
std::pair<Bytes, Freshness> identity(CardSession& card) {
  const CardSession::Transaction transaction(card);
  Bytes identifier = card.readFile(parseCardPath("cardid"));
  return {std::move(identifier), decodeFreshness(card.readFile(parseCardPath("cardcf")))};
}

// Of an old firmware the minidriver says the same as of one that it has not looked at.
constexpr const char* kUnknownFirmware = "older than 2.0.0, or not read yet, which takes a PIN change in this session";

// The minidriver tells nothing but whether the firmware can do OAEP, and that only once it has looked at it.
Json firmwareOf(CardSession& card) {
  const PropertyAnswer paddings = card.cardProperty(CP_PADDING_SCHEMES, 2);
  const bool hasOaep = paddings.status == ERROR_SUCCESS && paddings.data.size() >= sizeof(DWORD) &&
                       (readLittleEndian32(paddings.data, 0) & CARD_PADDING_OAEP);
  return hasOaep ? Json("2.0.0 or newer") : Json(nullptr);
}

// Shows one token and gives what it shows.
Json showToken(Environment& environment, CardSession& card) {
  const TokenFacts token = environment.tokenFacts(card);
  const auto [identifier, freshness] = identity(card);
  const Json firmware = firmwareOf(card);
  const std::vector<ListedKey> keys = listedKeys(readContainers(card));
  const DriverChoice& driver = card.driver();
  const std::string version = fileVersion(driver.path);
  const std::string origin =
      driver.registered ? "registry entry \"" + driver.cardName + "\"" : std::string("command line");
  const Output& output = environment.output();
  output.text("\n" + fieldList({
                         {"Reader", card.reader().name},
                         {"Serial", serialText(token)},
                         {"Firmware", firmware.is_null() ? kUnknownFirmware : firmware.get<std::string>()},
                         {"ATR", toHex(card.reader().atr, " ")},
                         {"Minidriver", driver.path},
                         {"  chosen by", origin},
                         {"  file version", version.empty() ? "none stated" : version},
                         {"  interface version", std::to_string(card.version())},
                         {"Card identifier", toHex(identifier, " ") + "  " + printableAscii(identifier)},
                         {"Freshness numbers", freshnessText(freshness)},
                     }));
  output.text("\n" + (keys.empty() ? noKeysText(token) + "\n" : keyTable(keys, Output::width())));
  Json shown = {{"reader", card.reader().name},
                {"token", tokenJson(token)},
                {"firmware", firmware},
                {"atr", toHex(card.reader().atr)},
                {"driver",
                 {{"path", driver.path},
                  {"cardName", driver.cardName},
                  {"fromRegistry", driver.registered},
                  {"fileVersion", textOrNull(version)},
                  {"interfaceVersion", card.version()}}},
                {"cardid", {{"hex", toHex(identifier)}, {"ascii", printableAscii(identifier)}}},
                {"cardcf",
                 {{"version", freshness.version},
                  {"pins", freshness.pins},
                  {"containers", freshness.containers},
                  {"files", freshness.files}}},
                {"keys", keysJson(keys)}};
  if (keys.empty() && token.access != TokenAccess::kOpen) throw PartialFailure(unopenedToken(token), std::move(shown));
  return shown;
}

// Shows the tokens in all readers. One that fails does not keep the others from being shown; the first failure is
// thrown in the end, with everything.
Json showAll(Environment& environment, const std::vector<Reader>& readers, Json result) {
  std::optional<ToolError> firstFailure;
  Json tokens = Json::array();
  for (const Reader& reader : readers) {
    if (!isOrvane(reader)) continue;
    try {
      const std::unique_ptr<CardSession> card =
          environment.connect(reader, chooseDriver(environment.options().driver, reader.atr));
      tokens.push_back(showToken(environment, *card));
    } catch (const ToolError& error) {
      environment.output().text("\n" + reader.name + ": " + error.what() + "\n");
      const auto* partial = dynamic_cast<const PartialFailure*>(&error);
      tokens.push_back(partial ? partial->result() : Json{{"reader", reader.name}});
      tokens.back()["error"] = errorJson(error);
      if (!firstFailure) firstFailure = error;
    }
  }
  if (tokens.empty())
    firstFailure = ToolError(ExitCode::kNoCard, "no reader holds an Orvane token", "Plug the token in and try again.");
  result["tokens"] = std::move(tokens);
  if (firstFailure) throw PartialFailure(*firstFailure, std::move(result));
  return result;
}

}  // namespace

Json runInfo(Environment& environment, const InfoOptions& options) {
  const std::vector<Reader> readers = environment.service().readers();
  std::string list;
  for (const Reader& reader : readers)
    list += (list.empty() ? "" : "\n") + withoutCommands(reader.name) + ": " + readerState(reader);
  environment.output().text(fieldList({{"Readers", list.empty() ? "none" : list}}));
  Json result = {{"readers", readersJson(readers)}};
  if (options.all) return showAll(environment, readers, std::move(result));
  try {
    result.update(showToken(environment, environment.card()));
    return result;
  } catch (const ToolError& error) {
    if (const auto* failure = dynamic_cast<const PartialFailure*>(&error)) result.update(failure->result());
    throw PartialFailure(error, std::move(result));
  }
}

}  // namespace orvane::tool
