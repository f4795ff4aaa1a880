// The hand-over of the caller's card handle to the token library.
#ifndef ORVANE_MINIDRIVER_FRAME_CARD_HANDOVER_H
#define ORVANE_MINIDRIVER_FRAME_CARD_HANDOVER_H

#include "cache/process_state.h"
#include "platform/card_module.h"
#include "support/mutex.h"
#include "tokenlib/token_client.h"

namespace orvane {

// CardHandover is the bracket around a library call that talks to the card: it takes the library lock and sets the
// record's card handle, unless that is 0; its end always clears the handle, also when none was set or the call threw,
// and releases the lock. The library knows one current handle for the whole process, so no other bracketed call may
// come in between. The handle is read from the record at each call, and only once the lock is there: the system
// replaces it in the record, also while the call waits.
class ORVANE_SCOPED_CAPABILITY CardHandover {
 public:
  explicit CardHandover(const CARD_DATA& cardData) ORVANE_ACQUIRE(processState().libraryMutex)
      : lock_(processState().libraryMutex) {
    const SCARDHANDLE cardHandle = cardData.hScard;
    if (cardHandle == 0) return;
    try {
      tokenlib::setExternalSmartcardHandle(cardHandle);
    } catch (...) {
      clearHandle();
      throw;
    }
  }
  ~CardHandover() ORVANE_RELEASE() { clearHandle(); }
  CardHandover(const CardHandover&) = delete;
  CardHandover& operator=(const CardHandover&) = delete;

 private:
  static void clearHandle() noexcept {
    try {
      tokenlib::clearExternalSmartcardHandle();
    } catch (...) {
      // A library that cannot even forget a handle has no other way to be told; the result of the call stands.
    }
  }

  LockGuard lock_;
};

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_FRAME_CARD_HANDOVER_H
