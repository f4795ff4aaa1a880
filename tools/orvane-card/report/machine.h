// What a report says about the machine: registry values, files, accounts.
#ifndef ORVANE_TOOL_REPORT_MACHINE_H
#define ORVANE_TOOL_REPORT_MACHINE_H

#include <string>
#include <vector>

#include "text/json.h"

namespace orvane::tool {

// registryReport gives the values that decide about minidriver, log and certificates: the card types that fit the token
// or name the minidriver, "logLevel", the protection of the logon process, certificate propagation, Windows' version. A
// missing value is null.
Json registryReport();

// filesReport gives path, version, kind of processor, size and SHA-256 hash of the minidriver at `driverPath`, of the
// token library, of this program, and of the libraries that they need.
Json filesReport(const std::string& driverPath);

// accountNames gives the names of this user's account, without duplicates; computerNames those of the machine and its
// domain.
std::vector<std::string> accountNames();
std::vector<std::string> computerNames();

}  // namespace orvane::tool

#endif
