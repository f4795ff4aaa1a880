// A global operator new that fails when it is told to, for the thread that tells it, and an operator delete that keeps
// what it is given as it is.
#ifndef ORVANE_TESTS_FAULTS_FAILING_NEW_H
#define ORVANE_TESTS_FAULTS_FAILING_NEW_H

namespace orvane::test {

// From now on `successes` allocations of this thread succeed and all after them fail, until letNewSucceed. What the
// token library and the test's own callbacks allocate does not count and never fails.
void failNewAfter(unsigned successes);
// The same, but only the one allocation behind them fails, so that what is said about it can be written.
void failNewOnceAfter(unsigned successes);
// Back to normal; true when an allocation has failed.
bool letNewSucceed();

// Keeps allocations from failing and counting for its own lifetime.
class NewSucceeds {
 public:
  NewSucceeds();
  ~NewSucceeds();
  NewSucceeds(const NewSucceeds&) = delete;
  NewSucceeds& operator=(const NewSucceeds&) = delete;
};

// The opposite, inside of the former.
class NewMayFail {
 public:
  NewMayFail();
  ~NewMayFail();
  NewMayFail(const NewMayFail&) = delete;
  NewMayFail& operator=(const NewMayFail&) = delete;
};

// For its own lifetime calls a function whenever this thread gives memory back, but not for what the function itself
// gives back: what another thread may do just then. One at a time.
class WhenMemoryIsGivenBack {
 public:
  explicit WhenMemoryIsGivenBack(void (*function)());
  ~WhenMemoryIsGivenBack();
  WhenMemoryIsGivenBack(const WhenMemoryIsGivenBack&) = delete;
  WhenMemoryIsGivenBack& operator=(const WhenMemoryIsGivenBack&) = delete;
};

// For its own lifetime memory that any thread gives back is neither used again nor changed; at the end it is freed. One
// at a time.
class FreedMemoryStays {
 public:
  FreedMemoryStays();
  ~FreedMemoryStays();
  FreedMemoryStays(const FreedMemoryStays&) = delete;
  FreedMemoryStays& operator=(const FreedMemoryStays&) = delete;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_FAULTS_FAILING_NEW_H
