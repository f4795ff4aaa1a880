// Appending to a file that other threads and processes append to as well.
#ifndef ORVANE_PLATFORM_APPEND_FILE_H
#define ORVANE_PLATFORM_APPEND_FILE_H

#include <string_view>

namespace orvane {

// appendToFile opens `path` (made if it does not exist, shared with other readers and writers), writes `bytes` at its
// end with one call of the system, which no other writer's bytes can come between, and closes it. Returns false when
// the file cannot be opened. A failing write is not reported.
//
// The C library's append mode would not do: on Windows it seeks to the end and then writes, and two writers can meet
// there.
bool appendToFile(const char* path, std::string_view bytes) noexcept;

}  // namespace orvane

#endif  // ORVANE_PLATFORM_APPEND_FILE_H
