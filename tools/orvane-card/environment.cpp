#include "environment.h"

#include "card/card_type.h"
#include "card/provider_callbacks.h"
#include "tool_error.h"

namespace orvane::tool {

SmartCardService& Environment::service() {
  if (!service_) service_ = std::make_unique<SmartCardService>();
  return *service_;
}

CardSession& Environment::card() {
  if (!card_) {
    Reader reader = readerWithCard(service().readers(), options_.reader);
    requireOrvane(reader, options_.driver.has_value());
    DriverChoice driver = chooseDriver(options_.driver, reader.atr);
    card_ = connect(std::move(reader), std::move(driver));
  }
  return *card_;
}

std::unique_ptr<CardSession> Environment::connect(Reader reader, DriverChoice driver) {
  std::function<void(const std::string&)> take;
  if (options_.trace) take = [this](const std::string& line) { trace(line); };
  const std::string entry = driver.cardName;
  const bool isOthers = driver.registered && !isMinidriverFile(driver.path);
  try {
    return std::make_unique<CardSession>(service(), std::move(reader), std::move(driver), std::move(take));
  } catch (ToolError& error) {
    // Nobody is to look for the fault in our files when they are not the ones that were to serve.
    if (isOthers && error.exitCode() == ExitCode::kDriver)
      error.withAdvice("The registry entry \"" + entry +
                       "\", of another product, is the one that Windows takes for this card. \"orvane-card doctor\" "
                       "says what to do.");
    throw;
  }
}

TokenFacts Environment::tokenFacts(CardSession& card) {
  return readTokenFacts(card, [&] { return connect(card.reader(), card.driver()); });
}

void Environment::trace(const std::string& line) const {
  if (options_.trace) output_.message("trace: " + line);
}

std::vector<std::string> Environment::disconnect() {
  card_.reset();
  service_.reset();
  return memoryComplaints();
}

}  // namespace orvane::tool
