#include "doctor/installation.h"

#include <filesystem>
#include <system_error>

#include "card/driver.h"
#include "local_files.h"
#include "log/files.h"
#include "platform/windows_api.h"
#include "text/utf.h"

namespace orvane::tool {
namespace {

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(toWide(path), error);
}

std::string folderOf(const std::string& path) {
  return toUtf8(std::filesystem::path(toWide(path)).parent_path().wstring());
}

// Whether a file could be made in the folder; makes none.
bool takesFiles(const std::string& folder) {
  const HANDLE handle =
      CreateFileW(toWide(folder).c_str(), FILE_ADD_FILE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  CloseHandle(handle);
  // A file opens, too.
  std::error_code error;
  return std::filesystem::is_directory(toWide(folder), error);
}

// What a library needs and Windows would not find for it.
std::vector<std::string> missingImports(const std::string& folder, const PeFile& pe) {
  std::vector<std::string> missing;
  for (const std::string& name : pe.imports) {
    if (isApiSet(name) || GetModuleHandleW(toWide(name).c_str())) continue;
    if (!exists(joinPath(folder, name)) && !exists(joinPath(systemFolder(), name))) missing.push_back(name);
  }
  return missing;
}

}  // namespace

std::uint16_t processMachine() {
  const auto* base = reinterpret_cast<const std::uint8_t*>(GetModuleHandleW(nullptr));
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  return headers->FileHeader.Machine;
}

LibraryFile inspectLibrary(const std::string& path) {
  LibraryFile file;
  file.path = path;
  file.found = exists(path);
  if (!file.found) return file;
  try {
    file.pe = readPeFile(readLocalFile(path));
  } catch (const std::exception&) {
    // Refused, or larger than memory.
    file.readable = false;
  }
  file.version = fileVersion(path);
  return file;
}

LibraryFile inspectTokenLibrary(const std::string& driverPath, std::uint16_t machine) {
  const std::string folder = folderOf(driverPath);
  const std::string name(kTokenLibrary);
  LibraryFile file = inspectLibrary(joinPath(folder, name));
  if (!file.found) {
    LibraryFile inSystem = inspectLibrary(joinPath(systemFolder(), name));
    if (inSystem.found) file = std::move(inSystem);
  }
  if (!file.pe || file.pe->machine != machine) return file;
  file.missing = missingImports(folderOf(file.path), *file.pe);
  if (!file.missing.empty()) return file;
  // It stays loaded: the minidriver needs it next, and a library with threads of its own may not like to go.
  if (!LoadLibraryExW(toWide(file.path).c_str(), nullptr,
                      LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS))
    file.loadError = ToolError("LoadLibrary", GetLastError());
  return file;
}

LogFacts logFacts() {
  LogFacts facts;
  // The minidriver asks in the same way, so that a value that is too long for it is too long here.
  Bytes value(32);
  auto size = static_cast<DWORD>(value.size());
  DWORD type = REG_DWORD;
  const LONG result = RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Brightfold\\Orvane", "logLevel", RRF_RT_ANY, &type,
                                   value.data(), &size);
  value.resize(size);
  facts.level = logLevelOf(result == ERROR_SUCCESS ? std::optional(value) : std::nullopt);
  facts.isNumber = result == ERROR_SUCCESS ? type == REG_DWORD || type == REG_QWORD : result != ERROR_MORE_DATA;

  facts.folder = temporaryFolder();
  facts.accountFolder = temporaryFolderOfAccount();
  std::wstring windows(MAX_PATH, L'\0');
  windows.resize(GetSystemWindowsDirectoryW(windows.data(), static_cast<UINT>(windows.size())));
  facts.windowsFolder = toUtf8(windows);
  const std::string base = logFolder(facts.folder);
  const std::string own = joinPath(base, "orvane-card");
  const auto isThere = [](const std::string& path) {
    return GetFileAttributesW(toWide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
  };
  const std::string nearest = isThere(own) ? own : isThere(base) ? base : facts.folder + "\\";
  if (!takesFiles(nearest)) facts.obstacle = nearest;

  const std::vector<LogFile> files = logFilesBelow(facts.folder);
  if (const LogFile* newest = chooseLogFile(files, {}, {})) facts.newestFile = newest->path;
  return facts;
}

}  // namespace orvane::tool
