// The module itself runs out of memory: operator new fails at the first, the second, ... allocation of every call.
#include "faults/failing_new.h"

#include <new>

#include "cache/process_state.h"
#include "harness/call_test.h"
#include "log/log_file.h"

namespace orvane::test {
namespace {

// More allocations than any call makes; a call that needs more is a mistake of the test.
constexpr unsigned kMostAllocations = 2000;

LPVOID WINAPI allocate(SIZE_T size) {
  const NewSucceeds succeeds;
  return CallerMemory::allocate(size);
}

// What the process does about a lack of memory, counted over all failures of one call.
struct Answers {
  unsigned refusals = 0;
  unsigned lostLines = 0;  // calls that succeeded all the same
};

class FailingNew : public CallTest {
 protected:
  static void expectRefusalOrResult(DWORD status, DWORD result, bool isUntouched, Answers& answers) {
    if (status == code(SCARD_E_NO_MEMORY)) {
      ++answers.refusals;
      EXPECT_TRUE(isUntouched);
    } else {
      ++answers.lostLines;
      EXPECT_EQ(status, result);
    }
  }
};

// Members of a record that is refused stay as they are when the call fills a record step by step.
bool fillsStepByStep(const std::string& call) {
  return call.starts_with("CardGetContainerInfo") || call.starts_with("CardGetContainerProperty") ||
         call.starts_with("CardSignData");
}

// Each line of the log makes many allocations and is lost when one fails, which is the same everywhere: some calls show
// it, the others log nothing but errors.
bool logsEverything(const std::string& call) {
  return call == "CardDeleteContext" || call == "CardRSADecrypt" || call == "CardAuthenticateEx on the token";
}

TEST_F(FailingNew, AtEveryAllocationOfEveryCall) {
  for (const EntryCall& call : allCalls()) {
    SCOPED_TRACE(call.name);
    Answers answers;
    bool hasFailed = true;
    unsigned successes = 0;
    for (; hasFailed && successes < kMostAllocations; ++successes) {
      SCOPED_TRACE(successes);
      CARD_DATA& record = openFor(call.before);
      setDebugLog(logsEverything(call.name));
      record.pfnCspAlloc = allocate;
      {
        CallOutputs outputs;
        const std::function<DWORD()> prepared = call.prepare(record, outputs);
        outputs.startCall();
        failNewAfter(successes);
        const DWORD status = prepared();
        hasFailed = letNewSucceed();
        expectRefusalOrResult(status, call.status, outputs.isUntouched() || fillsStepByStep(call.name), answers);
      }
      expectUsable();
    }
    EXPECT_LT(successes, kMostAllocations);
    if (logsEverything(call.name)) EXPECT_GT(answers.lostLines, 1u);
    // An end of a context is never refused.
    if (call.name == "CardDeleteContext") EXPECT_EQ(answers.refusals, 0u);
  }
}

TEST_F(FailingNew, AtEveryAllocationOfAnAcquisition) {
  struct Row {
    const char* name;
    SCARDHANDLE cardHandle;
    const char* readerName;
    bool isLogged;
  };
  const Row rows[] = {
      {"without a card handle", 0, "", true},
      {"the serial is in the reader's name", kCardHandle, "Reader of 0012AB", false},
      {"the serial is asked for", kCardHandle, "OrvaneDSC 0", false},
      {"the first token is taken", kCardHandle, "Reader 7", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Answers answers;
    bool hasFailed = true;
    unsigned successes = 0;
    for (; hasFailed && successes < kMostAllocations; ++successes) {
      SCOPED_TRACE(successes);
      startAnew();
      resourceManager.readerName = row.readerName;
      CARD_DATA record = newRecord();
      record.hScard = row.cardHandle;
      // Hands the resource manager over, and is refused.
      record.cbAtr = 18;
      EXPECT_EQ(acquire(record), code(SCARD_E_UNKNOWN_CARD));
      record.cbAtr = 19;
      setDebugLog(row.isLogged);
      const CARD_DATA before = record;
      const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
      failNewAfter(successes);
      const DWORD status = cardAcquireContext(&record, 0);
      hasFailed = letNewSucceed();
      if (status == 0) {
        ++answers.lostLines;
        EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
      } else {
        ++answers.refusals;
        EXPECT_TRUE(status == code(SCARD_E_NO_MEMORY) || status == code(ERROR_OUTOFMEMORY)) << status;
        EXPECT_EQ(std::memcmp(&record, &before, sizeof(record)), 0) << "the record was changed";
      }
      expectUsable();
    }
    EXPECT_LT(successes, kMostAllocations);
    EXPECT_GT(answers.lostLines, 0u);
    EXPECT_GT(answers.refusals, 1u);
  }
}

// The context itself is asked for first, once there is no line to log before it: its lack has a status and a line of
// its own, and nothing has been begun.
TEST_F(FailingNew, AtTheContextOfAnAcquisition) {
  startAnew();
  setDebugLog(false);
  CARD_DATA record = newRecord();
  record.hScard = kCardHandle;
  const CARD_DATA before = record;
  const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
  failNewOnceAfter(0);
  const DWORD status = cardAcquireContext(&record, 0);
  EXPECT_TRUE(letNewSucceed());
  EXPECT_EQ(status, 14u);
  EXPECT_EQ(takeLog(), Lines{"E Allocation failed for provider context"});
  EXPECT_EQ(takeCalls(), Lines{});
  EXPECT_EQ(std::memcmp(&record, &before, sizeof(record)), 0) << "the record was changed";
  expectUsable();
}

// The folders of the log are walked on a copy of their path.
TEST_F(FailingNew, AtTheFoldersOfTheLog) {
  const std::string path(100, 'x');
  ::testing::internal::CaptureStderr();
  failNewOnceAfter(0);
  const bool isCreated = createLogFolders(path, "");
  EXPECT_TRUE(letNewSucceed());
  EXPECT_FALSE(isCreated);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            std::string("Exception in createFolder(): ") + std::bad_alloc().what());
}

// The monitor sees the token go just after its containers were read anew: what was stored is gone again before it is
// looked for. The first memory that is given back after it was stored is that of the older lists.
TEST_F(FailingNew, NotButTheListIsGoneAtOnce) {
  const EntryCall call = callNamed("CardReadFile cmapfile list forgotten");
  CARD_DATA& record = openFor(call.before);
  CallOutputs outputs;
  const std::function<DWORD()> prepared = call.prepare(record, outputs);
  outputs.startCall();
  DWORD status = 0;
  {
    const WhenMemoryIsGivenBack eraseList([] {
      ContainerListCache& lists = processState().containerListCache;
      if (lists.find(kOtherSerial) != nullptr) lists.erase(kOtherSerial);
    });
    status = prepared();
  }
  EXPECT_EQ(status, code(SCARD_E_FILE_NOT_FOUND));
  EXPECT_TRUE(outputs.isUntouched());
  EXPECT_EQ(takeLog().back(), "E CMAP: Critical failure - could not populate cache for 0034CD");
  EXPECT_EQ(takeAllocations().size(), 0u);
  expectUsable();
}

// A PIN change that the token made must not leave the old PIN behind: the next signature would use up a try with it.
TEST_F(FailingNew, AfterAPinChangeLeavesNoOldPin) {
  for (const char* const name : {"CardChangeAuthenticator user", "CardChangeAuthenticatorEx 1"}) {
    SCOPED_TRACE(name);
    const EntryCall call = callNamed(name);
    bool hasFailed = true;
    for (unsigned successes = 0; hasFailed && successes < kMostAllocations; ++successes) {
      SCOPED_TRACE(successes);
      CARD_DATA& record = openFor(call.before);
      setDebugLog(false);
      CallOutputs outputs;
      const std::function<DWORD()> prepared = call.prepare(record, outputs);
      outputs.startCall();
      failNewAfter(successes);
      prepared();
      hasFailed = letNewSucceed();
      bool wasChanged = false;
      for (const std::string& made : takeCalls()) wasChanged |= made.starts_with("orvane_changeUserPassword(");
      EXPECT_EQ(cachedPin(record), wasChanged ? kNewPin : kUserPin);
    }
  }
}

// Nor must it look as if it had failed. Without a record of the token, which the monitor saw go a moment ago, there is
// something to make for it afterwards.
TEST_F(FailingNew, AfterAPinChangeOfATokenWithoutARecord) {
  for (const char* const name : {"CardChangeAuthenticator user", "CardChangeAuthenticatorEx 1",
                                 "CardChangeAuthenticator admin", "CardChangeAuthenticatorEx 2"}) {
    SCOPED_TRACE(name);
    const EntryCall call = callNamed(name);
    bool hasFailed = true;
    unsigned failedLater = 0;
    for (unsigned successes = 0; hasFailed && successes < kMostAllocations; ++successes) {
      SCOPED_TRACE(successes);
      CARD_DATA& record = openFor(call.before);
      setDebugLog(false);
      {
        CallOutputs outputs;
        const std::function<DWORD()> prepared = call.prepare(record, outputs);
        outputs.startCall();
        processState().deviceCache.erase(kSerial);
        failNewAfter(successes);
        const DWORD status = prepared();
        hasFailed = letNewSucceed();
        bool wasChanged = false;
        for (const std::string& made : takeCalls()) wasChanged |= made.starts_with("orvane_change");
        EXPECT_EQ(status, wasChanged ? 0 : code(SCARD_E_NO_MEMORY));
        EXPECT_EQ(outputs.isUntouched(), !wasChanged);
        if (wasChanged && hasFailed) {
          ++failedLater;
          EXPECT_EQ(processState().deviceCache.getCachedPassword(kSerial).view(), "");
        }
      }
      expectUsable();
    }
    EXPECT_EQ(failedLater, 1u);
  }
}

}  // namespace
}  // namespace orvane::test
