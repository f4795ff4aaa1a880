// Asking about the token behind a card.
#include <algorithm>
#include <array>
#include <map>

#include "card/card_session.h"
#include "card/token_facts.h"
#include "local_files.h"
#include "log/files.h"
#include "log/lines.h"
#include "log/process_name.h"
#include "minidriver/frame/serial_resolution.h"
#include "support/text_compare.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr std::size_t kReaderNameSize = 512;
constexpr std::size_t kSerialReplySize = 64;

// The reader's name as the minidriver sees it: in the machine's code page. Empty when it cannot be asked.
std::string readerNameOf(SCARDHANDLE card) {
  std::array<char, kReaderNameSize> name{};
  auto length = static_cast<DWORD>(name.size());
  DWORD state = 0;
  DWORD protocol = 0;
  DWORD atrLength = 0;
  if (SCardStatusA(card, name.data(), &length, &state, &protocol, nullptr, &atrLength) != SCARD_S_SUCCESS) return {};
  const std::string_view text(name.data(), name.size());
  return std::string(text.substr(0, text.find('\0')));
}

// Whether a failed transmission says nothing about what the card answers to the command.
bool isInterrupted(LONG result) {
  constexpr LONG kInterruptions[] = {
      static_cast<LONG>(SCARD_W_REMOVED_CARD),       static_cast<LONG>(SCARD_W_RESET_CARD),
      static_cast<LONG>(SCARD_E_NO_SMARTCARD),       static_cast<LONG>(SCARD_W_UNPOWERED_CARD),
      static_cast<LONG>(SCARD_E_READER_UNAVAILABLE), static_cast<LONG>(SCARD_E_NO_SERVICE),
      static_cast<LONG>(SCARD_E_SERVICE_STOPPED),    static_cast<LONG>(SCARD_E_INVALID_HANDLE)};
  return std::find(std::begin(kInterruptions), std::end(kInterruptions), result) != std::end(kInterruptions);
}

// Sends the command that the minidriver sends for a serial, in the same way.
SerialAnswer askForSerial(SCARDHANDLE card, std::string_view readerName) {
  const SerialCommand command = serialCommandFor(readerName);
  const auto bytes = serialCommandBytes(command);
  SCARD_IO_REQUEST header{};
  header.dwProtocol = SCARD_PROTOCOL_T1;
  header.cbPciLength = sizeof header;
  std::array<BYTE, kSerialReplySize> reply{};
  auto length = static_cast<DWORD>(reply.size());
  const LONG result =
      SCardTransmit(card, &header, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, reply.data(), &length);
  if (result != SCARD_S_SUCCESS) return {!isInterrupted(result), std::nullopt};
  return {true, serialInReply(command, std::span(reply.data(), std::min<std::size_t>(length, reply.size())))};
}

// What is written to this program's log from now on.
class OwnLog {
 public:
  OwnLog() : sizes_(sizes()) {}

  // The messages that came since; a file that cannot be read gives none.
  std::vector<std::string> newMessages() const {
    std::vector<std::string> messages;
    for (const auto& [path, size] : sizes()) {
      const auto before = sizes_.find(path);
      const std::size_t start = before == sizes_.end() ? 0 : static_cast<std::size_t>(before->second);
      try {
        const Bytes content = readLocalFile(path);
        if (content.size() <= start) continue;
        LogReader reader;
        const auto* text = reinterpret_cast<const char*>(content.data());
        for (LogLine& line : reader.add({text + start, content.size() - start}))
          messages.push_back(std::move(line.message));
      } catch (const ToolError&) {
        // Unreadable: what stands there is not known.
      }
    }
    return messages;
  }

 private:
  static std::map<std::string, std::uint64_t> sizes() {
    const ProcessName name;
    const std::string process = fromCodePage(std::string(name.text()));
    std::map<std::string, std::uint64_t> sizes;
    // The folder keeps the letters of the first start; a program can be started by a name in other ones.
    for (const LogFile& file : logFilesBelow(temporaryFolder())) {
      if (equalsIgnoreCase(file.process, process)) sizes[file.path] = file.size;
    }
    return sizes;
  }

  std::map<std::string, std::uint64_t> sizes_;
};

void findOutAccess(CardSession& card, const std::function<std::unique_ptr<CardSession>()>& connectAgain,
                   TokenFacts& facts) {
  // The key list decides, not the result of opening: what gives its keys can be used.
  if (facts.keys != 0) {
    facts.access = TokenAccess::kOpen;
    return;
  }
  if (facts.serial.empty() || !writesErrors(card)) return;
  // The minidriver opens a token that gave no keys again for each new context.
  const OwnLog log;
  const std::unique_ptr<CardSession> again = connectAgain();
  const auto failure = openFailureIn(log.newMessages(), facts.serial);
  if (!failure) {
    facts.access = TokenAccess::kOpen;
    return;
  }
  facts.access = TokenAccess::kRefused;
  facts.error = failure->error;
  facts.errorLine = failure->line;
}

}  // namespace

bool writesErrors(CardSession& card) {
  constexpr int kLostLines = 2;
  const OwnLog log;
  for (int i = 0; i <= kLostLines; ++i) card.cardProperty(CP_CARD_PIN_INFO, ROLE_USER);
  const std::vector<std::string> messages = log.newMessages();
  return std::any_of(messages.begin(), messages.end(), isProbe);
}

TokenFacts readTokenFacts(CardSession& card, const std::function<std::unique_ptr<CardSession>()>& connectAgain) {
  TokenFacts facts;
  try {
    const CardSession::Transaction transaction(card);
    const PropertyAnswer property = card.cardProperty(CP_CARD_SERIAL_NO, 0);
    if (property.status == 0) {
      facts.serial = toUtf8(property.data);
      facts.serial.resize(std::min(facts.serial.size(), facts.serial.find('\0')));
    }
    const std::string readerName = readerNameOf(card.handle());
    const bool isAsked = !readerName.empty() && !serialInReaderName(readerName);
    const SerialAnswer answer = isAsked ? askForSerial(card.handle(), readerName) : SerialAnswer{};
    facts.origin = serialOriginOf(facts.serial, readerName, answer);
    if (answer.serial && *answer.serial != facts.serial) facts.stated = *answer.serial;
  } catch (const ToolError&) {
    // The card cannot be had: what was not asked yet stays unknown.
  }
  try {
    for (const ContainerRecord& record : decodeContainerMap(card.readFile({"mscp", "cmapfile"})))
      facts.keys += record.valid() ? 1 : 0;
    findOutAccess(card, connectAgain, facts);
  } catch (const ToolError&) {
    // Whether it is open stays unknown.
  }
  return facts;
}

}  // namespace orvane::tool
