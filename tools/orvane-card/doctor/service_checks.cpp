// Judging the smart-card service.
#include "doctor/checks.h"
#include "doctor/words.h"

namespace orvane::tool {
namespace {

constexpr std::uint32_t kServiceStopped = 0x8010001E;

// Windows starts the service by itself when the first reader appears.
constexpr const char* kStart =
    "Plug the token in: Windows starts the service when the first reader appears. If the token is in, start it as an "
    "administrator: sc.exe start SCardSvr";
// Smart cards in a remote session are those of the client: Microsoft Learn, "Smart Card and Remote Desktop Services".
constexpr const char* kRemote =
    " This is a remote session: programs in it see the readers of the machine where you sit, not those of this one.";

}  // namespace

Finding judgeService(const SmartCardServiceFacts& facts) {
  if (!facts.error) return ok(std::string("The smart-card service runs.") + (facts.isRemote ? kRemote : ""));
  const std::string text = capitalised(inWords(*facts.error)) + ".";
  if (facts.isRemote)
    return broken(text + kRemote,
                  "Switch the passing on of smart cards on in the remote-desktop program, plug the token in where you "
                  "sit, and connect again.");
  if (facts.state == ServiceState::kDisabled)
    return broken(text + " The service is disabled, so Windows does not start it.",
                  "As an administrator: sc.exe config SCardSvr start= demand, then plug the token in again, or: sc.exe "
                  "start SCardSvr");
  if (facts.state == ServiceState::kRunning)
    return broken(
        text + " The service runs all the same.",
        "As an administrator: sc.exe stop SCardSvr, then: sc.exe start SCardSvr. If that does not help, start "
        "Windows anew.");
  // Windows stops the service when the last reader goes.
  if (facts.error->status() == kServiceStopped)
    return broken(text + " It was stopped by somebody, or because the last reader was unplugged.", kStart);
  if (facts.state == ServiceState::kStopped)
    return broken(text + " It was not needed since Windows started: no reader has been attached.", kStart);
  return broken(text, kStart);
}

}  // namespace orvane::tool
