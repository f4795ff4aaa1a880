#include "card/driver.h"

#include <filesystem>

#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

// An open registry key.
class RegistryKey {
 public:
  RegistryKey(HKEY parent, const wchar_t* name) {
    if (RegOpenKeyExW(parent, name, 0, KEY_READ, &key_) != ERROR_SUCCESS) key_ = nullptr;
  }
  ~RegistryKey() {
    if (key_) RegCloseKey(key_);
  }
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  explicit operator bool() const { return key_ != nullptr; }
  HKEY handle() const { return key_; }

  // The names of the keys below this one.
  std::vector<std::wstring> names() const {
    std::vector<std::wstring> all;
    std::wstring name(256, L'\0');
    for (DWORD index = 0;; ++index) {
      auto length = static_cast<DWORD>(name.size());
      if (RegEnumKeyExW(key_, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
        return all;
      all.push_back(name.substr(0, length));
    }
  }

  Bytes binary(const wchar_t* value) const { return read(value, RRF_RT_REG_BINARY); }

  std::string text(const wchar_t* value) const {
    const Bytes data = read(value, RRF_RT_REG_SZ);
    std::wstring wide;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) wide += static_cast<wchar_t>(readLittleEndian16(data, i));
    return toUtf8(wide.substr(0, wide.find(L'\0')));
  }

 private:
  Bytes read(const wchar_t* value, DWORD type) const {
    DWORD size = 0;
    if (RegGetValueW(key_, nullptr, value, type, nullptr, nullptr, &size) != ERROR_SUCCESS) return {};
    Bytes data(size);
    if (RegGetValueW(key_, nullptr, value, type, nullptr, data.data(), &size) != ERROR_SUCCESS) return {};
    data.resize(size);
    return data;
  }

  HKEY key_ = nullptr;
};

}  // namespace

std::string systemFolder() {
  std::wstring folder(MAX_PATH, L'\0');
  folder.resize(GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size())));
  return toUtf8(folder);
}

std::vector<CardType> registeredCardTypes() {
  const RegistryKey folder(HKEY_LOCAL_MACHINE, kCardTypesKey);
  std::vector<CardType> types;
  if (!folder) return types;
  for (const std::wstring& name : folder.names()) {
    const RegistryKey key(folder.handle(), name.c_str());
    if (key)
      types.push_back({toUtf8(name), key.binary(L"ATR"), key.binary(L"ATRMask"), key.text(L"80000001"),
                       key.text(L"Crypto Provider"), key.text(L"Smart Card Key Storage Provider")});
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
                    "The entry needs the value 80000001 with the DLL's name: install the minidriver again.");
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

std::string DriverModule::fileVersion(const std::string& path) {
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
