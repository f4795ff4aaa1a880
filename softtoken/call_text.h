// Texts of recorded calls, in the notation that softtoken_control.h describes.
#ifndef ORVANE_SOFTTOKEN_CALL_TEXT_H
#define ORVANE_SOFTTOKEN_CALL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace orvane::softtoken {

// A zero-terminated text in quotes, with escapes; null for a null pointer.
std::string quotedText(const char* text);

// The same for a PIN, which is not looked at while PINs are hidden: its text is then "hidden".
std::string pinText(const char* pin);
// The same for a PIN of `length` bytes, in which a NUL is a byte like others.
std::string pinText(const char* pin, std::size_t length);
// Hides PINs from now on, or shows them again. Any thread may call.
void hidePins(bool hidden);

// Upper-case hexadecimal without separators; null for a null pointer, "" (two quotes) for no bytes.
std::string bytesText(const unsigned char* bytes, int length);

// 0x and upper-case hexadecimal; null for 0.
std::string handleText(std::uintptr_t handle);
// The same for a pointer.
std::string pointerText(const void* pointer);

// true or false.
std::string boolText(bool value);

// The value of an in/out counter; null for a null pointer.
std::string counterText(const int* counter);

// name(argument, argument, ...)
std::string callText(const char* name, std::initializer_list<std::string> arguments);

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_CALL_TEXT_H
