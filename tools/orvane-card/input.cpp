#include "input.h"

#include <optional>

#include "platform/windows_api.h"
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

void appendOrThrow(Secret& secret, char byte) {
  if (!secret.append(byte)) throw ToolError(ExitCode::kUsage, "the PIN is too long");
}

// PINs are narrow characters for the minidriver; one typed beyond ASCII goes in as UTF-8.
void appendUnit(Secret& secret, wchar_t unit) {
  const auto point = static_cast<std::uint16_t>(unit);
  if (point < 0x80) {
    appendOrThrow(secret, static_cast<char>(point));
  } else if (point < 0x800) {
    appendOrThrow(secret, static_cast<char>(0xC0 | point >> 6));
    appendOrThrow(secret, static_cast<char>(0x80 | (point & 0x3F)));
  } else {
    appendOrThrow(secret, static_cast<char>(0xE0 | point >> 12));
    appendOrThrow(secret, static_cast<char>(0x80 | (point >> 6 & 0x3F)));
    appendOrThrow(secret, static_cast<char>(0x80 | (point & 0x3F)));
  }
}

ToolError noPin() {
  return {ExitCode::kPinNeeded, "a PIN is needed, but standard input has ended",
          "Write the PIN, followed by a newline, to standard input, or run the program on a console."};
}

}  // namespace

bool Input::fromConsole() {
  DWORD mode = 0;
  return GetConsoleMode(inputHandle(), &mode) != 0;
}

bool Input::readLine(std::string& line, const std::string& prompt) {
  line.clear();
  if (fromConsole()) {
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
  return true;
}

void Input::readSecret(Secret& secret, const std::string& prompt) {
  secret.clear();
  if (fromConsole()) {
    showPrompt(prompt);
    {
      const QuietConsole quiet;
      std::optional<wchar_t> unit = readConsoleUnit();
      if (!unit) throw noPin();
      for (; unit && *unit != L'\n'; unit = readConsoleUnit()) {
        if (*unit != L'\r') appendUnit(secret, *unit);
      }
    }
    showPrompt("\r\n");
    return;
  }
  std::optional<char> byte = readByte();
  if (!byte) throw noPin();
  for (; byte && *byte != '\n'; byte = readByte()) {
    if (*byte != '\r') appendOrThrow(secret, *byte);
  }
}

}  // namespace orvane::tool
