#include "softtoken/token_store.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>

#include "softtoken/token_folder.h"

namespace orvane::softtoken {
namespace {

constexpr const char* kFolderVariable = "ORVANE_SOFTTOKEN_DIR";

// Names that could lead out of the folder are no serials, and a leading dot marks a folder that is still being written.
bool isSerial(const std::string& name) {
  return !name.empty() && name.front() != '.' && name.find_first_of("/\\:") == std::string::npos;
}

}  // namespace

std::vector<std::string> TokenStore::connectedSerials() {
  const std::lock_guard<std::mutex> lock(mutex);
  refreshFolder();
  std::set<std::string> serials;
  for (const auto& [serial, token] : inFolder) serials.insert(serial);
  for (const auto& [serial, token] : defined) {
    if (token.connected) {
      serials.insert(serial);
    } else {
      serials.erase(serial);
    }
  }
  return {serials.begin(), serials.end()};
}

void TokenStore::define(const std::string& serial, Token token) {
  const std::lock_guard<std::mutex> lock(mutex);
  defined[serial] = std::move(token);
}

void TokenStore::setFolder(const std::string& folder) {
  const std::lock_guard<std::mutex> lock(mutex);
  folderSet = true;
  folderPath = folder;
  inFolder.clear();
  unreadable.clear();
}

const OrvaneCertificate* TokenStore::keep(const OrvaneCertificate& certificate) {
  const std::lock_guard<std::mutex> lock(mutex);
  const std::string content(reinterpret_cast<const char*>(&certificate), sizeof(certificate));
  std::unique_ptr<OrvaneCertificate>& kept = certificates[content];
  if (!kept) kept = std::make_unique<OrvaneCertificate>(certificate);
  return kept.get();
}

void TokenStore::reset() {
  const std::lock_guard<std::mutex> lock(mutex);
  defined.clear();
  inFolder.clear();
  unreadable.clear();
  folderSet = false;
  folderPath.clear();
}

std::string TokenStore::currentFolder() const {
  if (folderSet) return folderPath;
  const char* const variable = std::getenv(kFolderVariable);
  return variable == nullptr ? std::string() : std::string(variable);
}

void TokenStore::refreshFolder() {
  const std::string folder = currentFolder();
  std::set<std::string> serials;
  for (const auto& [serial, token] : inFolder) serials.insert(serial);
  if (!folder.empty()) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
      serials.insert(entry->path().filename().string());
    }
  }
  for (const std::string& serial : serials) refreshFromFolder(folder, serial);
}

void TokenStore::refreshFromFolder(const std::string& folder, const std::string& serial) {
  if (folder.empty() || !isSerial(serial) || !isTokenFolder(folder + "/" + serial)) {
    inFolder.erase(serial);
    unreadable.erase(serial);
    return;
  }
  if (inFolder.count(serial) != 0 || unreadable.count(serial) != 0) return;
  Token token;
  std::string problem;
  if (readTokenFolder(folder + "/" + serial, token, problem)) {
    inFolder[serial] = std::move(token);
  } else {
    // There is no caller to tell: the library's list of tokens has no place for a broken one.
    std::cerr << "software token: " << problem << std::endl;
    unreadable.insert(serial);
  }
}

Token* TokenStore::findConnected(const std::string& serial) {
  const auto inMemory = defined.find(serial);
  if (inMemory != defined.end()) return inMemory->second.connected ? &inMemory->second : nullptr;
  refreshFromFolder(currentFolder(), serial);
  const auto found = inFolder.find(serial);
  return found == inFolder.end() ? nullptr : &found->second;
}

TokenStore& tokenStore() {
  static TokenStore* const store = new TokenStore;
  return *store;
}

}  // namespace orvane::softtoken
