// Where a log line goes and what it looks like.
//
// Path: the temporary folder, then "/Brightfold/", the process name, "/", the local date and ".LOG".
// Line: day/month::hour:minute:second:milliseconds, "-> ->", the level's tag, the message, a newline.
#ifndef ORVANE_LOG_LOG_FILE_H
#define ORVANE_LOG_LOG_FILE_H

#include <cstddef>
#include <string>
#include <string_view>

#include "log/log.h"
#include "platform/windows_api.h"

namespace orvane {

// Size of every path buffer of the log, the terminating NUL included; longer paths are cut to it.
inline constexpr std::size_t kLogPathSize = 1024;

// writeLogLine appends one line to the log file of the current process and day. When the file cannot be opened it makes
// sure of the folders; a call that had to create one writes nothing (see createLogFolders). When the file still cannot
// be opened it prints "\nUnable to write log" on standard output. Nothing is reported to the caller. Below the
// temporary folder no link is followed: where one stands in a folder's or the file's place, or the file has another
// name elsewhere, the line is lost without a word and nothing is created (see platform/append_file.h).
void writeLogLine(LogLevel level, std::string_view message) noexcept;

// logLevelTag returns the fixed-width tag that stands before the message.
std::string_view logLevelTag(LogLevel level) noexcept;

// logLine puts a whole line together: prefix, "->", tag, message, newline. Throws std::bad_alloc.
std::string logLine(const SYSTEMTIME& now, LogLevel level, std::string_view message);

// logFileName returns the date as "YYYY-MM-DD" followed by ".LOG". Throws std::bad_alloc.
std::string logFileName(const SYSTEMTIME& now);

// getLogBaseFolderPath writes the temporary folder's path with its NUL to `buffer` of `size` bytes. Returns 0, or -1
// with an empty text in the buffer.
int getLogBaseFolderPath(char* buffer, std::size_t size) noexcept;

// isFolderExists tells whether `path` names an existing folder.
bool isFolderExists(const char* path) noexcept;

// createFolder creates the last folder of `path`; true if it did not exist before and exists now.
bool createFolder(const char* path) noexcept;

// createLogFolders walks the path that `base` (the temporary folder) and `below` (which ends in "/") make together,
// from its second character, creates the folder named up to each "/" and at last the whole path, and stops at the first
// one that it really created. Returns true in that case. One call therefore makes one folder: a fresh machine needs a
// log call for each missing level before the first line is written, and support people rely on that order when they see
// a folder without a file. What lies below `base` is created without following a link.
bool createLogFolders(const std::string& base, const std::string& below) noexcept;

}  // namespace orvane

#endif  // ORVANE_LOG_LOG_FILE_H
