// What a call does must not depend on what lies in memory where it has its variables.
#ifndef ORVANE_TESTS_HARNESS_STACK_BYTES_H
#define ORVANE_TESTS_HARNESS_STACK_BYTES_H

namespace orvane::test {

// Leaves bytes 3, which stand for much: no end of a text, and a log level that writes everything.
inline void leaveBytesOnTheStack() {
  volatile unsigned char bytes[16384];
  for (volatile unsigned char& byte : bytes) byte = 3;
}

// The same; called by way of it, the function has a place of its own on the stack, which is that of the next call.
inline void (*volatile dirtyTheStack)() = &leaveBytesOnTheStack;

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_STACK_BYTES_H
