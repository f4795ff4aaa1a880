// The caller's allocator fails at the first, the second, ... request of every call.
#include "harness/call_test.h"

namespace orvane::test {
namespace {

class CallerAllocator : public CallTest {};

// What a call leaves in the caller's memory although an allocation failed.
struct Remainder {
  const char* call;
  unsigned successes;  // requests that were granted
};
constexpr Remainder kRemainders[] = {
    {"CardGetContainerInfo", 1},                     // the signature blob stays with the caller
    {"CardGetContainerProperty Container Info", 0},  // the size and an empty record
    {"CardGetContainerProperty Container Info", 1},  // and the signature blob
    {"CardSignData signs", 0},                       // a null pointer
    {"CardSignData size only", 0},
};

bool leavesSomething(const std::string& call, unsigned successes) {
  for (const Remainder& remainder : kRemainders) {
    if (call == remainder.call && successes == remainder.successes) return true;
  }
  return false;
}

TEST_F(CallerAllocator, FailsAtEveryRequest) {
  for (const EntryCall& call : allCalls()) {
    SCOPED_TRACE(call.name);
    for (unsigned successes = 0; successes < call.allocations; ++successes) {
      SCOPED_TRACE(successes);
      const Result result = run(
          call, [&] { failAllocationsAfter(successes); }, [&] { failAllocationsAfter(std::nullopt); });
      EXPECT_EQ(result.status, code(SCARD_E_NO_MEMORY));
      EXPECT_EQ(result.isUntouched, !leavesSomething(call.name, successes));
      EXPECT_EQ(takeAllocations().size(), successes + 1);
      expectUsable();
    }
    const Result result = run(
        call, [&] { failAllocationsAfter(call.allocations); }, [&] { failAllocationsAfter(std::nullopt); });
    EXPECT_EQ(result.status, call.status);
    EXPECT_EQ(takeAllocations().size(), call.allocations);
  }
}

// A caller without an allocator gets the statuses of one without memory, but for signatures, which name it.
TEST_F(CallerAllocator, IsMissing) {
  for (const EntryCall& call : allCalls()) {
    SCOPED_TRACE(call.name);
    CARD_DATA& record = openFor(call.before);
    record.pfnCspAlloc = nullptr;
    {
      CallOutputs outputs;
      const std::function<DWORD()> prepared = call.prepare(record, outputs);
      outputs.startCall();
      const bool signs = call.name.starts_with("CardSignData");
      const LONG refusal = signs ? ERROR_INVALID_PARAMETER : SCARD_E_NO_MEMORY;
      EXPECT_EQ(prepared(), call.allocations == 0 ? call.status : code(refusal));
      if (call.allocations != 0) EXPECT_EQ(outputs.isUntouched(), signs || !leavesSomething(call.name, 0));
    }
    EXPECT_EQ(takeAllocations().size(), 0u);
  }
}

}  // namespace
}  // namespace orvane::test
