#include <algorithm>
#include <cstring>

#include "harness/all_calls.h"

namespace orvane::test {

CallOutputs::~CallOutputs() {
  const std::vector<void*> left = pointers();
  for (std::size_t i = 0; i < buffersBefore_.size(); ++i) {
    if (left[i] != nullptr && left[i] != buffersBefore_[i]) release_(left[i]);
  }
}

void* CallOutputs::addBytes(std::size_t size) {
  Block& block = blocks_.emplace_back((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t) + 1);
  std::memset(block.data(), kPoison, block.size() * sizeof(std::uint64_t));
  return block.data();
}

std::uint8_t* CallOutputs::addInput(const void* bytes, std::size_t size) {
  auto* const copy = static_cast<std::uint8_t*>(addBytes(size));
  std::memcpy(copy, bytes, size);
  return copy;
}

void CallOutputs::startCall() {
  before_.assign(blocks_.begin(), blocks_.end());
  buffersBefore_ = pointers();
}

bool CallOutputs::isUntouched() const {
  return std::equal(before_.begin(), before_.end(), blocks_.begin(), blocks_.end());
}

bool CallOutputs::isUntouchedButForBuffers() {
  const std::vector<void*> left = pointers();
  const auto put = [&](const std::vector<void*>& values) {
    for (std::size_t i = 0; i < buffers_.size(); ++i) std::memcpy(buffers_[i], &values[i], sizeof(void*));
  };
  put(buffersBefore_);
  const bool isSame = isUntouched();
  put(left);
  return isSame;
}

// Copied byte by byte: the places hold pointers of several types.
std::vector<void*> CallOutputs::pointers() const {
  std::vector<void*> values(buffers_.size());
  for (std::size_t i = 0; i < buffers_.size(); ++i) std::memcpy(&values[i], buffers_[i], sizeof(void*));
  return values;
}

}  // namespace orvane::test
