#include "output.h"

#include <algorithm>

#include "card/pin_rules.h"
#include "platform/windows_api.h"
#include "text/utf.h"

namespace orvane::tool {
namespace {

bool isConsole(HANDLE stream) {
  DWORD mode = 0;
  return GetConsoleMode(stream, &mode) != 0;
}

// Whether all of it could be written.
bool writeBytes(HANDLE stream, const void* data, std::size_t size) {
  const auto* rest = static_cast<const std::uint8_t*>(data);
  while (size) {
    DWORD written = 0;
    const auto part = static_cast<DWORD>(std::min<std::size_t>(size, 1U << 20));
    if (!WriteFile(stream, rest, part, &written, nullptr) || !written) return false;
    rest += written;
    size -= written;
  }
  return true;
}

bool writeText(DWORD streamId, std::string_view utf8) {
  const HANDLE stream = GetStdHandle(streamId);
  if (!isConsole(stream)) {
    return writeBytes(stream, utf8.data(), utf8.size());
  }
  const std::wstring wide = toWide(utf8);
  for (std::size_t start = 0; start < wide.size();) {
    DWORD written = 0;
    const auto part = static_cast<DWORD>(std::min<std::size_t>(wide.size() - start, 8192));
    if (!WriteConsoleW(stream, wide.data() + start, part, &written, nullptr) || !written) return false;
    start += written;
  }
  return true;
}

}  // namespace

void Output::text(std::string_view utf8) const {
  if (!json()) write(utf8);
}

void Output::document(const Json& document) const {
  if (!json()) return;
  const int indent = format_ == OutputFormat::kJson ? 2 : -1;
  // Card data may hold any bytes; those that are no UTF-8 are replaced rather than refused.
  write(document.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n");
}

void Output::raw(ByteView data) const {
  if (json()) throw ToolError(ExitCode::kUsage, "raw output and --json do not go together");
  if (!writeBytes(GetStdHandle(STD_OUTPUT_HANDLE), data.data(), data.size())) isClosed_ = true;
}

void Output::write(std::string_view utf8) const {
  if (!isClosed_ && !writeText(STD_OUTPUT_HANDLE, utf8)) isClosed_ = true;
}

void Output::message(std::string_view utf8) const { writeText(STD_ERROR_HANDLE, std::string(utf8) + "\n"); }

void Output::failure(const std::string& command, const ToolError& error) const {
  message("orvane-card: " + std::string(error.what()));
  const std::string attempts = attemptsText(error.status(), error.attempts());
  if (!attempts.empty()) message("  " + attempts);
  if (!error.advice().empty()) message("  " + error.advice());
  document(errorDocument(command, error));
}

Style Output::style() {
  const HANDLE stream = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (!GetConsoleMode(stream, &mode) || GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) != 0) return Style(false);
  return Style(SetConsoleMode(stream, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE);
}

std::size_t Output::width() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return 0;
  // The last column stays free: a line that fills it makes some consoles begin another one.
  return static_cast<std::size_t>(std::max(info.srWindow.Right - info.srWindow.Left, 1));
}

bool Output::onTerminal() { return isConsole(GetStdHandle(STD_OUTPUT_HANDLE)); }

}  // namespace orvane::tool
