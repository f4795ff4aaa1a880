#include "card/driver.h"

#include <filesystem>

#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

// Holds one key for each card type, below HKEY_LOCAL_MACHINE.
constexpr const wchar_t* kCardTypesKey = L"SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards";

// A value below HKEY_LOCAL_MACHINE of the type that `flags` asks for; empty when there is none.
Bytes registryValue(const std::wstring& key, const wchar_t* value, DWORD flags) {
  DWORD size = 0;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value, flags, nullptr, nullptr, &size) != ERROR_SUCCESS) return {};
  Bytes data(size);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value, flags, nullptr, data.data(), &size) != ERROR_SUCCESS)
    return {};
  data.resize(size);
  return data;
}

std::string registryText(const std::wstring& key, const wchar_t* value) {
  const std::string text = toUtf8(registryValue(key, value, RRF_RT_REG_SZ));
  return text.substr(0, text.find('\0'));
}

// The names of the card types.
std::vector<std::wstring> cardTypeNames() {
  std::vector<std::wstring> names;
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kCardTypesKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return names;
  std::wstring name(256, L'\0');
  auto length = static_cast<DWORD>(name.size());
  while (RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name.data(), &length, nullptr, nullptr, nullptr,
                       nullptr) == ERROR_SUCCESS) {
    names.push_back(name.substr(0, length));
    length = static_cast<DWORD>(name.size());
  }
  RegCloseKey(key);
  return names;
}

}  // namespace

std::string systemFolder() {
  std::wstring folder(MAX_PATH, L'\0');
  folder.resize(GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size())));
  return toUtf8(folder);
}

std::vector<CardType> registeredCardTypes() {
  std::vector<CardType> types;
  for (const std::wstring& name : cardTypeNames()) {
    const std::wstring key = kCardTypesKey + (L'\\' + name);
    types.push_back({toUtf8(name), registryValue(key, L"ATR", RRF_RT_REG_BINARY),
                     registryValue(key, L"ATRMask", RRF_RT_REG_BINARY), registryText(key, L"80000001"),
                     registryText(key, L"Crypto Provider"), registryText(key, L"Smart Card Key Storage Provider")});
  }
  return types;
}

DriverChoice chooseDriver(const std::optional<std::string>& path, ByteView atr) {
  std::optional<CardType> match;
  for (const CardType& type : registeredCardTypes()) {
    if (!match && atrMatches(atr, type)) match = type;
  }
  if (path) {
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(toWide(*path), error);
    return {error ? *path : toUtf8(full.wstring()), match ? match->name : "Orvane", false};
  }
  if (!match)
    throw ToolError(ExitCode::kDriver, "the registry knows no card type with the ATR " + toHex(atr, " "),
                    "Install the minidriver for this card, or name its DLL with --driver.");
  if (match->driverPath.empty())
    throw ToolError(ExitCode::kDriver, "the registry entry \"" + match->name + "\" names no minidriver",
                    "\"orvane-card doctor\" says whose entry it is and what to do.");
  // The entry usually holds the bare file name. It stands for the system folder, where only administrators can put it;
  // searching for it anywhere else could load somebody else's library.
  const std::filesystem::path entry = toWide(match->driverPath);
  return {toUtf8((std::filesystem::path(toWide(systemFolder())) / entry).wstring()), match->name, true};
}

DriverModule::DriverModule(const std::string& path)
    : module_(LoadLibraryExW(toWide(path).c_str(), nullptr,
                             LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)) {
  if (!module_) {
    const DWORD error = GetLastError();
    const ToolError failure("LoadLibrary", error);
    throw ToolError(ExitCode::kDriver, "the minidriver \"" + path + "\" does not load: " + failure.what(),
                    failure.advice());
  }
  acquireContext_ = reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(
      reinterpret_cast<void*>(GetProcAddress(module_, "CardAcquireContext")));
  if (!acquireContext_) {
    FreeLibrary(module_);
    throw ToolError(
        ExitCode::kDriver, "\"" + path + "\" is no minidriver: it has no function CardAcquireContext",
        "Another library has that name. Install the minidriver again, or name the right one with --driver.");
  }
}

DriverModule::~DriverModule() { FreeLibrary(module_); }

std::string fileVersion(const std::string& path) {
  const std::wstring wide = toWide(path);
  const DWORD size = GetFileVersionInfoSizeW(wide.c_str(), nullptr);
  if (!size) return {};
  Bytes data(size);
  void* value = nullptr;
  UINT length = 0;
  if (!GetFileVersionInfoW(wide.c_str(), 0, size, data.data()) ||
      !VerQueryValueW(data.data(), L"\\", &value, &length) || length < sizeof(VS_FIXEDFILEINFO))
    return {};
  const auto* info = static_cast<const VS_FIXEDFILEINFO*>(value);
  return std::to_string(HIWORD(info->dwFileVersionMS)) + "." + std::to_string(LOWORD(info->dwFileVersionMS)) + "." +
         std::to_string(HIWORD(info->dwFileVersionLS)) + "." + std::to_string(LOWORD(info->dwFileVersionLS));
}

}  // namespace orvane::tool
