// Several findings about one link, put together to one.
#ifndef ORVANE_TOOL_DOCTOR_PROBLEMS_H
#define ORVANE_TOOL_DOCTOR_PROBLEMS_H

#include <vector>

#include "doctor/report.h"

namespace orvane::tool {

// Problems collects what was found about all containers or certificates.
struct Problems {
  std::vector<Finding> broken;
  std::vector<Finding> suspicious;

  void add(Finding finding);

  bool empty() const { return broken.empty() && suspicious.empty(); }

  // finding puts the worst ones together: the sentences of the first three and the advice of the first. Not for none.
  Finding finding() const;
};

}  // namespace orvane::tool

#endif
