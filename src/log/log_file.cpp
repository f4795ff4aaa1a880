#include "log/log_file.h"

#include <cstdio>
#include <cstring>
#include <exception>

#include "log/process_name.h"
#include "platform/append_file.h"
#include "support/short_text.h"

namespace orvane {
namespace {

// A path below the temporary folder, put together in place: each line forms one.
using PathBelow = ShortText<kLogPathSize>;

void printToConsole(const char* function, const std::exception& error) noexcept {
  std::fprintf(stderr, "%s%s", function, error.what());
}

// The folder part of the log path as seen from a temporary folder, ending in "/".
PathBelow logFolder() noexcept {
  PathBelow path;
  path.append("/Brightfold/").append(processName().text()).append("/");
  return path;
}

// Cuts a path below a folder, so that the whole fits.
void cutToPathSize(std::size_t baseSize, PathBelow& below) noexcept { below.cut(kLogPathSize - 1 - baseSize); }

// Appends the line to the log file of that day below `base`: adds its name to `path`, its folder with "/" at the end.
// An empty `base` is the root of the current drive.
BelowResult appendToLog(const char* base, PathBelow& path, const SYSTEMTIME& now, const std::string& line) {
  path.append(logFileName(now));
  cutToPathSize(std::strlen(base), path);
  return appendBelow(base[0] != '\0' ? base : "/", path.view(), line);
}

// Writes a line whose file could not be opened: whatever the reason is, the folders are looked after first. An unusable
// temporary folder leaves its place empty, so the path then starts at the root of the current drive.
void writeAfterFolders(char* temporaryFolder, const SYSTEMTIME& now, const std::string& line) {
  if (temporaryFolder[0] == '\0' || !isFolderExists(temporaryFolder)) {
    temporaryFolder[0] = '\0';
    std::fputs("\nUnable to getLogBaseFolderPath", stdout);
  }
  const std::string base(temporaryFolder);
  PathBelow path = logFolder();
  cutToPathSize(base.size(), path);
  if (createLogFolders(base, std::string(path.view()))) return;
  if (appendToLog(temporaryFolder, path, now, line) == BelowResult::kFailed)
    std::fputs("\nUnable to write log", stdout);
}

}  // namespace

void writeLogLine(LogLevel level, std::string_view message) noexcept {
  try {
    char temporaryFolder[kLogPathSize];
    getLogBaseFolderPath(temporaryFolder, sizeof(temporaryFolder));
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const std::string line = logLine(now, level, message);
    // A file that opens stands in folders that are all there. Only when it does not are they asked for one by one, and
    // not at all when a link is in the way.
    if (temporaryFolder[0] != '\0') {
      PathBelow path = logFolder();
      if (std::strlen(temporaryFolder) + path.size() < kLogPathSize &&
          appendToLog(temporaryFolder, path, now, line) != BelowResult::kFailed) {
        return;
      }
    }
    writeAfterFolders(temporaryFolder, now, line);
  } catch (...) {
    // Out of memory for the path or the line: the line is lost.
  }
}

std::string_view logLevelTag(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::kException:
      return "EXCEP ::=>";
    case LogLevel::kError:
      return "ERROR ::=>";
    case LogLevel::kDebug:
      return "DEBUG ::=>";
    default:
      return "INFO  ::=>";
  }
}

std::string logLine(const SYSTEMTIME& now, LogLevel level, std::string_view message) {
  ShortText<64> prefix;
  prefix.appendNumber(now.wDay, 2).append("/").appendNumber(now.wMonth, 2).append("::");
  prefix.appendNumber(now.wHour, 2).append(":").appendNumber(now.wMinute, 2).append(":");
  prefix.appendNumber(now.wSecond, 2).append(":").appendNumber(now.wMilliseconds, 3);
  prefix.append("-> ->").append(logLevelTag(level));
  std::string line;
  line.reserve(prefix.size() + message.size() + 1);
  line.append(prefix.view()).append(message).append("\n");
  return line;
}

std::string logFileName(const SYSTEMTIME& now) {
  ShortText<24> name;
  name.appendNumber(now.wYear, 4).append("-").appendNumber(now.wMonth, 2).append("-").appendNumber(now.wDay, 2);
  return std::string(name.append(".LOG").view());
}

int getLogBaseFolderPath(char* buffer, std::size_t size) noexcept {
  try {
    const DWORD length = GetTempPathA(static_cast<DWORD>(size), buffer);
    if (length != 0 && length < size) return 0;
  } catch (const std::exception& error) {
    printToConsole("Exception in getLogBaseFolderPath(): ", error);
  }
  if (size > 0) buffer[0] = '\0';
  return -1;
}

bool isFolderExists(const char* path) noexcept {
  try {
    const DWORD attributes = GetFileAttributesA(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  } catch (const std::exception& error) {
    printToConsole("Exception in isFolderExists(): ", error);
    return false;
  }
}

bool createFolder(const char* path) noexcept {
  try {
    return CreateDirectoryA(path, nullptr) != FALSE;
  } catch (const std::exception& error) {
    printToConsole("Exception in createFolder(): ", error);
    return false;
  }
}

bool createLogFolders(const std::string& base, const std::string& below) noexcept {
  try {
    const std::string path = base + below;
    const std::string folder = base.empty() ? "/" : base;
    for (std::size_t i = 1; i <= path.size(); ++i) {
      if (i != path.size() && path[i] != '/') continue;
      const std::string walked = path.substr(0, i);
      const bool created = i <= base.size()
                               ? createFolder(walked.c_str())
                               : createFolderBelow(folder.c_str(), walked.substr(base.size())) == BelowResult::kDone;
      if (created) return true;
    }
    return false;
  } catch (const std::exception& error) {
    printToConsole("Exception in createFolder(): ", error);
    return false;
  }
}

}  // namespace orvane
