// The guard that turns exceptions into statuses on the way out of an entry point.
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "cache/process_state.h"
#include "harness/linked_test.h"
#include "minidriver/frame/entry.h"

namespace orvane::test {
namespace {

class EntryGuard : public LinkedTest {};

struct GuardRow {
  const char* name;
  void (*raise)();
  DWORD status;
  std::string text;  // the end of the error line
};

const GuardRow kGuardRows[] = {
    {"out of memory", [] { throw std::bad_alloc(); }, 0x80100006, std::bad_alloc().what()},
    {"a kind of out of memory", [] { throw std::bad_array_new_length(); }, 0x80100006,
     std::bad_array_new_length().what()},
    {"a runtime error", [] { throw std::runtime_error("something went wrong"); }, 0x80100001, "something went wrong"},
    {"an empty text", [] { throw std::runtime_error(""); }, 0x80100001, ""},
    {"a logic error", [] { throw std::out_of_range("far off"); }, 0x80100001, "far off"},
    {"a mutex that the thread holds already",
     [] {
       Mutex mutex;
       lockTwice(mutex);
     },
     0x80100001,
     std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur), "resource deadlock would occur")
         .what()},
    {"no standard exception", [] { throw 42; }, 0x80100001, "unknown"},
};

TEST_F(EntryGuard, TurnsExceptionsIntoStatuses) {
  for (const GuardRow& row : kGuardRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(cardEntry("CardSomething",
                        [&]() -> DWORD {
                          row.raise();
                          return 0;
                        }),
              row.status);
    EXPECT_EQ(takeLog(), (Lines{"D CardSomething :: LOG_FUNCTION_NAME = Entry",
                                "E CardSomething: unhandled exception: " + row.text}));
  }
}

TEST_F(EntryGuard, PassesStatusesOn) {
  for (const DWORD status : {0u, 87u, 0x80100022u}) {
    EXPECT_EQ(cardEntry("CardSomething", [&] { return status; }), status);
    EXPECT_EQ(takeLog(), Lines{"D CardSomething :: LOG_FUNCTION_NAME = Entry"});
  }
}

}  // namespace
}  // namespace orvane::test
