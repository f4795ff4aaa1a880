#include <algorithm>
#include <stdexcept>

#include "harness/import_table.h"

namespace orvane::test {
namespace {

void replaceEntry(IMAGE_THUNK_DATA& entry, ULONG_PTR target) {
  DWORD protection = 0;
  if (VirtualProtect(&entry, sizeof(entry), PAGE_READWRITE, &protection) == FALSE) {
    throw std::runtime_error("the import table cannot be written");
  }
  entry.u1.Function = target;
  VirtualProtect(&entry, sizeof(entry), protection, &protection);
}

}  // namespace

void divertImports(void* module, std::initializer_list<Diversion> diversions) {
  auto* const base = static_cast<BYTE*>(module);
  const auto at = [base](auto* typed, DWORD offset) {
    return reinterpret_cast<decltype(typed)>(reinterpret_cast<void*>(base + offset));
  };
  const auto* const dosHeader = at(static_cast<const IMAGE_DOS_HEADER*>(nullptr), 0);
  const auto* const headers =
      at(static_cast<const IMAGE_NT_HEADERS*>(nullptr), static_cast<DWORD>(dosHeader->e_lfanew));
  const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  std::size_t replaced = 0;
  for (auto* imported = at(static_cast<const IMAGE_IMPORT_DESCRIPTOR*>(nullptr), directory.VirtualAddress);
       imported->Name != 0; ++imported) {
    auto* entry = at(static_cast<IMAGE_THUNK_DATA*>(nullptr), imported->FirstThunk);
    for (auto* name = at(static_cast<const IMAGE_THUNK_DATA*>(nullptr), imported->OriginalFirstThunk);
         name->u1.AddressOfData != 0; ++name, ++entry) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* const byName =
          at(static_cast<const IMAGE_IMPORT_BY_NAME*>(nullptr), static_cast<DWORD>(name->u1.AddressOfData));
      const auto* const found = std::find_if(diversions.begin(), diversions.end(), [&](const Diversion& diversion) {
        return diversion.function == static_cast<const char*>(byName->Name);
      });
      if (found == diversions.end()) continue;
      replaceEntry(*entry, found->target);
      ++replaced;
    }
  }
  if (replaced != diversions.size()) throw std::runtime_error("the minidriver does not import what is diverted");
}

}  // namespace orvane::test
