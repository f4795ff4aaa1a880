// The commands that look at the card as a whole: info, list, read.
#include "card/certificate.h"
#include "commands/commands.h"
#include "local_files.h"
#include "text/table.h"
#include "tool_error.h"

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

Json freshnessJson(const Freshness& freshness) {
  return {{"version", freshness.version},
          {"pins", freshness.pins},
          {"containers", freshness.containers},
          {"files", freshness.files}};
}

std::string dateOf(const std::string& time) { return time.substr(0, 10); }

// One line of the list, and its JSON.
struct Listed {
  std::vector<std::string> row;
  Json json;
};

Listed listed(const Container& container, bool short_) {
  const ContainerRecord& record = container.record;
  const auto bits = std::max(record.signatureBits, record.keyExchangeBits);
  const auto fitted = [short_](const std::string& name) { return short_ ? shortened(name, 28) : name; };
  Listed entry;
  entry.json = {{"index", record.index},
                {"guid", record.guid},
                {"valid", record.valid()},
                {"default", record.isDefault()},
                {"signatureBits", record.signatureBits},
                {"keyExchangeBits", record.keyExchangeBits},
                {"use", keyUse(record)},
                {"certificate", nullptr},
                {"certificateError", nullptr}};
  entry.row = {std::to_string(record.index), record.isDefault() ? "*" : "", record.guid, keyUse(record),
               bits ? std::to_string(bits) : ""};
  std::string problem = container.whyNone;
  if (!container.certificate.empty()) {
    try {
      const CertificateFacts facts = decodeCertificate(container.certificate);
      entry.json["certificate"] = certificateJson(facts);
      entry.row.push_back(dateOf(facts.notBefore));
      entry.row.push_back(dateOf(facts.notAfter) + (facts.current ? "" : " !"));
      entry.row.push_back(fitted(facts.subjectName));
      entry.row.push_back(fitted(facts.issuerName));
      return entry;
    } catch (const ToolError& error) {
      problem = error.what();
    }
  }
  entry.json["certificateError"] = problem;
  entry.row.insert(entry.row.end(), {"", "", "(" + problem + ")"});
  return entry;
}

}  // namespace

Json runInfo(Environment& environment) {
  const Output& output = environment.output();
  const std::vector<Reader> readers = environment.service().readers();
  std::string list;
  for (const Reader& reader : readers) list += (list.empty() ? "" : "\n") + reader.name + ": " + readerState(reader);
  output.text(fieldList({{"Readers", list.empty() ? "none" : list}}));

  CardSession& card = environment.card();
  const CardSession::Transaction transaction(card);
  const Bytes identifier = card.readFile(parseCardPath("cardid"));
  const Freshness freshness = decodeFreshness(card.readFile(parseCardPath("cardcf")));
  const std::string fileVersion = DriverModule::fileVersion(card.driver().path);
  const std::string origin =
      card.driver().registered ? "registry entry \"" + card.driver().cardName + "\"" : std::string("command line");
  output.text(fieldList({
      {"Reader", card.reader().name},
      {"ATR", toHex(card.reader().atr, " ")},
      {"Minidriver", card.driver().path},
      {"  chosen by", origin},
      {"  file version", fileVersion.empty() ? "none stated" : fileVersion},
      {"  interface version", std::to_string(card.version())},
      {"Card identifier", toHex(identifier, " ") + "  " + printableAscii(identifier)},
      {"Freshness", "version " + std::to_string(freshness.version) + ", PINs " + std::to_string(freshness.pins) +
                        ", containers " + std::to_string(freshness.containers) + ", files " +
                        std::to_string(freshness.files)},
  }));
  return {{"readers", readersJson(readers)},
          {"reader", card.reader().name},
          {"atr", toHex(card.reader().atr)},
          {"driver",
           {{"path", card.driver().path},
            {"cardName", card.driver().cardName},
            {"fromRegistry", card.driver().registered},
            {"fileVersion", fileVersion.empty() ? Json(nullptr) : Json(fileVersion)},
            {"interfaceVersion", card.version()}}},
          {"cardid", {{"hex", toHex(identifier)}, {"ascii", printableAscii(identifier)}}},
          {"cardcf", freshnessJson(freshness)}};
}

Json runList(Environment& environment) {
  TextTable table({">#", "", "Container", "Use", ">Bits", "Valid from", "Valid to", "Subject", "Issuer"});
  Json list = Json::array();
  for (const Container& container : readContainers(environment.card())) {
    Listed entry = listed(container, Output::onTerminal());
    table.addRow(std::move(entry.row));
    list.push_back(std::move(entry.json));
  }
  environment.output().text(list.empty() ? "The card has no key containers.\n"
                                         : table.text() + "* default container, ! not valid today\n");
  return {{"containers", std::move(list)}};
}

Json runRead(Environment& environment, const ReadOptions& options) {
  const CardPath path = parseCardPath(options.file);
  const Bytes data = environment.card().readFile(path);
  const Output& output = environment.output();
  if (options.output == "-") {
    if (output.json()) throw ToolError(ExitCode::kUsage, "raw output and --json do not go together");
    output.raw(data);
  } else if (!options.output.empty()) {
    writeLocalFile(options.output, data);
    output.text(path.name + ": " + std::to_string(data.size()) + " bytes written to " + options.output + "\n");
  } else {
    output.text(data.empty() ? path.name + ": empty\n" : hexDump(data));
  }
  return {{"directory", path.directory}, {"name", path.name}, {"size", data.size()}, {"hex", toHex(data)}};
}

}  // namespace orvane::tool
