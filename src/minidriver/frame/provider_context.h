// The state behind one CARD_DATA record, and the safe way to it.
#ifndef ORVANE_MINIDRIVER_FRAME_PROVIDER_CONTEXT_H
#define ORVANE_MINIDRIVER_FRAME_PROVIDER_CONTEXT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "cache/container_entry.h"
#include "platform/card_module.h"

namespace orvane {

// ProviderContext ties a card handle to one token. CardAcquireContext makes it, CardDeleteContext lets it go. Its
// fields are used without a lock: the caller serialises the calls on one record, except for CardDeleteContext (see
// ContextRef).
struct ProviderContext {
  explicit ProviderContext(PCARD_DATA owner) noexcept : cardData(owner) {}

  // Last argument of the certificate look-up. Never set.
  void* libraryContext = nullptr;
  // The record that this context was made for. Like contextReady and sessionAuthValid it is kept for whoever looks at a
  // memory dump; nothing reads it.
  PCARD_DATA cardData;
  // Names the token in every library call and is the key of the process-wide caches. The caller may replace it (see
  // replaceSerialNumber).
  std::string serialNumber;
  // 1 once the acquisition is complete.
  std::uint32_t contextReady = 0;
  // 1 once the acquisition is complete, 0 after a deauthentication that cleared something or was for all roles.
  std::uint32_t sessionAuthValid = 0;
  // Settings that the caller handed over. Nothing reads them either: queries answer from constants.
  PIN_INFO pinInfo{};
  HWND parentWindow = nullptr;
  std::string pinContextString;
  std::uint32_t pinStrengthVerify = 0;
  std::uint32_t cacheMode = 0;
  std::uint32_t supportsX509Enrollment = 0;
  // One entry for each key pair of the token, in the token's order; null stands for none. Shared with the process-wide
  // list that it was taken from.
  std::shared_ptr<const ContainerList> containers;
  // 1 while the role's PIN counts as verified in this context.
  std::uint8_t userAuthenticated = 0;
  std::uint8_t adminAuthenticated = 0;

  // Number of containers, and one of them by its index, which must be below that number.
  std::size_t containerCount() const noexcept { return containers != nullptr ? containers->size() : 0; }
  const ContainerEntry& container(std::size_t index) const noexcept { return (*containers)[index]; }

  // References held: the record's own, and one for each running call. Managed by ContextRef alone.
  std::atomic<std::uint32_t> holders{1};
};

// ContextRef holds a context for the duration of a call, so that a CardDeleteContext arriving meanwhile (hosts do that)
// empties the record at once but leaves the context alive until the last holder lets go, which destroys it. Neither
// side ever waits for the other's call.
class ContextRef {
 public:
  ContextRef() = default;
  // Takes over a reference that is already counted; null is allowed.
  explicit ContextRef(ProviderContext* counted) noexcept : context_(counted) {}
  ~ContextRef();
  ContextRef(ContextRef&& other) noexcept;

  explicit operator bool() const noexcept { return context_ != nullptr; }
  ProviderContext& operator*() const noexcept { return *context_; }
  ProviderContext* operator->() const noexcept { return context_; }

  // release gives the reference up without letting it go: whoever takes the pointer now holds it.
  ProviderContext* release() noexcept;

 private:
  ProviderContext* context_ = nullptr;
};

// contextOf returns the context in the record's `pvVendorSpecific`, or a null reference.
ContextRef contextOf(const CARD_DATA& cardData);

// publishContext stores the context in `pvVendorSpecific`, which takes over its reference. Whatever stood there before
// is the caller's leftover and is not looked at.
void publishContext(CARD_DATA& cardData, ContextRef context);

// takeContext empties `pvVendorSpecific`, clears the context-attached flag of the token that the context stands for by
// its present serial number, and returns the reference that stood there; or does nothing and returns a null one. Takes
// `deviceCacheMutex`.
ContextRef takeContext(CARD_DATA& cardData);

// replaceSerialNumber sets the serial number of a context that is in a record, where takeContext may look at it from
// another thread at the same time.
void replaceSerialNumber(ProviderContext& context, std::string serialNumber);

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_PROVIDER_CONTEXT_H
