#include "pins/memory_scan.h"
#include "platform/windows_api.h"

namespace orvane::test {

std::vector<MemoryBlock> writableMemory() {
  constexpr DWORD kWritable = PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  std::vector<MemoryBlock> blocks;
  MEMORY_BASIC_INFORMATION block{};
  const std::uint8_t* address = nullptr;
  while (VirtualQuery(address, &block, sizeof(block)) == sizeof(block)) {
    const bool isWritable = (block.Protect & kWritable) != 0 && (block.Protect & PAGE_GUARD) == 0;
    if (block.State == MEM_COMMIT && isWritable) {
      blocks.push_back({reinterpret_cast<std::uintptr_t>(block.BaseAddress), block.RegionSize});
    }
    const auto* const next = static_cast<const std::uint8_t*>(block.BaseAddress) + block.RegionSize;
    if (next <= address) break;
    address = next;
  }
  return blocks;
}

bool readMemory(std::uint64_t address, std::uint8_t* target, std::size_t size) {
  SIZE_T read = 0;
  return ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<LPCVOID>(static_cast<std::uintptr_t>(address)), target,
                           size, &read) != FALSE &&
         read == size;
}

}  // namespace orvane::test
