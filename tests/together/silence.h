// What the minidriver prints through the C library, kept away from what a test says.
#ifndef ORVANE_TESTS_TOGETHER_SILENCE_H
#define ORVANE_TESTS_TOGETHER_SILENCE_H

#include <cstdio>

namespace orvane::test {

// For its own lifetime nothing appears that the process prints through the C library's two streams, where the
// minidriver says that it cannot write its log. What a sanitizer reports appears: it knows only the descriptor.
class Silence {
 public:
  Silence() : output_(stdout), errors_(stderr), nothing_(std::fopen("/dev/null", "w")) {
    if (nothing_ == nullptr) return;
    stdout = nothing_;
    stderr = nothing_;
  }
  ~Silence() {
    stdout = output_;
    stderr = errors_;
    if (nothing_ != nullptr) std::fclose(nothing_);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::FILE* output_;
  std::FILE* errors_;
  std::FILE* nothing_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_TOGETHER_SILENCE_H
