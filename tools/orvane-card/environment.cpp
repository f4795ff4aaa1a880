#include "environment.h"

#include "card/provider_callbacks.h"

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
  return std::make_unique<CardSession>(service(), std::move(reader), std::move(driver), std::move(take));
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
