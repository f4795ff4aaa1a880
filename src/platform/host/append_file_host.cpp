#include <fcntl.h>
#include <unistd.h>

#include "platform/append_file.h"

namespace orvane {

bool appendToFile(const char* path, std::string_view bytes) noexcept {
  const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0) return false;
  // A full disk loses the line, as documented; the result only has to be looked at for the compiler.
  const bool isWritten = write(file, bytes.data(), bytes.size()) >= 0;
  static_cast<void>(isWritten);
  close(file);
  return true;
}

}  // namespace orvane
