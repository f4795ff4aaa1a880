// This user's store of certificates, as "doctor" looks at it.
#ifndef ORVANE_TOOL_DOCTOR_USER_STORE_H
#define ORVANE_TOOL_DOCTOR_USER_STORE_H

#include <vector>

#include "doctor/checks.h"

namespace orvane::tool {

// storeFacts looks for the certificates of `containers`, those that hold one. It asks nothing on the network.
StoreFacts storeFacts(const std::vector<ContainerFacts>& containers);

}  // namespace orvane::tool

#endif
