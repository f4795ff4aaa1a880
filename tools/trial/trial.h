// The parts of the trial. Windows only.
#ifndef ORVANE_TRIAL_TRIAL_H
#define ORVANE_TRIAL_TRIAL_H

#include <filesystem>
#include <string>
#include <vector>

#include "redaction.h"
#include "result.h"

namespace orvane::trial {

// Where everything is and what was asked for.
struct Setting {
  std::filesystem::path programs;  // the folder with this program, the tests and the libraries
  std::filesystem::path report;    // the folder that everything found goes to
  std::filesystem::path scratch;   // the temporary folder of this run
  unsigned limitSeconds = 0;       // for each program
  bool isDetailed = false;         // names and serials may be kept
};

// Carries all parts out, one after the other, and says on standard output how far it is.
std::vector<Result> carryOut(const Setting& setting);

// Collects the machine's facts by collect.cmd, beside the folder of the programs.
Result collectFacts(const Setting& setting);

// Exit code of "--load FILE": the error of loading the library, 0 for none.
int loadAndFree(const wchar_t* file);

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_TRIAL_H
