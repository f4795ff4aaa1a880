#include "local_files.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

std::filesystem::path toPath(const std::string& path) { return toWide(path); }

ToolError cannot(const std::string& action, const std::string& path) {
  return {ExitCode::kLocalFile, "cannot " + action + " \"" + path + "\""};
}

}  // namespace

Bytes readLocalFile(const std::string& path) {
  Bytes data;
  forEachPart(path, [&data](ByteView part) { data.insert(data.end(), part.begin(), part.end()); });
  return data;
}

void forEachPart(const std::string& path, const std::function<void(ByteView)>& take) {
  constexpr std::size_t kPartSize = 1U << 16;
  std::ifstream file(toPath(path), std::ios::binary);
  if (!file) throw cannot("open", path);
  Bytes part(kPartSize);
  while (file) {
    file.read(reinterpret_cast<char*>(part.data()), static_cast<std::streamsize>(part.size()));
    take(ByteView(part).first(static_cast<std::size_t>(file.gcount())));
  }
  if (!file.eof()) throw cannot("read", path);
}

void writeLocalFile(const std::string& path, ByteView data) {
  std::ofstream file(toPath(path), std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  file.close();
  if (!file) throw cannot("write", path);
}

void createFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(toPath(path), error);
  if (error) throw cannot("create the folder", path);
}

std::string joinPath(const std::string& folder, const std::string& name) {
  return toUtf8((toPath(folder) / toPath(name)).wstring());
}

}  // namespace orvane::tool
