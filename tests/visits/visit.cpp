#include "visits/visit.h"

#include <chrono>
#include <optional>

#include "card/card_session.h"
#include "card/smart_card_service.h"
#include "soak/process_usage.h"
#include "softtoken/softtoken_control.h"
#include "text/bytes.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::test {
namespace {

using namespace orvane::tool;

// Waits until there is a card in the first reader, or none, and gives the reader. The service is asked to tell, as
// programs ask it.
Reader waitForCard(const SmartCardService& service, bool isThere) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (std::chrono::steady_clock::now() < end) {
    const std::vector<Reader> readers = service.readers();
    if (readers.empty()) throw ToolError(ExitCode::kNoCard, "there is no reader");
    if (readers[0].cardPresent == isThere) return readers[0];
    const std::wstring name = toWide(readers[0].name);
    SCARD_READERSTATEW state{};
    state.szReader = name.c_str();
    state.dwCurrentState = readers[0].cardPresent ? SCARD_STATE_PRESENT : SCARD_STATE_EMPTY;
    const LONG result = SCardGetStatusChangeW(service.context(), 1000, &state, 1);
    if (result != static_cast<LONG>(SCARD_E_TIMEOUT)) check("SCardGetStatusChange", result);
  }
  throw ToolError(ExitCode::kInternal, isThere ? "no card has come" : "the card has not gone");
}

std::string signatureOf(CardSession& session, const std::string& pin) {
  for (const std::string& name : session.listFiles("mscp")) session.readFile({"mscp", name});
  session.verifyPin(ROLE_USER, SecretText(pin.data(), pin.size()));
  const HashAlgorithm& algorithm = findHashAlgorithm("sha256");
  return toHex(session.sign(0, algorithm, Bytes(algorithm.size, 0x5A)));
}

}  // namespace

void attend(const Visitor& visitor, std::ofstream& said) {
  settleHeap();
  const SmartCardService service;
  for (int visit = 1; visit <= visitor.visits; ++visit) {
    const auto say = [&](const std::string& what) { said << visit << " " << what << std::endl; };
    const Reader reader = waitForCard(service, true);
    say("present");
    // It stays open until the card has gone, as with a program that does not know better.
    std::optional<CardSession> session;
    try {
      session.emplace(service, reader, DriverChoice{.path = visitor.driver, .cardName = "Orvane"}, nullptr);
      say("signed " + signatureOf(*session, visitor.pin));
    } catch (const ToolError& error) {
      say("failed " + std::string(error.what()));
    }
    waitForCard(service, false);
    session.reset();
    // What the minidriver may keep is to be seen, not the software token's record of the calls. (The program is linked
    // with it, so that it stays loaded: the C++ library in it keeps a locale each time that it is freed.)
    softtoken_reset();
    const ProcessUsage usage = processUsage();
    say("gone " + std::to_string(usage.heapBytes) + " " + std::to_string(usage.handles) + " " +
        std::to_string(usage.threads));
  }
}

long exclusive() {
  const SmartCardService service;
  const std::wstring name = toWide(waitForCard(service, true).name);
  SCARDHANDLE card = 0;
  DWORD protocol = 0;
  const LONG result = SCardConnectW(service.context(), name.c_str(), SCARD_SHARE_EXCLUSIVE,
                                    SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card, &protocol);
  if (result == SCARD_S_SUCCESS) SCardDisconnect(card, SCARD_LEAVE_CARD);
  return result;
}

}  // namespace orvane::test
