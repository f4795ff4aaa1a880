// What the base provider lends to a minidriver: memory, and the functions behind its callback pointers.
#ifndef ORVANE_TOOL_CARD_PROVIDER_CALLBACKS_H
#define ORVANE_TOOL_CARD_PROVIDER_CALLBACKS_H

#include <string>
#include <vector>

#include "platform/card_module.h"
#include "text/bytes.h"

namespace orvane::tool {

// fillProviderCallbacks sets the callback members of `cardData`. Memory comes from a heap of its own and every block is
// remembered, because the interface has no other way to see what a minidriver never released. The data cache keeps
// nothing. The padding callbacks answer SCARD_E_UNSUPPORTED_FEATURE: they serve cards that cannot pad for themselves.
// Any thread may call them.
void fillProviderCallbacks(CARD_DATA& cardData);

// takeBuffer copies what a minidriver returned and releases the buffer, as the provider would with pfnCspFree. A null
// buffer gives no bytes.
Bytes takeBuffer(PBYTE buffer, DWORD size);

// memoryComplaints says in words which blocks are still allocated and which releases were wrong; empty when all is
// well.
std::vector<std::string> memoryComplaints();

}  // namespace orvane::tool

#endif
