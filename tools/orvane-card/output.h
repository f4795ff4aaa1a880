// What the program prints: text for people, or JSON for programs.
#ifndef ORVANE_TOOL_OUTPUT_H
#define ORVANE_TOOL_OUTPUT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "text/bytes.h"
#include "text/json.h"
#include "text/style.h"

namespace orvane::tool {

enum class OutputFormat { kText, kJson, kJsonLines };

// Output writes UTF-8 to the standard streams: as wide characters on a console, as bytes into a file or pipe. Nothing
// is buffered, so what was printed is there even if the process dies.
class Output {
 public:
  // kJson prints documents over several lines, kJsonLines each on one line.
  explicit Output(OutputFormat format) : format_(format) {}

  // text prints for people; nothing when the output is JSON.
  void text(std::string_view utf8) const;

  // document prints a JSON document and a newline; nothing when the output is text.
  void document(const Json& json) const;

  // raw writes bytes unchanged to standard output. Throws ToolError (ExitCode::kUsage) when the output is JSON.
  void raw(ByteView data) const;

  // message prints one line to standard error in every format.
  void message(std::string_view utf8) const;

  // failure reports an error: message, what it means for the PIN attempts and advice on standard error, and the
  // document on standard output when the output is JSON.
  void failure(const std::string& command, const ToolError& error) const;

  // isClosed says that standard output took no more: its reader has gone, or the disk is full.
  bool isClosed() const { return isClosed_; }

  bool json() const { return format_ != OutputFormat::kText; }

  // style gives colours when standard output is a console that shows them, unless the environment variable NO_COLOR is
  // set.
  static Style style();

  // width gives the columns of the console that is standard output; 0 when it is none.
  static std::size_t width();

  // onTerminal says whether standard output is a console.
  static bool onTerminal();

 private:
  void write(std::string_view utf8) const;

  OutputFormat format_;
  mutable bool isClosed_ = false;
};

}  // namespace orvane::tool

#endif
