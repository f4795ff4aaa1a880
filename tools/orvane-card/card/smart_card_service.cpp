#include "card/smart_card_service.h"

#include <algorithm>

#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr LONG kNoReaders = static_cast<LONG>(SCARD_E_NO_READERS_AVAILABLE);

// The names of all readers as the service lists them: each ended by a NUL, the list by another.
std::vector<std::wstring> readerNames(SCARDCONTEXT context) {
  DWORD length = 0;
  LONG result = SCardListReadersW(context, nullptr, nullptr, &length);
  if (result == kNoReaders) return {};
  check("SCardListReaders", result);
  std::wstring list(length, L'\0');
  result = SCardListReadersW(context, nullptr, list.data(), &length);
  if (result == kNoReaders) return {};
  check("SCardListReaders", result);

  std::vector<std::wstring> names;
  for (std::size_t start = 0; start < length && list[start];) {
    const std::size_t end = list.find(L'\0', start);
    names.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

}  // namespace

void check(const char* call, LONG result) {
  if (result != SCARD_S_SUCCESS) throw ToolError(call, static_cast<std::uint32_t>(result));
}

SmartCardService::SmartCardService() {
  const LONG result = SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context_);
  if (result != SCARD_S_SUCCESS)
    throw ToolError("SCardEstablishContext", static_cast<std::uint32_t>(result)).withExitCode(ExitCode::kNoCard);
}

SmartCardService::~SmartCardService() { SCardReleaseContext(context_); }

std::vector<Reader> SmartCardService::readers() const {
  const std::vector<std::wstring> names = readerNames(context_);
  if (names.empty()) return {};
  std::vector<SCARD_READERSTATEW> states(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    states[i].szReader = names[i].c_str();
    states[i].dwCurrentState = SCARD_STATE_UNAWARE;
  }
  check("SCardGetStatusChange", SCardGetStatusChangeW(context_, 0, states.data(), static_cast<DWORD>(states.size())));

  std::vector<Reader> readers;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const SCARD_READERSTATEW& state = states[i];
    Reader reader;
    reader.name = toUtf8(names[i]);
    reader.cardPresent = state.dwEventState & SCARD_STATE_PRESENT;
    reader.exclusive = state.dwEventState & SCARD_STATE_EXCLUSIVE;
    reader.mute = state.dwEventState & SCARD_STATE_MUTE;
    if (reader.cardPresent)
      reader.atr.assign(state.rgbAtr, state.rgbAtr + std::min<std::size_t>(state.cbAtr, sizeof state.rgbAtr));
    readers.push_back(std::move(reader));
  }
  return readers;
}

}  // namespace orvane::tool
