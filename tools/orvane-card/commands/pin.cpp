// pin: verify, change and forget a PIN; and the PIN that other commands need.
#include "commands/commands.h"
#include "input.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

PIN_ID roleOf(const PinCommandOptions& options) { return options.administrator ? ROLE_ADMIN : ROLE_USER; }

std::string nameOf(const PinCommandOptions& options) {
  return options.administrator ? "Administrator PIN" : "User PIN";
}

SecretText askForPin(const Environment& environment, const std::string& name) {
  environment.trace(name + " asked for");
  return readPin(name + ": ");
}

}  // namespace

std::optional<SecretText> neededPin(Environment& environment, const PinOptions& options) {
  if (options.none || environment.card().pinVerified()) return std::nullopt;
  if (!options.fromStandardInput && !isInputConsole())
    throw ToolError(ExitCode::kPinNeeded, "this needs the user PIN",
                    "Give --pin-stdin and write the PIN to standard input, or run the program on a console.");
  return askForPin(environment, "User PIN");
}

Json runPinVerify(Environment& environment, const PinCommandOptions& options) {
  CardSession& card = environment.card();
  const std::uint32_t attempts = card.verifyPin(roleOf(options), askForPin(environment, nameOf(options)));
  environment.output().text(nameOf(options) + " verified. Attempts left: " + std::to_string(attempts) + "\n");
  return {
      {"role", options.administrator ? "administrator" : "user"}, {"verified", true}, {"attemptsRemaining", attempts}};
}

Json runPinChange(Environment& environment, const PinCommandOptions& options) {
  CardSession& card = environment.card();
  const SecretText current = askForPin(environment, "Current " + nameOf(options));
  const SecretText replacement = askForPin(environment, "New " + nameOf(options));
  // Only a person who cannot see what is typed has to type it twice.
  if (isInputConsole() && askForPin(environment, "New " + nameOf(options) + " again").view() != replacement.view())
    throw ToolError(ExitCode::kUsage, "the two new PINs differ; nothing was changed");
  card.changePin(roleOf(options), current, replacement);
  environment.output().text(nameOf(options) + " changed.\n");
  return {{"role", options.administrator ? "administrator" : "user"}, {"changed", true}};
}

Json runPinForget(Environment& environment) {
  environment.card().forgetPins(PIN_SET_ALL_ROLES);
  environment.output().text("No PIN is verified any more.\n");
  return {{"forgotten", true}};
}

}  // namespace orvane::tool
