// Diverting what a loaded module calls in others.
#ifndef ORVANE_TESTS_HARNESS_IMPORT_TABLE_H
#define ORVANE_TESTS_HARNESS_IMPORT_TABLE_H

#include <initializer_list>
#include <string_view>

#include "platform/windows_api.h"

namespace orvane::test {

// An imported function, by its name, and what is to be called instead.
struct Diversion {
  std::string_view function;
  ULONG_PTR target;
};

template <typename Function>
Diversion divert(std::string_view name, Function* function) {
  return {name, reinterpret_cast<ULONG_PTR>(function)};
}

// Writes the diversions into the import table of this module (an HMODULE). Throws std::runtime_error when the module
// does not import each of them once, or its table cannot be written.
void divertImports(void* module, std::initializer_list<Diversion> diversions);

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_IMPORT_TABLE_H
