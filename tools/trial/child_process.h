// Programs that are run with a time limit, of which nothing is left running. Windows only.
#ifndef ORVANE_TRIAL_CHILD_PROCESS_H
#define ORVANE_TRIAL_CHILD_PROCESS_H

#include <windows.h>

#include <filesystem>
#include <string>

namespace orvane::trial {

// How a program ended.
struct Ending {
  DWORD startError = 0;  // why it could not be started; 0 if it was
  DWORD exitCode = 0;
  bool isOutOfTime = false;  // it was ended with everything that it had started
  double seconds = 0;
  std::string output;  // both of its outputs, as it wrote them

  bool isGood() const { return startError == 0 && !isOutOfTime && exitCode == 0; }
};

// Says in words how a program ended; empty if it ended with exit code 0, or with 1 as test programs do when a test
// failed.
std::string endingText(const Ending& ending);

// Says in words why a program or a library could not be loaded: the number and, for those that matter here, the cause.
std::string loadErrorText(DWORD error);

// Runs `program` with `arguments` (quoted already) in its own folder, with no input, until it ends or `limitSeconds`
// have passed. Whatever it started and left running is ended. Its output goes through `outputFile`, which is
// overwritten and then removed. No window of the system asks anybody anything when it crashes.
Ending runProgram(const std::filesystem::path& program, const std::wstring& arguments, unsigned limitSeconds,
                  const std::filesystem::path& outputFile);

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_CHILD_PROCESS_H
