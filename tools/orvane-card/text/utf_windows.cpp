#include "platform/windows_api.h"
#include "text/utf.h"

namespace orvane::tool {

std::wstring toWide(std::string_view text) {
  const auto length = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), size);
  return wide;
}

}  // namespace orvane::tool
