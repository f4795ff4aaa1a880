// Catching what libraries print.
#include "platform/windows_api.h"
// After the system's own header, which it relies on.
#include <fcntl.h>
#include <io.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

#include "library_messages.h"
#include "output.h"
#include "text/style.h"

namespace orvane::tool {
namespace {

constexpr int kOutput = 1;
constexpr int kErrors = 2;

void show(const std::vector<std::string>& lines) {
  const Output output(OutputFormat::kText);
  for (const std::string& line : lines) output.message(withoutCommands(line));
}

// The pipe in which what is printed arrives, and the thread that reads it.
class Capture {
 public:
  explicit Capture(HANDLE readEnd) : readEnd_(readEnd), reader_([this] { read(); }) {}

  // Ends the pipe, waits for the reader and shows what is left. A library that ends the program calls this, too.
  void finish() {
    std::call_once(finished_, [this] {
      std::fflush(stdout);
      // This closes the last handle to the pipe's other end.
      _dup2(kErrors, kOutput);
      reader_.join();
      CloseHandle(readEnd_);
      show(messages_.summary());
    });
  }

 private:
  void read() {
    char bytes[4096];
    DWORD count = 0;
    while (ReadFile(readEnd_, bytes, sizeof(bytes), &count, nullptr) && count) show(messages_.add({bytes, count}));
  }

  HANDLE readEnd_;
  LibraryMessages messages_;
  std::once_flag finished_;
  std::thread reader_;
};

std::unique_ptr<Capture>& capture() {
  static std::unique_ptr<Capture> only;
  return only;
}

void finishCapture() {
  if (capture()) capture()->finish();
}

}  // namespace

CapturedOutput::CapturedOutput() {
  const HANDLE self = GetCurrentProcess();
  HANDLE output = nullptr;
  // A copy for results, because redirecting closes the original. Output writes to the system's handle.
  if (!DuplicateHandle(self, GetStdHandle(STD_OUTPUT_HANDLE), self, &output, 0, FALSE, DUPLICATE_SAME_ACCESS)) return;
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, nullptr, 0)) {
    CloseHandle(output);
    return;
  }
  const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(writeEnd), _O_TEXT);
  _dup2(descriptor, kOutput);
  _close(descriptor);
  // The copy would go to every program that a library starts, and the pipe would not end before that program does.
  SetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(kOutput)), HANDLE_FLAG_INHERIT, 0);
  SetStdHandle(STD_OUTPUT_HANDLE, output);
  // Otherwise the runtime would keep what is printed until the program ends, or lose it.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  capture() = std::make_unique<Capture>(readEnd);
  std::atexit(finishCapture);
}

CapturedOutput::~CapturedOutput() { finishCapture(); }

}  // namespace orvane::tool
