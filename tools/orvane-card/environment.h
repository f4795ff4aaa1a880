// What every command works with: the options for the connection, the output, and the card once it is connected.
#ifndef ORVANE_TOOL_ENVIRONMENT_H
#define ORVANE_TOOL_ENVIRONMENT_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "card/card_session.h"
#include "card/smart_card_service.h"
#include "card/token_facts.h"
#include "output.h"

namespace orvane::tool {

// ConnectOptions say which card and which minidriver.
struct ConnectOptions {
  std::optional<std::string> reader;
  std::optional<std::string> driver;
  bool trace = false;
};

// Environment connects the card when the first command wants it and keeps it connected, so that the commands of a
// session share one minidriver context.
class Environment {
 public:
  // `sharesInput`: several commands read from standard input, as in a session.
  Environment(const ConnectOptions& options, const Output& output, bool sharesInput)
      : options_(options), output_(output), sharesInput_(sharesInput) {}

  const Output& output() const { return output_; }
  const ConnectOptions& options() const { return options_; }

  // sharesInput says that what stands in standard input behind a command's own lines belongs to other commands.
  bool sharesInput() const { return sharesInput_; }

  // service and card connect at the first call; they throw ToolError.
  SmartCardService& service();
  CardSession& card();

  // trace shows `line` if the calls of the minidriver are shown.
  void trace(const std::string& line) const;

  // connect makes another session, with this card through this minidriver, for the caller alone. Throws ToolError.
  std::unique_ptr<CardSession> connect(Reader reader, DriverChoice driver);

  // tokenFacts tells about the token behind `card`; no transaction is held.
  TokenFacts tokenFacts(CardSession& card);

  // disconnect gives everything back and says in words what the minidriver did wrong with the memory lent to it.
  std::vector<std::string> disconnect();

 private:
  ConnectOptions options_;
  const Output& output_;
  bool sharesInput_;
  std::unique_ptr<SmartCardService> service_;
  std::unique_ptr<CardSession> card_;
};

}  // namespace orvane::tool

#endif
