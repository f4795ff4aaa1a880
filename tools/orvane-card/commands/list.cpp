// list: the key containers with their certificates.
#include <algorithm>

#include "card/certificate.h"
#include "card/containers.h"
#include "commands/commands.h"
#include "text/table.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

std::string dateOf(const std::string& time) { return time.substr(0, 10); }

struct Listed {
  std::vector<std::string> row;
  Json json;
};

// One line of the list; `onTerminal` cuts long names.
Listed listed(const Container& container, bool onTerminal) {
  const ContainerRecord& record = container.record;
  const auto bits = std::max(record.signatureBits, record.keyExchangeBits);
  const auto fitted = [onTerminal](const std::string& name) { return onTerminal ? shortened(name, 28) : name; };
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

}  // namespace orvane::tool
