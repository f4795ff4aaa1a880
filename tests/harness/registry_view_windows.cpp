#include "harness/registry_view.h"

// After the system's main header, on which it relies.
#include <bcrypt.h>

#include <stdexcept>

namespace orvane::test {
namespace {

constexpr const char* kViews = "Software\\Brightfold Orvane tests";

void require(LONG result, const char* what) {
  if (result != ERROR_SUCCESS) throw std::runtime_error(std::string(what) + ", error " + std::to_string(result));
}

// A volatile key: it is never written to the disk, and everything below it must be volatile, too.
HKEY volatileKey(HKEY parent, const char* name) {
  HKEY key = nullptr;
  require(RegCreateKeyExA(parent, name, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, nullptr),
          "the tests' own registry key cannot be made");
  return key;
}

// Cryptography looks its settings up in the machine's registry when it is first used, which is to be the real one.
void wakeCryptography() {
  for (const wchar_t* const algorithm : {BCRYPT_RSA_ALGORITHM, BCRYPT_SHA256_ALGORITHM, BCRYPT_RNG_ALGORITHM}) {
    BCRYPT_ALG_HANDLE handle = nullptr;
    if (BCryptOpenAlgorithmProvider(&handle, algorithm, nullptr, 0) >= 0) BCryptCloseAlgorithmProvider(handle, 0);
  }
}

}  // namespace

RegistryView::RegistryView() : name_(std::string(kViews) + "\\" + std::to_string(GetCurrentProcessId())) {
  wakeCryptography();
  // One that an earlier process with this number left is emptied.
  RegDeleteTreeA(HKEY_CURRENT_USER, name_.c_str());
  root_ = volatileKey(HKEY_CURRENT_USER, name_.c_str());
  require(RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_),
          "the machine's registry cannot be replaced for this process");
}

RegistryView::~RegistryView() {
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  RegCloseKey(root_);
  RegDeleteTreeA(HKEY_CURRENT_USER, name_.c_str());
  // Succeeds only for the last process that has a key here.
  RegDeleteKeyA(HKEY_CURRENT_USER, kViews);
}

void RegistryView::setValue(const char* key, const char* value, DWORD type, const void* data, DWORD size) {
  const HKEY opened = volatileKey(HKEY_LOCAL_MACHINE, key);
  const LONG result = RegSetValueExA(opened, value, 0, type, static_cast<const BYTE*>(data), size);
  RegCloseKey(opened);
  require(result, "a value in the tests' own registry cannot be set");
}

void RegistryView::removeValue(const char* key, const char* value) {
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, key, value);
}

}  // namespace orvane::test
