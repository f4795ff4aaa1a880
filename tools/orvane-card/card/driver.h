// Finding and loading the minidriver for a card.
#ifndef ORVANE_TOOL_CARD_DRIVER_H
#define ORVANE_TOOL_CARD_DRIVER_H

#include <optional>
#include <string>
#include <vector>

#include "card/card_type.h"
#include "platform/card_module.h"

namespace orvane::tool {

// registeredCardTypes reads all card types that the operating system knows, in the order of the registry.
std::vector<CardType> registeredCardTypes();

// DriverChoice is a minidriver and why it was chosen.
struct DriverChoice {
  std::string path;         // full path, UTF-8
  std::string cardName;     // name of the card type, or "Orvane" for a card that the registry does not know
  bool registered = false;  // true: from the registry entry `cardName`; false: named on the command line
};

// chooseDriver takes `path` when there is one (made absolute), else the first registry entry that matches `atr`. Throws
// ToolError (ExitCode::kDriver) when the registry knows no minidriver for the card.
DriverChoice chooseDriver(const std::optional<std::string>& path, ByteView atr);

// systemFolder gives the folder of the operating system's libraries, UTF-8.
std::string systemFolder();

// fileVersion gives the version in a DLL's version resource, "1.2.3.4", or an empty text.
std::string fileVersion(const std::string& path);

// DriverModule keeps a minidriver loaded.
class DriverModule {
 public:
  // Loads the DLL from its full path; libraries that it needs are looked for beside it and in the system folders.
  // Throws ToolError (ExitCode::kDriver).
  explicit DriverModule(const std::string& path);
  ~DriverModule();
  DriverModule(const DriverModule&) = delete;
  DriverModule& operator=(const DriverModule&) = delete;

  PFN_CARD_ACQUIRE_CONTEXT acquireContext() const { return acquireContext_; }

 private:
  HMODULE module_ = nullptr;
  PFN_CARD_ACQUIRE_CONTEXT acquireContext_ = nullptr;
};

}  // namespace orvane::tool

#endif
