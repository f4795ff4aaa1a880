#include "card/provider_callbacks.h"
#include "commands/commands.h"
#include "input.h"
#include "tool_error.h"

namespace orvane::tool {

SmartCardService& Environment::service() {
  if (!service_) service_ = std::make_unique<SmartCardService>();
  return *service_;
}

CardSession& Environment::card() {
  if (!card_) {
    Reader reader = service().readerWithCard(options_.reader);
    DriverChoice driver = chooseDriver(options_.driver, reader.atr);
    std::function<void(const std::string&)> trace;
    if (options_.trace) trace = [this](const std::string& line) { output_.message("trace: " + line); };
    card_ = std::make_unique<CardSession>(service(), std::move(reader), std::move(driver), std::move(trace));
  }
  return *card_;
}

std::vector<std::string> Environment::disconnect() {
  card_.reset();
  service_.reset();
  return memoryComplaints();
}

void ensurePin(Environment& environment, const PinOptions& options) {
  if (options.none || environment.card().pinVerified()) return;
  if (!options.fromStandardInput && !Input::fromConsole())
    throw ToolError(ExitCode::kPinNeeded, "this needs the user PIN",
                    "Give --pin-stdin and write the PIN to standard input, or run the program on a console.");
  Secret pin;
  Input::readSecret(pin, "User PIN: ");
  environment.card().verifyPin(ROLE_USER, pin);
}

std::vector<Container> readContainers(CardSession& card) {
  const CardSession::Transaction transaction(card);
  std::vector<Container> containers;
  for (ContainerRecord& record : decodeContainerMap(card.readFile({"mscp", "cmapfile"}))) {
    Container container{std::move(record), {}, {}, {}};
    if (container.record.valid()) {
      try {
        container.certificate = card.readFile(certificateFile(container.record.index, container.record.signatureBits));
      } catch (const ToolError& error) {
        container.whyNone = error.what();
        container.status = error.status();
      }
    } else {
      container.whyNone = "the container is not in use";
    }
    containers.push_back(std::move(container));
  }
  return containers;
}

const Container& chooseContainer(const std::vector<Container>& containers, std::optional<int> index,
                                 bool (*fits)(const ContainerRecord&), const char* purpose) {
  if (index) {
    if (*index < 0 || static_cast<std::size_t>(*index) >= containers.size())
      throw ToolError(ExitCode::kNotFound, "there is no container " + std::to_string(*index),
                      "\"orvane-card list\" shows the containers that there are.");
    return containers[static_cast<std::size_t>(*index)];
  }
  const Container* choice = nullptr;
  for (const Container& container : containers) {
    if (!fits(container.record)) continue;
    if (!choice || (container.record.isDefault() && !choice->record.isDefault())) choice = &container;
  }
  if (!choice) throw ToolError(ExitCode::kNotFound, std::string("the card has no key that can ") + purpose);
  return *choice;
}

}  // namespace orvane::tool
