// files: all files of the card with their sizes.
#include <algorithm>

#include "card/key_list.h"
#include "card/status_names.h"
#include "commands/commands.h"
#include "text/table.h"
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

// "cmapfile", for the names of keys; nothing when it cannot be read, because the files are listed all the same.
std::vector<ContainerRecord> containerMap(CardSession& card) {
  try {
    return decodeContainerMap(card.readFile({"mscp", "cmapfile"}));
  } catch (const ToolError&) {
    return {};
  }
}

// Puts all files into the table and the list that it gives.
Json listAll(CardSession& card, TextTable& table) {
  const CardSession::Transaction transaction(card);
  const std::vector<ContainerRecord> records = containerMap(card);
  Json list = Json::array();
  for (const std::string directory : {"", "mscp"}) {
    for (const std::string& name : card.listFiles(directory)) {
      const FileInfo info = card.fileInfo({directory, name});
      const Json size = readSize(card, {directory, name});
      const std::string access = accessConditionName(info.accessCondition);
      const std::string meaning = cardFileMeaning(name, records);
      const bool isRead = size.is_number();
      table.addRow({directory.empty() ? "(root)" : directory, name, std::to_string(info.size),
                    isRead ? size.dump() : "none", access,
                    isRead ? meaning : meaning + ": " + size.get<std::string>()});
      list.push_back({{"directory", directory},
                      {"name", name},
                      {"statedSize", info.size},
                      {"readSize", size},
                      {"accessCondition", access},
                      {"meaning", textOrNull(meaning)}});
    }
  }
  return list;
}

}  // namespace

Json runFiles(Environment& environment) {
  TextTable table({"Folder", "File", ">Stated", ">Read", "Access", "~What it is"});
  Json list = listAll(environment.card(), table);
  environment.output().text(table.text(std::max(Output::width(), kTableWidth)) + "Sizes are in bytes.\n");
  return {{"files", std::move(list)}};
}

}  // namespace orvane::tool
