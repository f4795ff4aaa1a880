#include "machine.h"

#include <windows.h>

#include <cstdio>

namespace orvane::trial {
namespace {

// Made by the tests' RegistryView.
constexpr const wchar_t* kTestKeys = L"Software\\Brightfold Orvane tests";

template <typename Function>
Function* systemFunction(const wchar_t* library, const char* name) {
  const HMODULE module = GetModuleHandleW(library);
  return module != nullptr ? reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)))
                           : nullptr;
}

bool isWine() { return systemFunction<void>(L"ntdll.dll", "wine_get_version") != nullptr; }

const char* architectureName(USHORT machine) {
  switch (machine) {
    case IMAGE_FILE_MACHINE_ARM64:
      return "ARM64";
    case IMAGE_FILE_MACHINE_AMD64:
      return "x64";
    case IMAGE_FILE_MACHINE_I386:
      return "x86";
    default:
      return "another";
  }
}

// The architecture that this program was built for.
USHORT ownMachine() {
  const auto* const base = reinterpret_cast<const char*>(GetModuleHandleW(nullptr));
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const void* const headers = base + dos->e_lfanew;
  return static_cast<const IMAGE_NT_HEADERS*>(headers)->FileHeader.Machine;
}

// The machine's own, whatever this program is emulated as; the program's own if the system cannot tell.
USHORT nativeMachine() {
  USHORT process = 0;
  USHORT native = 0;
  auto* const ask = systemFunction<BOOL WINAPI(HANDLE, USHORT*, USHORT*)>(L"kernel32.dll", "IsWow64Process2");
  return ask != nullptr && ask(GetCurrentProcess(), &process, &native) != FALSE ? native : ownMachine();
}

// Windows' version as it is, not as old programs are told.
std::string windowsVersion() {
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  auto* const ask = systemFunction<LONG WINAPI(OSVERSIONINFOW*)>(L"ntdll.dll", "RtlGetVersion");
  if (ask == nullptr || ask(&version) != 0) return "unknown";
  std::string text = std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                     std::to_string(version.dwBuildNumber);
  DWORD revision = 0;
  DWORD size = sizeof(revision);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"UBR", RRF_RT_REG_DWORD,
                   nullptr, &revision, &size) == ERROR_SUCCESS) {
    text += "." + std::to_string(revision);
  }
  return text + (isWine() ? " (not a real Windows: Wine)" : "");
}

bool isElevated() {
  HANDLE token = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) == FALSE) return false;
  TOKEN_ELEVATION elevation{};
  DWORD size = sizeof(elevation);
  const BOOL known = GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size);
  CloseHandle(token);
  return known != FALSE && elevation.TokenIsElevated != 0;
}

// Adds a key, its values and the keys below it.
void addKey(const std::wstring& path, std::string& text) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) return;
  text += "[" + toUtf8(path) + "]\n";
  wchar_t name[512];
  for (DWORD index = 0;; ++index) {
    BYTE data[2048];
    DWORD length = 512;
    DWORD size = sizeof(data);
    DWORD type = 0;
    const LONG result = RegEnumValueW(key, index, name, &length, nullptr, &type, data, &size);
    if (result != ERROR_SUCCESS && result != ERROR_MORE_DATA) break;
    text += toUtf8(name) + ":" + std::to_string(type) + ":" + std::to_string(size);
    for (DWORD i = 0; result == ERROR_SUCCESS && i < size; ++i) text += " " + std::to_string(data[i]);
    text += "\n";
  }
  for (DWORD index = 0;; ++index) {
    DWORD length = 512;
    if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    addKey(path + L"\\" + name, text);
  }
  RegCloseKey(key);
}

std::wstring variable(const wchar_t* name) {
  wchar_t text[4096];
  const DWORD length = GetEnvironmentVariableW(name, text, 4096);
  return length < 4096 ? std::wstring(text, length) : std::wstring();
}

void replaceFolder(Redaction& redaction, const std::wstring& folder, const char* instead) {
  if (folder.size() < 4) return;
  wchar_t shorter[4096];
  const DWORD length = GetShortPathNameW(folder.c_str(), shorter, 4096);
  for (std::wstring form : {folder, std::wstring(shorter, length < 4096 ? length : 0)}) {
    redaction.replaceText(toUtf8(form), instead);
    for (wchar_t& c : form) {
      if (c == L'\\') c = L'/';
    }
    redaction.replaceText(toUtf8(form), instead);
  }
}

}  // namespace

std::string toUtf8(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  std::string result(text.size() * 3, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), static_cast<int>(result.size()),
                                       nullptr, nullptr);
  result.resize(static_cast<std::size_t>(size));
  return result;
}

std::string nowText() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  char text[64];
  std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u", unsigned{now.wYear}, unsigned{now.wMonth},
                unsigned{now.wDay}, unsigned{now.wHour}, unsigned{now.wMinute});
  return text;
}

std::vector<std::pair<std::string, std::string>> machineFacts() {
  const USHORT own = ownMachine();
  const USHORT native = nativeMachine();
  return {{"Windows", windowsVersion()},
          {"Processor", architectureName(native)},
          {"This kit", std::string(architectureName(own)) + (own == native ? "" : ", emulated by Windows")},
          {"Administrator's rights", isElevated() ? "yes (not needed)" : "no"}};
}

bool isExitCodeJudged() { return !(isWine() && ownMachine() == IMAGE_FILE_MACHINE_ARM64); }

std::string registrySnapshot() {
  std::string text;
  addKey(L"SOFTWARE\\Brightfold", text);
  addKey(L"SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards", text);
  return text;
}

bool removeTestKeys() {
  const bool wereThere = RegDeleteTreeW(HKEY_CURRENT_USER, kTestKeys) == ERROR_SUCCESS;
  return wereThere;
}

Redaction machineRedaction(const std::filesystem::path& kit) {
  Redaction redaction;
  // The longer ones first: a kit lies in its user's folder most of the time.
  replaceFolder(redaction, kit.wstring(), "(kit)");
  replaceFolder(redaction, variable(L"TEMP"), "(temporary folder)");
  replaceFolder(redaction, variable(L"USERPROFILE"), "(user's folder)");
  redaction.replaceName(toUtf8(variable(L"USERNAME")), "(user)");
  redaction.replaceName(toUtf8(variable(L"COMPUTERNAME")), "(machine)");
  redaction.replaceName(toUtf8(variable(L"USERDOMAIN")), "(domain)");
  return redaction;
}

}  // namespace orvane::trial
