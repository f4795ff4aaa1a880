// The machine on which the trial runs. Windows only.
#ifndef ORVANE_TRIAL_MACHINE_H
#define ORVANE_TRIAL_MACHINE_H

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "redaction.h"

namespace orvane::trial {

// Windows' build, the processor, the architecture of this program and whether it is emulated, whether it has
// administrator's rights: name and value of each.
std::vector<std::pair<std::string, std::string>> machineFacts();

// Whether a bad exit code after good tests means anything: not in an emulated Arm system, whose processor can spoil it.
bool isExitCodeJudged();

// Everything in the keys of the machine's registry that the product owns or writes into, as one text.
std::string registrySnapshot();

// Removes what tests that died have left in this user's registry; says whether there was anything.
bool removeTestKeys();

// Takes this user's, this machine's and this kit's names and folders out of texts.
Redaction machineRedaction(const std::filesystem::path& kit);

std::string toUtf8(const std::wstring& text);

// Date and time of now, as "2026-11-21 23:45".
std::string nowText();

}  // namespace orvane::trial

#endif  // ORVANE_TRIAL_MACHINE_H
