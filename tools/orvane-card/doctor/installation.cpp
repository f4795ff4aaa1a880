#include "doctor/installation.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "card/driver.h"
#include "local_files.h"
#include "log/files.h"
#include "platform/windows_api.h"
#include "support/text_compare.h"
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

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Makes and removes again a folder, or a file, in the folder: the rights that files show do not tell what a network or
// a full disk refuses.
bool takesFolders(const std::string& folder) {
  const std::wstring path = toWide(joinPath(folder, "orvane-card-" + std::to_string(GetCurrentProcessId()) + ".tmp"));
  if (!CreateDirectoryW(path.c_str(), nullptr)) return false;
  // That another program, such as a virus scanner, holds it for the moment says nothing about the folder around it.
  RemoveDirectoryW(path.c_str());
  return true;
}
bool takesFiles(const std::string& folder) {
  const std::wstring path = toWide(joinPath(folder, "orvane-card-" + std::to_string(GetCurrentProcessId()) + ".tmp"));
  const HANDLE handle = CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, kShareAll, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  CloseHandle(handle);
  return true;
}

// Whether a file that exists can be added to, as the minidriver does it.
bool takesMore(const std::string& file) {
  const HANDLE handle =
      CreateFileW(toWide(file).c_str(), FILE_APPEND_DATA, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  CloseHandle(handle);
  return true;
}

// The name of this day's log file.
std::string fileOfToday() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  const auto digits = [](unsigned number, std::size_t width) {
    const std::string text = std::to_string(number);
    return std::string(width - std::min(width, text.size()), '0') + text;
  };
  return digits(now.wYear, 4) + "-" + digits(now.wMonth, 2) + "-" + digits(now.wDay, 2) + ".LOG";
}

// Looks from the temporary folder down to the day's file for the first thing that keeps the minidriver from writing.
void findObstacle(const std::string& ownFolder, LogFacts& facts) {
  const auto found = [&facts](LogObstacle obstacle, const std::string& path) {
    facts.obstacle = obstacle;
    facts.obstaclePath = path;
  };
  const auto attributesOf = [](const std::string& path) { return GetFileAttributesW(toWide(path).c_str()); };
  const DWORD temporary = attributesOf(facts.folder + "\\");
  if (temporary == INVALID_FILE_ATTRIBUTES) return found(LogObstacle::kNoFolder, facts.folder);
  std::string parent = facts.folder;
  for (const std::string& folder : {logFolder(facts.folder), ownFolder}) {
    const DWORD attributes = attributesOf(folder);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
      if (!takesFolders(parent)) found(LogObstacle::kRefused, parent);
      return;
    }
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return found(LogObstacle::kLink, folder);
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return found(LogObstacle::kFile, folder);
    parent = folder;
  }
  const std::string file = joinPath(ownFolder, fileOfToday());
  const DWORD attributes = attributesOf(file);
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    if (!takesFiles(ownFolder)) found(LogObstacle::kRefused, ownFolder);
  } else if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
    found(LogObstacle::kLink, file);
  } else if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
    found(LogObstacle::kFolder, file);
  } else if (!takesMore(file)) {
    found(LogObstacle::kRefusedFile, file);
  }
}

// What a library in `folder` needs, or a library that lies beside it, and Windows would not find. It says only that
// something is missing (error 126), not what.
std::vector<std::string> missingImports(const std::string& folder, const PeFile& pe) {
  std::vector<std::string> missing;
  std::vector<std::string> names = pe.imports;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string name = names[i];
    const auto isSame = [&](const std::string& other) { return equalsIgnoreCase(name, other); };
    const auto here = names.begin() + static_cast<std::ptrdiff_t>(i);
    if (isApiSet(name) || std::any_of(names.begin(), here, isSame) || GetModuleHandleW(toWide(name).c_str())) continue;
    if (exists(joinPath(folder, name))) {
      const LibraryFile beside = inspectLibrary(joinPath(folder, name));
      if (beside.pe) names.insert(names.end(), beside.pe->imports.begin(), beside.pe->imports.end());
    } else if (!exists(joinPath(systemFolder(), name))) {
      missing.push_back(name);
    }
  }
  return missing;
}

}  // namespace

std::uint16_t processMachine() {
  const auto* base = reinterpret_cast<const std::uint8_t*>(GetModuleHandleW(nullptr));
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const std::uint16_t machine = headers->FileHeader.Machine;
  USHORT emulated = 0;
  USHORT native = 0;
  const bool isOnArm = IsWow64Process2(GetCurrentProcess(), &emulated, &native) && native == kMachineArm64;
  return machine == kMachineX64 && isOnArm ? kMachineArm64Ec : machine;
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

LibraryFile inspectMinidriver(const std::string& path, std::uint16_t machine) {
  LibraryFile file = inspectLibrary(path);
  if (!file.pe || !canLoad(machine, file.pe->machine)) return file;
  // A link of its own, which has its own advice.
  PeFile others = *file.pe;
  std::erase_if(others.imports, [](const std::string& name) { return equalsIgnoreCase(name, kTokenLibrary); });
  file.missing = missingImports(folderOf(path), others);
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
  if (!file.pe || !canLoad(machine, file.pe->machine)) return file;
  file.missing = missingImports(folderOf(file.path), *file.pe);
  if (!file.missing.empty()) return file;
  // It stays loaded: the minidriver needs it next, and a library with threads of its own may not like to go.
  if (!LoadLibraryExW(toWide(file.path).c_str(), nullptr,
                      LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS))
    file.loadError = ToolError("LoadLibrary", GetLastError());
  return file;
}

std::optional<std::uint32_t> registryNumber(const wchar_t* key, const wchar_t* value) {
  DWORD number = 0;
  DWORD size = sizeof number;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_DWORD, nullptr, &number, &size) != ERROR_SUCCESS)
    return std::nullopt;
  return number;
}

LogonFacts logonFacts(std::vector<LibraryFile> libraries) {
  std::erase_if(libraries, [](const LibraryFile& file) { return !file.pe; });
  return {registryNumber(L"SYSTEM\\CurrentControlSet\\Control\\Lsa", L"RunAsPPL"),
          registryNumber(L"SYSTEM\\CurrentControlSet\\Control\\CI\\Policy", L"VerifiedAndReputablePolicyState"),
          std::move(libraries)};
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
  if (result == ERROR_SUCCESS) facts.stored = storedText(type, value);
  facts.isNumber = result == ERROR_SUCCESS ? type == REG_DWORD || type == REG_QWORD : result != ERROR_MORE_DATA;

  facts.folder = temporaryFolder();
  facts.accountFolder = temporaryFolderOfAccount();
  std::wstring windows(MAX_PATH, L'\0');
  windows.resize(GetSystemWindowsDirectoryW(windows.data(), static_cast<UINT>(windows.size())));
  facts.windowsFolder = toUtf8(windows);
  findObstacle(joinPath(logFolder(facts.folder), "orvane-card"), facts);

  const std::vector<LogFile> files = logFilesBelow(facts.folder);
  if (const LogFile* newest = chooseLogFile(files, {}, {})) facts.newestFile = newest->path;
  return facts;
}

}  // namespace orvane::tool
