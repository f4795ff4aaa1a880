// Whether a token can remove OAEP padding.
#ifndef ORVANE_MINIDRIVER_PRIVATE_KEY_OAEP_SUPPORT_H
#define ORVANE_MINIDRIVER_PRIVATE_KEY_OAEP_SUPPORT_H

#include <string>

#include "cache/process_state.h"
#include "support/dotted_version.h"

namespace orvane {

// isOaepSupported tells whether the token's firmware removes OAEP padding: from version 2.0.0 on. The version is what
// the process-wide record of the token holds; a token without a record counts as too old.
inline bool isOaepSupported(const std::string& serial) {
  const auto version = processState().deviceCache.firmwareVersion(serial);
  return version && compareDottedVersions(*version, "2.0.0") >= 0;
}

}  // namespace orvane

#endif  // ORVANE_MINIDRIVER_PRIVATE_KEY_OAEP_SUPPORT_H
