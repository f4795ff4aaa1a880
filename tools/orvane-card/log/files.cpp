#include "log/files.h"

#include <tuple>

#include "log/lines.h"
#include "support/text_compare.h"

namespace orvane::tool {
std::optional<std::string> logDateOf(std::string_view fileName) {
  constexpr std::string_view kDateForm = "dddd-dd-dd";
  if (!beginsWithForm(fileName, kDateForm) || !equalsIgnoreCase(fileName.substr(kDateForm.size()), ".LOG"))
    return std::nullopt;
  return std::string(fileName.substr(0, kDateForm.size()));
}

const LogFile* chooseLogFile(const std::vector<LogFile>& files, const std::optional<std::string>& process,
                             const std::optional<std::string>& date) {
  const LogFile* choice = nullptr;
  for (const LogFile& file : files) {
    // The minidriver, too, takes a program's name up to the first dot.
    if (process && !equalsIgnoreCase(file.process, std::string_view(*process).substr(0, process->find('.')))) continue;
    if (date && file.date != *date) continue;
    if (!choice || std::tie(choice->date, choice->modified) < std::tie(file.date, file.modified)) choice = &file;
  }
  return choice;
}

}  // namespace orvane::tool
