// More of the software token's control interface (see softtoken_control.h): for tests that look for PINs in memory.
#ifndef ORVANE_SOFTTOKEN_SOFTTOKEN_PINS_H
#define ORVANE_SOFTTOKEN_SOFTTOKEN_PINS_H

#include "softtoken/softtoken_control.h"

extern "C" {

// From now on (1) the record of calls shows "hidden" instead of PINs, and no copy of a PIN is made for it, or again the
// PINs (0, also after softtoken_reset). With a prepared answer the library then leaves no trace of the PIN in memory.
SOFTTOKEN_API void softtoken_hide_pins(int hidden);

}  // extern "C"

#endif  // ORVANE_SOFTTOKEN_SOFTTOKEN_PINS_H
