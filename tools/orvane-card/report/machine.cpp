#include "report/machine.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <system_error>

#include "card/certificate.h"
#include "card/driver.h"
#include "card/reader.h"
#include "doctor/installation.h"
#include "local_files.h"
#include "platform/windows_api.h"
#include "support/text_compare.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

struct RegistryPlace {
  const wchar_t* key;  // below HKEY_LOCAL_MACHINE
  const wchar_t* value;
};

constexpr RegistryPlace kPlaces[] = {
    {L"SOFTWARE\\Brightfold\\Orvane", L"logLevel"},
    {L"SYSTEM\\CurrentControlSet\\Control\\Lsa", L"RunAsPPL"},
    {L"SYSTEM\\CurrentControlSet\\Control\\CI\\Policy", L"VerifiedAndReputablePolicyState"},
    {L"SOFTWARE\\Policies\\Microsoft\\Windows\\CertProp", L"CertPropEnabled"},
    {L"SYSTEM\\CurrentControlSet\\Services\\SCardSvr", L"Start"},
    {L"SYSTEM\\CurrentControlSet\\Services\\CertPropSvc", L"Start"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"ProductName"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"DisplayVersion"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"CurrentBuild"},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"UBR"},
};

// {"type", "value"}: a text or a number as such, anything else in hexadecimal digits; null for a missing value.
Json valueAt(const RegistryPlace& place) {
  DWORD size = 0;
  DWORD type = 0;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, place.key, place.value, RRF_RT_ANY, &type, nullptr, &size) != ERROR_SUCCESS)
    return nullptr;
  Bytes data(size);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, place.key, place.value, RRF_RT_ANY, &type, data.data(), &size) != ERROR_SUCCESS)
    return nullptr;
  data.resize(size);
  if (type == REG_SZ) {
    const std::string text = toUtf8(data);
    return {{"type", "REG_SZ"}, {"value", text.substr(0, text.find('\0'))}};
  }
  if (type == REG_DWORD && size == sizeof(DWORD))
    return {{"type", "REG_DWORD"}, {"value", readLittleEndian32(data, 0)}};
  return {{"type", type}, {"value", toHex(data)}};
}

Json cardTypesReport() {
  Json list = Json::array();
  for (const CardType& type : registeredCardTypes()) {
    const bool fits = atrMatches(orvaneAtr(), type);
    if (!fits && !isMinidriverFile(type.driverPath)) continue;
    list.push_back({{"name", type.name},
                    {"fitsTheToken", fits},
                    {"ATR", toHex(type.atr, " ")},
                    {"ATRMask", toHex(type.mask, " ")},
                    {"80000001", type.driverPath},
                    {"Crypto Provider", type.cryptoProvider},
                    {"Smart Card Key Storage Provider", type.keyStorageProvider}});
  }
  return list;
}

Json fileReport(const LibraryFile& file) {
  Json report = {{"path", file.path},
                 {"found", file.found},
                 {"version", textOrNull(file.version)},
                 {"builtFor", file.pe ? Json(machineName(file.pe->machine)) : Json(nullptr)},
                 {"size", nullptr},
                 {"sha256", nullptr}};
  if (!file.found) return report;
  std::error_code error;
  const auto size = std::filesystem::file_size(toWide(file.path), error);
  if (!error) report["size"] = size;
  try {
    report["sha256"] = toHex(hashFile(findHashAlgorithm("sha256"), file.path));
  } catch (const ToolError& failure) {
    report["problem"] = failure.what();
  }
  return report;
}

std::string ownPath() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return toUtf8(path);
}

// A library that one in `folder` needs, where Windows would find it: beside that one, else in the system folder.
LibraryFile neededLibrary(const std::string& folder, const std::string& name) {
  LibraryFile beside = inspectLibrary(joinPath(folder, name));
  return beside.found ? beside : inspectLibrary(joinPath(systemFolder(), name));
}

void addUnlessKnown(std::vector<std::string>& names, const std::string& name) {
  const auto isSame = [&](const std::string& known) { return equalsIgnoreCase(known, name); };
  if (!name.empty() && std::none_of(names.begin(), names.end(), isSame)) names.push_back(name);
}

}  // namespace

Json registryReport() {
  Json values = Json::object();
  for (const RegistryPlace& place : kPlaces)
    values["HKLM\\" + toUtf8(place.key) + "\\" + toUtf8(place.value)] = valueAt(place);
  return {{"cardTypes", cardTypesReport()}, {"values", std::move(values)}};
}

Json filesReport(const std::string& driverPath) {
  const std::string folder = toUtf8(std::filesystem::path(toWide(driverPath)).parent_path().wstring());
  const LibraryFile driver = inspectLibrary(driverPath);
  const LibraryFile library = neededLibrary(folder, std::string(kTokenLibrary));
  Json list = Json::array();
  for (const LibraryFile& file : {driver, library, inspectLibrary(ownPath())}) list.push_back(fileReport(file));
  std::vector<std::string> names = {std::string(kTokenLibrary)};
  for (const LibraryFile& file : {driver, library}) {
    if (!file.pe) continue;
    for (const std::string& name : file.pe->imports) {
      const std::size_t known = names.size();
      if (!isApiSet(name)) addUnlessKnown(names, name);
      if (names.size() != known) list.push_back(fileReport(neededLibrary(folder, name)));
    }
  }
  return list;
}

std::vector<std::string> accountNames() {
  constexpr DWORD kLongest = 1024;
  std::vector<std::string> names;
  std::wstring name(kLongest, L'\0');
  DWORD length = kLongest;
  // The length counts the NUL.
  if (GetUserNameW(name.data(), &length) && length) addUnlessKnown(names, toUtf8(name.substr(0, length - 1)));
  for (const wchar_t* variable : {L"USERNAME", L"USERPROFILE"}) {
    std::wstring value(kLongest, L'\0');
    const DWORD size = GetEnvironmentVariableW(variable, value.data(), kLongest);
    if (size == 0 || size >= kLongest) continue;
    value.resize(size);
    addUnlessKnown(names, toUtf8(std::filesystem::path(value).filename().wstring()));
  }
  return names;
}

std::vector<std::string> computerNames() {
  std::vector<std::string> names;
  for (const COMPUTER_NAME_FORMAT form :
       {ComputerNameDnsFullyQualified, ComputerNameDnsHostname, ComputerNameNetBIOS, ComputerNameDnsDomain}) {
    std::array<wchar_t, 1024> name{};
    auto length = static_cast<DWORD>(name.size());
    if (GetComputerNameExW(form, name.data(), &length)) addUnlessKnown(names, toUtf8({name.data(), length}));
  }
  return names;
}

}  // namespace orvane::tool
