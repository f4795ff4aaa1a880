#include "log/files.h"

#include <tuple>

#include "support/text_compare.h"

namespace orvane::tool {
namespace {

constexpr std::string_view kNameForm = "dddd-dd-dd.LOG";
constexpr std::size_t kDateSize = 10;

}  // namespace

std::optional<std::string> logDateOf(std::string_view fileName) {
  if (fileName.size() != kNameForm.size()) return std::nullopt;
  for (std::size_t i = 0; i < kDateSize; ++i) {
    const bool fits = kNameForm[i] == 'd' ? fileName[i] >= '0' && fileName[i] <= '9' : fileName[i] == kNameForm[i];
    if (!fits) return std::nullopt;
  }
  if (!equalsIgnoreCase(fileName.substr(kDateSize), kNameForm.substr(kDateSize))) return std::nullopt;
  return std::string(fileName.substr(0, kDateSize));
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
