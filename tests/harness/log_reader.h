// Reading what the minidriver wrote to its log files.
#ifndef ORVANE_TESTS_HARNESS_LOG_READER_H
#define ORVANE_TESTS_HARNESS_LOG_READER_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace orvane::test {

// Splits a line of a log file (without its newline) into its level's first letter, a blank and the message: "D text"
// for DEBUG, "E text" for ERROR, "? line" for anything else, a prefix of the wrong form included.
std::string logLineText(const std::string& line);

// A line as logLineText gives it, and how many bytes all files had when it was added, if only one of them has grown
// since the reader took the lines before.
struct LogLine {
  std::uintmax_t position;
  std::string text;
};

// LogReader remembers how much of each file it has read.
class LogReader {
 public:
  // Starts anew with the files of this folder, which need not exist.
  void open(const std::filesystem::path& folder);
  // The lines added since the last call to all files, files in the order of their names. A last line without a newline
  // is shown as "? line".
  std::vector<LogLine> take();

 private:
  std::filesystem::path folder_;
  std::map<std::filesystem::path, std::uintmax_t> read_;
};

// The number of bytes in all files of a folder, which need not exist.
std::uintmax_t bytesIn(const std::filesystem::path& folder);

// The bytes of a file; none when it cannot be read.
std::string fileBytes(const std::filesystem::path& path);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_LOG_READER_H
