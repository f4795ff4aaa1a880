// files: all files of the card with their sizes.
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

std::string cell(const Json& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

// Puts all files into the table and the list that it gives.
Json listAll(CardSession& card, TextTable& table) {
  const CardSession::Transaction transaction(card);
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
  return list;
}

}  // namespace

Json runFiles(Environment& environment) {
  TextTable table({"Directory", "File", ">Stated size", ">Size read", "Access"});
  Json list = listAll(environment.card(), table);
  environment.output().text(table.text());
  return {{"files", std::move(list)}};
}

}  // namespace orvane::tool
