// Wide-character routines for 16-bit wchar_t.
//
// The native builds use -fshort-wchar, while the C library's routines work on 32-bit characters. The standard string
// class calls these six; defined in the program, they take the place of the C library's.
#include <cstddef>

extern "C" {

std::size_t wcslen(const wchar_t* text) {
  std::size_t length = 0;
  while (text[length] != L'\0') ++length;
  return length;
}

wchar_t* wmemcpy(wchar_t* target, const wchar_t* source, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) target[i] = source[i];
  return target;
}

wchar_t* wmemmove(wchar_t* target, const wchar_t* source, std::size_t count) {
  if (target < source) return wmemcpy(target, source, count);
  for (std::size_t i = count; i > 0; --i) target[i - 1] = source[i - 1];
  return target;
}

wchar_t* wmemset(wchar_t* target, wchar_t value, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) target[i] = value;
  return target;
}

int wmemcmp(const wchar_t* left, const wchar_t* right, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (left[i] != right[i]) return left[i] < right[i] ? -1 : 1;
  }
  return 0;
}

wchar_t* wmemchr(const wchar_t* text, wchar_t wanted, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (text[i] == wanted) return const_cast<wchar_t*>(text + i);
  }
  return nullptr;
}

}  // extern "C"
