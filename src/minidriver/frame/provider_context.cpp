#include "minidriver/frame/provider_context.h"

#include <utility>

#include "cache/process_state.h"

namespace orvane {

ContextRef::~ContextRef() {
  if (context_ != nullptr && context_->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) delete context_;
}

ContextRef::ContextRef(ContextRef&& other) noexcept : context_(std::exchange(other.context_, nullptr)) {}

ProviderContext* ContextRef::release() noexcept { return std::exchange(context_, nullptr); }

ContextRef contextOf(const CARD_DATA& cardData) {
  const LockGuard lock(processState().contextSlotMutex);
  auto* context = static_cast<ProviderContext*>(cardData.pvVendorSpecific);
  if (context != nullptr) context->holders.fetch_add(1, std::memory_order_relaxed);
  return ContextRef(context);
}

void publishContext(CARD_DATA& cardData, ContextRef context) {
  const LockGuard lock(processState().contextSlotMutex);
  cardData.pvVendorSpecific = context.release();
}

ContextRef takeContext(CARD_DATA& cardData) {
  const LockGuard lock(processState().contextSlotMutex);
  auto* context = static_cast<ProviderContext*>(std::exchange(cardData.pvVendorSpecific, nullptr));
  if (context != nullptr) processState().deviceCache.detachContext(context->serialNumber);
  return ContextRef(context);
}

void replaceSerialNumber(ProviderContext& context, std::string serialNumber) {
  const LockGuard lock(processState().contextSlotMutex);
  context.serialNumber.swap(serialNumber);
}

}  // namespace orvane
