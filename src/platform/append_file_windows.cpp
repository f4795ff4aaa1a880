#include "platform/append_file.h"
#include "platform/windows_api.h"

namespace orvane {

bool appendToFile(const char* path, std::string_view bytes) noexcept {
  // Without the right to write elsewhere the system itself puts every write at the end.
  const HANDLE file = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
  return true;
}

}  // namespace orvane
