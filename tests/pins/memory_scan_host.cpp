#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "pins/memory_scan.h"

namespace orvane::test {

std::vector<MemoryBlock> writableMemory() {
  std::vector<MemoryBlock> blocks;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    std::istringstream fields(line);
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    char dash = 0;
    std::string access;
    fields >> std::hex >> begin >> dash >> end >> access;
    if (access.starts_with("rw")) blocks.push_back({begin, end - begin});
  }
  return blocks;
}

bool readMemory(std::uint64_t address, std::uint8_t* target, std::size_t size) {
  static const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  return pread(memory, target, size, static_cast<off_t>(address)) == static_cast<ssize_t>(size);
}

}  // namespace orvane::test
