#include "input.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/windows_api.h"
#include "text/bytes.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

HANDLE inputHandle() { return GetStdHandle(STD_INPUT_HANDLE); }

// Console input without echo until this goes out of scope.
class QuietConsole {
 public:
  QuietConsole() {
    GetConsoleMode(inputHandle(), &mode_);
    SetConsoleMode(inputHandle(),
                   (mode_ & ~static_cast<DWORD>(ENABLE_ECHO_INPUT)) | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT);
  }
  ~QuietConsole() { SetConsoleMode(inputHandle(), mode_); }
  QuietConsole(const QuietConsole&) = delete;
  QuietConsole& operator=(const QuietConsole&) = delete;

 private:
  DWORD mode_ = 0;
};

void showPrompt(const std::string& prompt) {
  const std::wstring wide = toWide(prompt);
  DWORD written = 0;
  // The prompt goes to the console itself, so that it shows even when both output streams are redirected.
  const HANDLE console = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     nullptr, OPEN_EXISTING, 0, nullptr);
  if (console == INVALID_HANDLE_VALUE) return;
  WriteConsoleW(console, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
  CloseHandle(console);
}

std::optional<char> readByte() {
  char byte = 0;
  DWORD count = 0;
  if (!ReadFile(inputHandle(), &byte, 1, &count, nullptr) || count == 0) return std::nullopt;
  return byte;
}

std::optional<wchar_t> readConsoleUnit() {
  wchar_t unit = 0;
  DWORD count = 0;
  if (!ReadConsoleW(inputHandle(), &unit, 1, &count, nullptr) || count == 0) return std::nullopt;
  return unit;
}

ToolError noPin() {
  return {ExitCode::kPinNeeded, "a PIN is needed, but standard input has ended",
          "Write the PIN, followed by a newline, to standard input, or run the program on a console."};
}

// What is typed or piped as a PIN; overwritten before its memory is given back, also while it grows.
template <typename Unit>
using WipedLine = std::vector<Unit, WipingAllocator<Unit>>;

WipedLine<char> readTypedPin(const std::string& prompt) {
  showPrompt(prompt);
  WipedLine<wchar_t> typed;
  {
    const QuietConsole quiet;
    std::optional<wchar_t> unit = readConsoleUnit();
    if (!unit) throw noPin();
    for (; unit && *unit != L'\n'; unit = readConsoleUnit()) {
      if (*unit != L'\r') typed.push_back(*unit);
    }
  }
  showPrompt("\r\n");
  // PINs are narrow characters for the minidriver; what is typed beyond ASCII becomes UTF-8, which readPin refuses.
  const auto length = static_cast<int>(typed.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, typed.data(), length, nullptr, 0, nullptr, nullptr);
  WipedLine<char> pin(static_cast<std::size_t>(size));
  WideCharToMultiByte(CP_UTF8, 0, typed.data(), length, pin.data(), size, nullptr, nullptr);
  return pin;
}

std::string_view viewOf(const WipedLine<char>& line) { return {line.data(), line.size()}; }

// No value at the end of the input.
std::optional<WipedLine<char>> readPipedLine() {
  std::optional<char> byte = readByte();
  if (!byte) return std::nullopt;
  WipedLine<char> line;
  for (; byte && *byte != '\n'; byte = readByte()) line.push_back(*byte);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  // Windows PowerShell begins what it pipes with a mark when it was told to send UTF-8, and editors begin files with
  // it.
  line.erase(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(byteOrderMarkSize(viewOf(line))));
  return line;
}

WipedLine<char> readPipedPin() {
  std::optional<WipedLine<char>> line = readPipedLine();
  if (!line) throw noPin();
  return std::move(*line);
}

}  // namespace

bool isInputConsole() {
  DWORD mode = 0;
  return GetConsoleMode(inputHandle(), &mode) != 0;
}

bool readInputLine(std::string& line, const std::string& prompt) {
  line.clear();
  if (isInputConsole()) {
    showPrompt(prompt);
    std::wstring wide;
    std::optional<wchar_t> unit = readConsoleUnit();
    if (!unit || *unit == 0x1A) return false;  // Ctrl+Z ends console input
    for (; unit && *unit != L'\n'; unit = readConsoleUnit()) {
      if (*unit != L'\r') wide += *unit;
    }
    line = toUtf8(wide);
    return true;
  }
  std::optional<char> byte = readByte();
  if (!byte) return false;
  for (; byte && *byte != '\n'; byte = readByte()) line += *byte;
  if (line.ends_with('\r')) line.pop_back();
  line.erase(0, byteOrderMarkSize(line));
  return true;
}

SecretText readPin(const std::string& prompt, PinLength length) {
  const WipedLine<char> pin = isInputConsole() ? readTypedPin(prompt) : readPipedPin();
  requirePossiblePin(viewOf(pin), length);
  return {pin.data(), pin.size()};
}

std::vector<SecretText> readFurtherLines() {
  constexpr std::size_t kMostLines = 2;
  std::vector<SecretText> lines;
  while (lines.size() < kMostLines) {
    const std::optional<WipedLine<char>> line = readPipedLine();
    if (!line) break;
    if (!line->empty()) lines.emplace_back(line->data(), line->size());
  }
  return lines;
}

}  // namespace orvane::tool
