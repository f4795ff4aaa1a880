// pin: verify, change and forget a PIN; and the PIN that other commands need.
#include <vector>

#include "commands/commands.h"
#include "input.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

PIN_ID roleOf(const PinCommandOptions& options) { return options.administrator ? ROLE_ADMIN : ROLE_USER; }

std::string nameOf(const PinCommandOptions& options) {
  return options.administrator ? "Administrator PIN" : "User PIN";
}

SecretText askForPin(const Environment& environment, const std::string& name, PinLength length) {
  environment.trace(name + " asked for");
  return readPin(name + ": ", length);
}

// The new PIN once more: a person cannot see what is typed, and who pipes it twice wants it compared. Nothing to
// compare is there when other commands read what follows.
std::vector<SecretText> repetitions(const Environment& environment, const std::string& name) {
  if (isInputConsole()) return {askForPin(environment, name + " again", PinLength::kOfTokens)};
  return environment.sharesInput() ? std::vector<SecretText>() : readFurtherLines();
}

// The minidriver has one verification, that of the user PIN, and counts its attempts.
void warnOfAdministrator(const Environment& environment) {
  environment.output().message(
      "Mind: for the administrator, too, this minidriver verifies the user PIN. An administrator PIN counts as a wrong "
      "user PIN and uses up one of the user's attempts. (An empty line ends this without one.)");
}

}  // namespace

std::optional<SecretText> neededPin(Environment& environment, const PinOptions& options) {
  if (options.none || environment.card().pinVerified()) return std::nullopt;
  if (!options.fromStandardInput && !isInputConsole())
    throw ToolError(ExitCode::kPinNeeded, "this needs the user PIN",
                    "Give --pin-stdin and write the PIN to standard input, or run the program on a console.");
  return askForPin(environment, "User PIN", PinLength::kOfTokens);
}

Json runPinVerify(Environment& environment, const PinCommandOptions& options) {
  CardSession& card = environment.card();
  if (options.administrator) warnOfAdministrator(environment);
  const SecretText pin = askForPin(environment, "User PIN", PinLength::kOfTokens);
  // After one verification the minidriver takes any PIN for right without looking at it.
  if (card.pinVerified()) card.forgetPins(PIN_SET_ALL_ROLES);
  card.verifyPin(roleOf(options), pin);
  environment.output().text(options.administrator ? "The user PIN is right; by it the minidriver takes the "
                                                    "administrator for verified.\n"
                                                  : "The user PIN is right.\n");
  // What a minidriver reports with a right PIN is no count of the token's.
  return {
      {"role", options.administrator ? "administrator" : "user"}, {"verified", true}, {"attemptsRemaining", nullptr}};
}

Json runPinChange(Environment& environment, const PinCommandOptions& options) {
  CardSession& card = environment.card();
  const std::string name = nameOf(options);
  // How long an administrator PIN from elsewhere can be is not known here.
  const PinLength length = options.administrator ? PinLength::kAny : PinLength::kOfTokens;
  const SecretText current = askForPin(environment, "Current " + name, length);
  const SecretText replacement = askForPin(environment, "New " + name, PinLength::kOfTokens);
  const std::vector<SecretText> again = repetitions(environment, "New " + name);
  if (again.size() > 1)
    throw ToolError(ExitCode::kUsage, "more lines came than PINs; nothing was changed",
                    "The current PIN, the new one and, if you like, the new one again: each on a line of its own.");
  if (!again.empty() && again.front().view() != replacement.view())
    throw ToolError(ExitCode::kUsage, "the two new PINs differ; nothing was changed",
                    "No PIN was sent to the token, so no attempt was used up.");
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
