// How "doctor" ends when not all is well.
#ifndef ORVANE_TOOL_DOCTOR_SHOWN_VERDICT_H
#define ORVANE_TOOL_DOCTOR_SHOWN_VERDICT_H

#include "text/json.h"

namespace orvane::tool {

// ShownVerdict is the failure whose message already stands on standard output, below the table. It is not shown as text
// again; a document has it.
class ShownVerdict : public PartialFailure {
 public:
  using PartialFailure::PartialFailure;
};

}  // namespace orvane::tool

#endif
