// Which log files there are on this machine.
#include "local_files.h"
#include "log/files.h"
#include "platform/windows_api.h"
#include "text/bytes.h"
#include "text/utf.h"

namespace orvane::tool {
namespace {

constexpr std::size_t kLongestFolder = 32768;

std::string withoutSeparator(std::string folder) {
  folder.erase(folder.find_last_not_of("\\/") + 1);
  return folder;
}

// Calls `take` for everything in a folder.
template <typename Take>
void forEachIn(const std::string& folder, const Take& take) {
  WIN32_FIND_DATAW entry{};
  const HANDLE search = FindFirstFileW(toWide(joinPath(folder, "*")).c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    take(entry);
  } while (FindNextFileW(search, &entry));
  FindClose(search);
}

}  // namespace

std::string temporaryFolder(const std::optional<std::string>& wanted) {
  if (wanted) return withoutSeparator(*wanted);
  // As the minidriver asks: for a user whose name the code page does not have, the wide call gives another folder.
  std::string own(kLongestFolder, '\0');
  own.resize(GetTempPathA(static_cast<DWORD>(own.size()), own.data()));
  return withoutSeparator(fromCodePage(own));
}

std::string temporaryFolderOfAccount() {
  std::wstring folder(kLongestFolder, L'\0');
  folder.resize(GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()));
  return withoutSeparator(toUtf8(folder));
}

// Not put together as a path: "R:", a drive, and a name would be one in that drive's current folder.
std::string logFolder(const std::string& temporaryFolder) { return temporaryFolder + "\\Brightfold"; }

std::vector<LogFile> logFilesBelow(const std::string& temporaryFolder) {
  const std::string base = logFolder(temporaryFolder);
  std::vector<LogFile> files;
  forEachIn(base, [&](const WIN32_FIND_DATAW& folder) {
    const std::string process = toUtf8(folder.cFileName);
    if (process == "." || process == ".." || !(folder.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) return;
    forEachIn(joinPath(base, process), [&](const WIN32_FIND_DATAW& file) {
      const std::string name = toUtf8(file.cFileName);
      const auto date = logDateOf(name);
      if (!date || file.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return;
      files.push_back({process, *date, joinPath(joinPath(base, process), name),
                       joined(file.nFileSizeHigh, file.nFileSizeLow),
                       joined(file.ftLastWriteTime.dwHighDateTime, file.ftLastWriteTime.dwLowDateTime)});
    });
  });
  return files;
}

}  // namespace orvane::tool
