#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/append_file.h"
#include "platform/host/host_control.h"

namespace orvane {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }

  int number() const { return number_; }
  bool isOpen() const { return number_ >= 0; }
  // Takes over a descriptor that was opened just now.
  void replaceBy(int number) {
    if (number_ >= 0) close(number_);
    number_ = number;
  }

 private:
  int number_;
};

// Lets a test do at this point what somebody else might.
void reach(const char* action, const std::string& name) {
  const auto* const atPoint = host::hostMachine().atPoint.load(std::memory_order_acquire);
  if (atPoint != nullptr) (*atPoint)(std::string(action) + " " + name);
}

// Goes from `folder` down to the one that holds the last part of `below`, and gives that part. Each folder is opened as
// what it is and judged then; what its name stands for afterwards does not matter any more.
BelowResult enterParent(Descriptor& folder, std::string_view below, std::string& last) {
  if (!folder.isOpen()) return BelowResult::kFailed;
  last = takePathPart(below);
  if (last.empty()) return BelowResult::kFailed;
  while (!below.empty()) {
    reach("open", last);
    folder.replaceBy(openat(folder.number(), last.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!folder.isOpen() || fstat(folder.number(), &status) != 0) return BelowResult::kFailed;
    if (S_ISLNK(status.st_mode)) return BelowResult::kLedAway;
    last = takePathPart(below);
  }
  return BelowResult::kDone;
}

Descriptor openBase(const char* base) { return Descriptor(open(base, O_PATH | O_DIRECTORY | O_CLOEXEC)); }

}  // namespace

BelowResult appendBelow(const char* base, std::string_view below, std::string_view bytes) {
  if (!isFileName(below)) return BelowResult::kFailed;
  Descriptor folder = openBase(base);
  std::string name;
  const BelowResult result = enterParent(folder, below, name);
  if (result != BelowResult::kDone) return result;
  reach("open", name);
  const Descriptor file(
      openat(folder.number(), name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!file.isOpen()) return errno == ELOOP ? BelowResult::kLedAway : BelowResult::kFailed;
  reach("judge", name);
  struct stat status {};
  if (fstat(file.number(), &status) != 0 || !isOnlyHere(status.st_nlink, status.st_nlink == 0)) {
    return BelowResult::kLedAway;
  }
  // A full disk loses the line, as documented; the result only has to be looked at for the compiler.
  const bool isWritten = write(file.number(), bytes.data(), bytes.size()) >= 0;
  static_cast<void>(isWritten);
  return BelowResult::kDone;
}

BelowResult createFolderBelow(const char* base, std::string_view below) {
  Descriptor folder = openBase(base);
  std::string name;
  const BelowResult result = enterParent(folder, below, name);
  if (result != BelowResult::kDone) return result;
  reach("make", name);
  // A link in the folder's own place is an entry like any other: there is nothing to make.
  return mkdirat(folder.number(), name.c_str(), 0777) == 0 ? BelowResult::kDone : BelowResult::kFailed;
}

}  // namespace orvane
