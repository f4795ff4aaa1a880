#include "softtoken/call_text.h"

#include <atomic>
#include <cstring>
#include <string_view>

namespace orvane::softtoken {
namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

std::atomic<bool> pinsHidden{false};

void appendHex(std::string& text, unsigned char byte) {
  text += kDigits[byte >> 4];
  text += kDigits[byte & 0xF];
}

std::string quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte > 0x7E || byte == '"' || byte == '\\') {
      quoted += "\\x";
      appendHex(quoted, byte);
    } else {
      quoted += character;
    }
  }
  return quoted + "\"";
}

}  // namespace

std::string quotedText(const char* text) { return text != nullptr ? quoted(text) : "null"; }

std::string pinText(const char* pin) { return pin != nullptr ? pinText(pin, std::strlen(pin)) : "null"; }

std::string pinText(const char* pin, std::size_t length) { return pinsHidden ? "\"hidden\"" : quoted({pin, length}); }

void hidePins(bool hidden) { pinsHidden = hidden; }

std::string bytesText(const unsigned char* bytes, int length) {
  if (bytes == nullptr) return "null";
  if (length <= 0) return "\"\"";
  std::string text;
  for (int i = 0; i < length; ++i) appendHex(text, bytes[i]);
  return text;
}

std::string handleText(std::uintptr_t handle) {
  if (handle == 0) return "null";
  std::string digits;
  for (; handle != 0; handle >>= 4) digits.insert(digits.begin(), kDigits[handle & 0xF]);
  return "0x" + digits;
}

std::string pointerText(const void* pointer) { return handleText(reinterpret_cast<std::uintptr_t>(pointer)); }

std::string boolText(bool value) { return value ? "true" : "false"; }

std::string counterText(const int* counter) { return counter == nullptr ? "null" : std::to_string(*counter); }

std::string callText(const char* name, std::initializer_list<std::string> arguments) {
  std::string text = name;
  text += '(';
  const char* separator = "";
  for (const std::string& argument : arguments) {
    text += separator;
    text += argument;
    separator = ", ";
  }
  return text + ')';
}

}  // namespace orvane::softtoken
