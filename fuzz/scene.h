// The scene of the fuzz targets: one minidriver in the process, tokens in memory, callers with watched memory.
#ifndef ORVANE_FUZZ_SCENE_H
#define ORVANE_FUZZ_SCENE_H

#include <string>
#include <string_view>
#include <vector>

#include "harness/test_token.h"
#include "platform/card_module.h"
#include "softtoken/softtoken_control.h"
#include "targets.h"

namespace orvane::fuzz {

// The tokens, each with the PINs of harness/test_token.h.
inline constexpr const char* kSerials[] = {"0012AA", test::kSerial, "0012AC"};

// Takes bytes off the front of an input; an exhausted one gives zeros.
class Reader {
 public:
  explicit Reader(Input input) : rest_(input) {}
  bool isAtEnd() const { return rest_.empty(); }
  std::uint8_t byte();
  // All up to the next `end`, which is taken too; all that is left when there is none.
  std::string textUntil(char end);
  std::string rest();

 private:
  Input rest_;
};

// Ends the process with a message unless `condition` holds.
void require(bool condition, const char* what);

// Everything as at the beginning, before an input: no contexts, the tokens of kSerials with keys, PINs and
// certificates, nothing cached, no log, a reader without a name. The first call starts the monitor thread and holds it
// for good.
void startInput(Input input);
// After that input: what the caller's allocator gave has been freed or returned, the library has no card handle, and no
// log line was cut or holds a PIN.
void endInput();

// A record as a caller makes it.
CARD_DATA newRecord();
// A record with a context on the first token, which must be had.
CARD_DATA acquired();

// Log on (level 3) or off.
void setLog(bool isOn);

// Frees a buffer that an entry point returned, after reading all `size` bytes of it; null is allowed. The size must be
// what the buffer has, or less.
void release(void* buffer, std::size_t size);

// Whether entry points may answer this at all.
bool isKnownStatus(DWORD status);

}  // namespace orvane::fuzz

#endif  // ORVANE_FUZZ_SCENE_H
