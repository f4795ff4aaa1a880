#include "log_reader.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <string_view>
#include <system_error>

#include "platform/windows_api.h"

namespace orvane::test {
namespace {

// 'd' stands for a digit, everything else for itself.
constexpr std::string_view kPrefixForm = "dd/dd::dd:dd:dd:ddd-> ->";
constexpr std::string_view kDebugTag = "DEBUG ::=>";
constexpr std::string_view kErrorTag = "ERROR ::=>";

bool hasPrefixForm(std::string_view line) {
  if (line.size() < kPrefixForm.size()) return false;
  return std::equal(kPrefixForm.begin(), kPrefixForm.end(), line.begin(),
                    [](char form, char c) { return form == 'd' ? c >= '0' && c <= '9' : form == c; });
}

// The number of bytes in a file; none for anything else. By its path: what the folder itself says about a file that was
// just written may be old.
std::uintmax_t sizeOf(const std::filesystem::path& path) {
#ifdef _WIN32
  // The library's way is to open the file and to ask for all there is to know, which the emulated systems have to find
  // out from another process.
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE) return 0;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return 0;
  return std::uintmax_t{data.nFileSizeHigh} << 32U | data.nFileSizeLow;
#else
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? 0 : size;
#endif
}

}  // namespace

std::string logLineText(const std::string& line) {
  if (!hasPrefixForm(line)) return "? " + line;
  const std::string rest = line.substr(kPrefixForm.size());
  for (const std::string_view tag : {kDebugTag, kErrorTag}) {
    if (rest.compare(0, tag.size(), tag) == 0) return rest.substr(0, 1) + " " + rest.substr(tag.size());
  }
  return "? " + line;
}

void LogReader::open(const std::filesystem::path& folder) {
  folder_ = folder;
  read_.clear();
}

std::vector<LogLine> LogReader::take() {
  std::set<std::filesystem::path> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
    if (entry.is_regular_file()) files.insert(entry.path());
  }
  std::uintmax_t position = 0;
  for (const auto& [path, size] : read_) position += size;
  std::vector<LogLine> lines;
  for (const auto& path : files) {
    if (sizeOf(path) == read_[path]) continue;
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(read_[path]));
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::size_t begin = 0;
    while (begin < bytes.size()) {
      const std::size_t end = bytes.find('\n', begin);
      const std::string line = bytes.substr(begin, end == std::string::npos ? end : end - begin);
      lines.push_back({position + begin, end == std::string::npos ? "? " + line : logLineText(line)});
      begin = end == std::string::npos ? bytes.size() : end + 1;
    }
    read_[path] += begin;
    position += begin;
  }
  return lines;
}

std::uintmax_t bytesIn(const std::filesystem::path& folder) {
  std::uintmax_t bytes = 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    bytes += sizeOf(entry.path());
  }
  return bytes;
}

std::string fileBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace orvane::test
