// The minidriver's log files: which there are and which one is meant.
#ifndef ORVANE_TOOL_LOG_FILES_H
#define ORVANE_TOOL_LOG_FILES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

// LogFile is one file: of one program and one day.
struct LogFile {
  std::string process;  // "chrome"
  std::string date;     // "2026-11-15"
  std::string path;
  std::uint64_t size = 0;      // bytes
  std::uint64_t modified = 0;  // FILETIME

  bool operator==(const LogFile&) const = default;
};

// logDateOf gives the date in a log file's name, "2026-11-15.LOG", or no value for a file of another name.
std::optional<std::string> logDateOf(std::string_view fileName);

// chooseLogFile gives the newest file by date, and of one date the one written last, among those of `process` (in any
// letter case, with or without ".exe") and of `date`, as far as given. Null when there is none.
const LogFile* chooseLogFile(const std::vector<LogFile>& files, const std::optional<std::string>& process,
                             const std::optional<std::string>& date);

// temporaryFolder gives `wanted`, or without it the folder below which the minidriver logs for this user, without a
// separator at its end. Windows only, as are the next three.
std::string temporaryFolder(const std::optional<std::string>& wanted = std::nullopt);

// temporaryFolderOfAccount gives this user's temporary folder with all characters of its name. The minidriver uses
// another one when the machine's code page does not have them.
std::string temporaryFolderOfAccount();

// logFolder gives the folder of all programs' logs in a temporary folder.
std::string logFolder(const std::string& temporaryFolder);

// logFilesBelow lists the log files of all programs below a temporary folder, without order.
std::vector<LogFile> logFilesBelow(const std::string& temporaryFolder);

}  // namespace orvane::tool

#endif
