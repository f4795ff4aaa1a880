#include "card/provider_callbacks.h"

#include <map>
#include <mutex>

namespace orvane::tool {
namespace {

// A private heap: a minidriver that releases with another allocator than the one it was given fails at once here, as it
// would in hosts that have their own.
class Memory {
 public:
  void* allocate(SIZE_T size) {
    const std::lock_guard lock(mutex_);
    void* block = HeapAlloc(heap_, 0, size ? size : 1);
    if (block) blocks_[block] = size;
    return block;
  }

  void* reallocate(void* old, SIZE_T size) {
    if (!old) return allocate(size);
    const std::lock_guard lock(mutex_);
    if (!blocks_.count(old)) {
      ++foreign_;
      return nullptr;
    }
    void* block = HeapReAlloc(heap_, 0, old, size ? size : 1);
    if (!block) return nullptr;
    blocks_.erase(old);
    blocks_[block] = size;
    return block;
  }

  void release(void* block) {
    if (!block) return;
    const std::lock_guard lock(mutex_);
    if (!blocks_.erase(block)) {
      ++foreign_;
      return;
    }
    HeapFree(heap_, 0, block);
  }

  std::vector<std::string> complaints() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> lines;
    SIZE_T bytes = 0;
    for (const auto& [block, size] : blocks_) bytes += size;
    if (!blocks_.empty())
      lines.push_back("the minidriver left " + std::to_string(blocks_.size()) + " buffer(s) with " +
                      std::to_string(bytes) + " bytes allocated");
    if (foreign_)
      lines.push_back("the minidriver released " + std::to_string(foreign_) + " buffer(s) that it never got from here");
    return lines;
  }

 private:
  std::mutex mutex_;
  HANDLE heap_ = HeapCreate(0, 0, 0);
  std::map<void*, SIZE_T> blocks_;
  int foreign_ = 0;
};

Memory& memory() {
  static Memory instance;
  return instance;
}

LPVOID WINAPI cspAlloc(SIZE_T size) { return memory().allocate(size); }
LPVOID WINAPI cspReAlloc(LPVOID address, SIZE_T size) { return memory().reallocate(address, size); }
void WINAPI cspFree(LPVOID address) { memory().release(address); }

// A cache that forgets at once, as the interface allows.
DWORD WINAPI cacheAddFile(PVOID, LPWSTR, DWORD, PBYTE, DWORD) { return ERROR_SUCCESS; }
DWORD WINAPI cacheLookupFile(PVOID, LPWSTR, DWORD, PBYTE*, PDWORD) { return ERROR_FILE_NOT_FOUND; }
DWORD WINAPI cacheDeleteFile(PVOID, LPWSTR, DWORD) { return ERROR_SUCCESS; }

DWORD WINAPI padData(PCARD_SIGNING_INFO, DWORD, DWORD*, PBYTE*) {
  return static_cast<DWORD>(SCARD_E_UNSUPPORTED_FEATURE);
}

DWORD WINAPI unpadData(PCARD_RSA_DECRYPT_INFO, DWORD*, PBYTE*) {
  return static_cast<DWORD>(SCARD_E_UNSUPPORTED_FEATURE);
}

DWORD WINAPI getDhAgreement(PCARD_DATA, PVOID, BYTE*, DWORD) { return static_cast<DWORD>(SCARD_E_UNSUPPORTED_FEATURE); }

}  // namespace

void fillProviderCallbacks(CARD_DATA& cardData) {
  cardData.pfnCspAlloc = cspAlloc;
  cardData.pfnCspReAlloc = cspReAlloc;
  cardData.pfnCspFree = cspFree;
  cardData.pfnCspCacheAddFile = cacheAddFile;
  cardData.pfnCspCacheLookupFile = cacheLookupFile;
  cardData.pfnCspCacheDeleteFile = cacheDeleteFile;
  cardData.pfnCspPadData = padData;
  cardData.pfnCspGetDHAgreement = getDhAgreement;
  cardData.pfnCspUnpadData = unpadData;
}

Bytes takeBuffer(PBYTE buffer, DWORD size) {
  if (!buffer) return {};
  Bytes data(buffer, buffer + size);
  memory().release(buffer);
  return data;
}

std::vector<std::string> memoryComplaints() { return memory().complaints(); }

}  // namespace orvane::tool
