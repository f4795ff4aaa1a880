// The smart-card service: its readers and the cards in them.
#ifndef ORVANE_TOOL_CARD_SMART_CARD_SERVICE_H
#define ORVANE_TOOL_CARD_SMART_CARD_SERVICE_H

#include <vector>

#include "card/reader.h"
#include "platform/windows_api.h"

namespace orvane::tool {

// SmartCardService owns the connection to the smart-card service (a resource-manager context).
class SmartCardService {
 public:
  // Throws ToolError (ExitCode::kNoCard) when the service cannot be reached.
  SmartCardService();
  ~SmartCardService();
  SmartCardService(const SmartCardService&) = delete;
  SmartCardService& operator=(const SmartCardService&) = delete;

  SCARDCONTEXT context() const { return context_; }

  // readers asks for all readers and their cards; empty when there is no reader. Throws ToolError.
  std::vector<Reader> readers() const;

 private:
  SCARDCONTEXT context_ = 0;
};

// check throws ToolError for a smart-card service call that failed; `call` is its published name.
void check(const char* call, LONG result);

}  // namespace orvane::tool

#endif
