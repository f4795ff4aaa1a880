#include "softtoken/token_folder.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace orvane::softtoken {
namespace {

constexpr const char* kDescription = "/token.conf";
constexpr int kDefaultTries = 8;

struct Description {
  std::string pin;
  std::string soPin;
  int tries = kDefaultTries;
  int soTries = kDefaultTries;
};

bool readFile(const std::string& path, Bytes& content) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  content.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}

bool parseNumber(const std::string& text, int& number) {
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

bool parseCredentialId(const std::string& text, std::uint8_t (&id)[16]) {
  if (text.size() != 2 * sizeof(id)) return false;
  for (std::size_t i = 0; i < sizeof(id); ++i) {
    const char* const digits = text.data() + 2 * i;
    const auto parsed = std::from_chars(digits, digits + 2, id[i], 16);
    if (parsed.ec != std::errc() || parsed.ptr != digits + 2) return false;
  }
  return true;
}

// The key's record is filled from its private key; the code of the size is 1 for 1024 bits, 2 for 2048 and so on.
bool readKey(const std::string& path, TokenKey& key) {
  Bytes der;
  RsaNumbers numbers;
  if (!readFile(path, der) || !readRsaPrivateKey(der, numbers)) return false;
  const std::size_t length = numbers.modulus.size();
  if (length % 128 != 0 || length > 512) return false;
  std::copy(numbers.modulus.begin(), numbers.modulus.end(), key.record.modulus);
  key.record.modulusLength = static_cast<std::uint32_t>(length);
  key.record.algorithm = static_cast<std::uint32_t>(length / 128);
  key.secret = makePrivateKey(numbers);
  return key.secret != nullptr;
}

// value: NAME USAGE CREDENTIAL-ID
bool addKey(const std::string& folder, const std::string& value, Token& token) {
  std::istringstream words(value);
  std::string name;
  std::string id;
  TokenKey key;
  if (!(words >> name >> key.record.keyUsage >> id) || !parseCredentialId(id, key.record.credentialId)) return false;
  if (!readKey(folder + "/" + name + ".key", key)) return false;
  Bytes certificate;
  if (readFile(folder + "/" + name + ".crt", certificate)) {
    OrvaneCertificate record{};
    if (certificate.size() > sizeof(record.certData)) return false;
    std::copy(certificate.begin(), certificate.end(), record.certData);
    record.certLength = static_cast<std::uint32_t>(certificate.size());
    CredentialId credentialId;
    std::copy(std::begin(key.record.credentialId), std::end(key.record.credentialId), credentialId.begin());
    token.certificates[credentialId] = record;
  }
  token.keys.push_back(key);
  return true;
}

bool readSetting(const std::string& folder, const std::string& name, const std::string& value, Token& token,
                 Description& description) {
  if (name == "key") return addKey(folder, value, token);
  if (name == "tries") return parseNumber(value, description.tries);
  if (name == "sotries") return parseNumber(value, description.soTries);
  if (name == "fips") {
    token.fips = value == "1";
    return value == "0" || value == "1";
  }
  if (name == "firmware") {
    token.firmwareVersion = value;
  } else if (name == "pin") {
    description.pin = value;
  } else if (name == "sopin") {
    description.soPin = value;
  } else {
    return false;
  }
  return true;
}

}  // namespace

bool isTokenFolder(const std::string& folder) {
  std::error_code error;
  return std::filesystem::is_regular_file(folder + kDescription, error);
}

bool readTokenFolder(const std::string& folder, Token& token, std::string& problem) {
  const std::string path = folder + kDescription;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    problem = path + ": cannot be read";
    return false;
  }
  token = Token{};
  Description description;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line.front() == '#') continue;
    const std::size_t equals = line.find('=');
    const std::string name = line.substr(0, equals);
    if (equals == std::string::npos || !readSetting(folder, name, line.substr(equals + 1), token, description)) {
      problem = path;
      problem.append(": line ").append(std::to_string(number)).append(" (").append(name);
      problem.append("): not understood, or its files cannot be used");
      return false;
    }
  }
  token.userPin = Pin(description.pin, description.tries);
  token.soPin = Pin(description.soPin, description.soTries);
  return true;
}

}  // namespace orvane::softtoken
