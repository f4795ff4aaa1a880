#include <cstddef>

#include "platform/append_file.h"
#include "platform/windows_api.h"

// After the system's main header, on which it relies.
#include <winternl.h>

namespace orvane {
namespace {

// OBJ_DONT_REPARSE, which not every edition of the header has: an opening that meets a reparse point of any kind, at
// any part of the name, fails. The kernel looks while it opens, so there is no moment for a swap, and it does so before
// anything behind the link is touched; a judgement of the opened handle would come after that.
constexpr ULONG kDontReparse = 0x1000;

class OpenHandle {
 public:
  OpenHandle() = default;
  explicit OpenHandle(HANDLE handle) : handle_(handle) {}
  OpenHandle(const OpenHandle&) = delete;
  OpenHandle& operator=(const OpenHandle&) = delete;
  ~OpenHandle() {
    if (isOpen()) CloseHandle(handle_);
  }

  bool isOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }
  void set(HANDLE handle) { handle_ = handle; }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

struct Opening {
  ACCESS_MASK access;
  ULONG share;
  ULONG disposition;
  ULONG options;
};
constexpr Opening kAppending = {  // Without the right to write elsewhere the system itself puts every write at the end.
    FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
    FILE_OPEN_IF,
    // Another process's oplock on the file is not waited for: who plants the file could take one and never let go.
    FILE_NON_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT | FILE_COMPLETE_IF_OPLOCKED};
// As CreateDirectory does it.
constexpr Opening kNewFolder = {FILE_LIST_DIRECTORY | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE, FILE_CREATE,
                                FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT | FILE_OPEN_FOR_BACKUP_INTENT};

// Opens or makes what is `below` the folder `base`. The kernel is asked directly, because only it takes a name that
// begins at an opened folder: a whole path would meet the system's own links, beginning with the drive letter.
//
// The folders in between are not held open one by one: that would not help, since an empty folder can be turned into a
// junction where it stands, whatever handles there are to it.
BelowResult openBelow(const char* base, std::string_view below, const Opening& opening, OpenHandle& opened) {
  constexpr int kMaximumUnits = 1024;  // as many as the log's paths have bytes at most
  const std::string narrow = windowsNameBelow(below);
  WCHAR units[kMaximumUnits];
  const int length = MultiByteToWideChar(AreFileApisANSI() != FALSE ? CP_ACP : CP_OEMCP, 0, narrow.data(),
                                         static_cast<int>(narrow.size()), units, kMaximumUnits);
  if (length == 0) return BelowResult::kFailed;
  const OpenHandle folder(CreateFileA(base, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!folder.isOpen()) return BelowResult::kFailed;

  UNICODE_STRING name{};
  name.Buffer = units;
  name.Length = static_cast<USHORT>(static_cast<std::size_t>(length) * sizeof(WCHAR));
  name.MaximumLength = name.Length;
  OBJECT_ATTRIBUTES attributes{};
  attributes.Length = sizeof(attributes);
  attributes.RootDirectory = folder.get();
  attributes.ObjectName = &name;
  attributes.Attributes = OBJ_CASE_INSENSITIVE | kDontReparse;
  IO_STATUS_BLOCK ignored{};
  HANDLE handle = INVALID_HANDLE_VALUE;
  const NTSTATUS status = NtCreateFile(&handle, opening.access, &attributes, &ignored, nullptr, FILE_ATTRIBUTE_NORMAL,
                                       opening.share, opening.disposition, opening.options, nullptr, 0);
  // Also where the handle is not to be used: every success brings one.
  if (status >= 0) opened.set(handle);
  return openResultOf(status);
}

}  // namespace

BelowResult appendBelow(const char* base, std::string_view below, std::string_view bytes) {
  if (!isFileName(below)) return BelowResult::kFailed;
  OpenHandle file;
  const BelowResult result = openBelow(base, below, kAppending, file);
  if (result != BelowResult::kDone) return result;
  FILE_STANDARD_INFO info{};
  if (GetFileInformationByHandleEx(file.get(), FileStandardInfo, &info, sizeof(info)) == FALSE ||
      !isOnlyHere(info.NumberOfLinks, info.DeletePending != FALSE)) {
    return BelowResult::kLedAway;
  }
  DWORD written = 0;
  WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  return BelowResult::kDone;
}

BelowResult createFolderBelow(const char* base, std::string_view below) {
  OpenHandle folder;
  return openBelow(base, below, kNewFolder, folder);
}

}  // namespace orvane
