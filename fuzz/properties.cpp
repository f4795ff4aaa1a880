// Properties of the card and of its containers.
#include <algorithm>
#include <cstring>
#include <memory>

#include "scene.h"

namespace orvane::fuzz {

using test::kPoison;
using test::kPoison32;

void fuzzProperties(Input input) {
  startInput(input);
  Reader reader(input);
  const std::string narrow = reader.textUntil('\n');
  const std::wstring name(narrow.begin(), narrow.end());
  const DWORD flags = reader.byte();
  const DWORD size = reader.byte();
  std::string data = reader.rest();
  // The entry points that take a text look for its end, as the interface demands of callers.
  data.append(2, '\0');
  data.resize((data.size() + 1) / 2 * 2);

  CARD_DATA record = acquired();
  setLog(flags % 4 == 0);

  const auto get = [&](const auto& call) {
    // Exactly as long as stated, so that a byte too many is noticed.
    const std::unique_ptr<BYTE[]> buffer(new BYTE[size]);
    std::fill_n(buffer.get(), size, kPoison);
    DWORD length = kPoison32;
    const DWORD status = call(buffer.get(), &length);
    require(isKnownStatus(status), "an unknown status");
    if (status == 0) {
      require(length <= size, "more than there is room for");
    } else if (length == kPoison32) {
      require(std::all_of(buffer.get(), buffer.get() + size, [](BYTE byte) { return byte == kPoison; }),
              "an output of a failed call");
    }
    return std::pair(status, std::string(reinterpret_cast<const char*>(buffer.get()), size));
  };
  get([&](PBYTE buffer, PDWORD length) {
    return record.pfnCardGetProperty(&record, name.c_str(), buffer, size, length, flags);
  });
  DWORD length = 0;
  require(isKnownStatus(record.pfnCardGetProperty(&record, name.c_str(), nullptr, size, &length, flags)), "unknown");

  const auto [status, bytes] = get([&](PBYTE buffer, PDWORD bufferLength) {
    return record.pfnCardGetContainerProperty(&record, static_cast<BYTE>(flags), name.c_str(), buffer, size,
                                              bufferLength, 0);
  });
  if (status == 0 && size >= sizeof(CONTAINER_INFO) && std::wstring_view(name.c_str()) == CCP_CONTAINER_INFO) {
    CONTAINER_INFO info;
    std::memcpy(&info, bytes.data(), sizeof(info));
    release(info.pbSigPublicKey, info.cbSigPublicKey);
    release(info.pbKeyExPublicKey, info.cbKeyExPublicKey);
  }

  auto* const value = reinterpret_cast<PBYTE>(data.data());
  const auto valueSize = static_cast<DWORD>(data.size());
  require(isKnownStatus(record.pfnCardSetProperty(&record, name.c_str(), value, valueSize, flags)), "unknown");
  require(isKnownStatus(
              record.pfnCardSetContainerProperty(&record, static_cast<BYTE>(flags), name.c_str(), value, valueSize, 0)),
          "unknown");
  // What was set must not break what is asked.
  get([&](PBYTE buffer, PDWORD bufferLength) {
    return record.pfnCardGetProperty(&record, CP_CARD_SERIAL_NO, buffer, size, bufferLength, 0);
  });
  setLog(false);
  require(CardDeleteContext(&record) == 0, "a context that cannot be deleted");
  endInput();
}

}  // namespace orvane::fuzz
