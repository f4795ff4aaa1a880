#include "platform/windows_api.h"
#include "text/utf.h"

namespace orvane::tool {
namespace {

std::wstring decoded(UINT codePage, std::string_view text) {
  const auto length = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), length, wide.data(), size);
  return wide;
}

}  // namespace

std::wstring toWide(std::string_view text) { return decoded(CP_UTF8, text); }

std::string fromCodePage(std::string_view text) { return toUtf8(decoded(CP_ACP, text)); }

}  // namespace orvane::tool
