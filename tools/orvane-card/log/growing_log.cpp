#include "log/growing_log.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>

#include "platform/windows_api.h"
#include "text/utf.h"

namespace orvane::tool {
namespace {

struct FileCloser {
  using pointer = HANDLE;
  void operator()(HANDLE file) const { CloseHandle(file); }
};
using File = std::unique_ptr<HANDLE, FileCloser>;

// Null when that fails.
File openShared(const std::wstring& path) {
  File file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file.get() == INVALID_HANDLE_VALUE) file.release();
  return file;
}

}  // namespace

std::optional<std::vector<LogLine>> GrowingLog::more() {
  constexpr std::uint64_t kLongestPiece = 1 << 20;
  // Opened anew each time: it may have been moved or deleted, and another one have its name.
  const File file = openShared(toWide(path_));
  BY_HANDLE_FILE_INFORMATION facts{};
  isReadable_ = file && GetFileInformationByHandle(file.get(), &facts);
  if (!isReadable_) {
    // One that is only locked for a moment goes on afterwards.
    std::error_code error;
    if (!std::filesystem::exists(toWide(path_), error)) wasGone_ = true;
    return std::nullopt;
  }

  const std::uint64_t size = joined(facts.nFileSizeHigh, facts.nFileSizeLow);
  const Identity identity{facts.dwVolumeSerialNumber, joined(facts.nFileIndexHigh, facts.nFileIndexLow)};
  std::vector<LogLine> lines;
  if (size < offset_ || wasGone_ || identity != identity_.value_or(identity)) {
    // What had no end in the old file is a line of its own.
    lines = reader_.finish();
    reader_ = LogReader();
    offset_ = 0;
    wasGone_ = false;
  }
  identity_ = identity;

  std::string bytes(static_cast<std::size_t>(std::min(size - offset_, kLongestPiece)), '\0');
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset_);
  place.OffsetHigh = static_cast<DWORD>(offset_ >> 32);
  DWORD count = 0;
  if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, &place)) count = 0;
  bytes.resize(count);
  offset_ += count;
  for (LogLine& line : reader_.add(bytes)) lines.push_back(std::move(line));
  if (bytes.empty() && lines.empty()) return std::nullopt;
  return lines;
}

}  // namespace orvane::tool
