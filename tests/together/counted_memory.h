// The minidriver's memory in the storm's program: counted, and failing when told to.
#ifndef ORVANE_TESTS_TOGETHER_COUNTED_MEMORY_H
#define ORVANE_TESTS_TOGETHER_COUNTED_MEMORY_H

#include "together/own_memory.h"

namespace orvane::test {

// CountedMemory works through a replaced operator new, of which there is one in a program.
class CountedMemory : public OwnMemory {
 public:
  void startOutside() override;
  void enter(const std::optional<MemoryFault>& fault) override;
  bool leave() override;
  void setInCallback(bool isInCallback) override;
  std::optional<std::vector<std::size_t>> blocksInUse() override;

  // What is in use now counts no more: it was there before the minidriver did anything.
  void forgetAll();
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_COUNTED_MEMORY_H
