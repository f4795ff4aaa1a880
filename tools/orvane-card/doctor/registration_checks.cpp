// Judging which minidriver Windows takes for the card, by the registry.
#include <algorithm>

#include "doctor/checks.h"
#include "doctor/words.h"
#include "support/text_compare.h"
#include "text/phrases.h"

namespace orvane::tool {
namespace {

// The entry that the packages of the minidriver make.
constexpr std::string_view kOwnEntry = "Brightfold Orvane";
constexpr const char* kCardTypes = "HKLM\\SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\";

bool isOurs(const CardType& type) {
  return type.driverPath.empty() ? equalsIgnoreCase(type.name, kOwnEntry) : isMinidriverFile(type.driverPath);
}

// What is wrong with an entry's provider texts, or an empty text.
std::string providerProblem(const CardType& type) {
  const auto differs = [&](const char* value, const std::string& stored, std::string_view wanted) {
    if (stored == wanted) return std::string();
    return "The registry entry " + inQuotes(type.name) + " has " +
           (stored.empty() ? "no text as its value " + inQuotes(value)
                           : "the value " + inQuotes(value) + " as " + inQuotes(stored)) +
           " instead of exactly " + inQuotes(wanted) + ".";
  };
  std::string problem = differs("Crypto Provider", type.cryptoProvider, kCryptoProvider);
  return problem.empty() ? differs("Smart Card Key Storage Provider", type.keyStorageProvider, kKeyStorageProvider)
                         : problem;
}

bool isWhole(const Bytes& mask) {
  return std::all_of(mask.begin(), mask.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

// Why an entry that names our minidriver does not fit the token's ATR.
std::string whyNoMatch(const CardType& type, ByteView atr) {
  if (type.atr.empty()) return "it has no ATR";
  if (type.atr.size() != atr.size())
    return "its ATR has " + std::to_string(type.atr.size()) + " bytes, the token's " + std::to_string(atr.size());
  if (!type.mask.empty() && type.mask.size() != type.atr.size())
    return "its ATRMask has " + std::to_string(type.mask.size()) + " bytes, its ATR " +
           std::to_string(type.atr.size()) + "; the mask is " + toHex(type.mask, " ");
  std::string mask =
      "its ATRMask is " + toHex(type.mask, " ") + ", which has to be " + std::to_string(atr.size()) + " times FF";
  if (std::equal(atr.begin(), atr.end(), type.atr.begin(), type.atr.end())) return mask;
  return "its ATR is " + toHex(type.atr, " ") + (isWhole(type.mask) ? "" : ", and " + mask);
}

Finding judgeUnknownAtr(const std::vector<CardType>& types, ByteView atr) {
  for (const CardType& type : types) {
    if (!isMinidriverFile(type.driverPath)) continue;
    return broken("The registry entry " + inQuotes(type.name) +
                      " names the minidriver but does not fit the token: " + whyNoMatch(type, atr) + ".",
                  kInstallAgain);
  }
  // The card in the reader, if there is one, may be of another kind, such as a bank card.
  return broken(
      "The registry knows no card type with an Orvane token's ATR, so Windows does not know the minidriver for it.",
      "Install the minidriver on this machine if Orvane tokens are to be used here; no other card needs it.");
}

// An entry with what Windows would load for it.
std::string described(const CardType& type) {
  if (!type.driverPath.empty()) return inQuotes(type.name) + " (" + type.driverPath + ")";
  return inQuotes(type.name) +
         (type.cryptoProvider.empty() ? " (no minidriver)" : " (" + type.cryptoProvider + ", no minidriver)");
}

std::string inOrder(const std::vector<CardType>& fitting) {
  std::string list;
  for (const CardType& type : fitting) list += (list.empty() ? "" : ", ") + described(type);
  return "In the order in which Windows takes them: " + list + ".";
}

Finding judgeOtherProduct(const std::vector<CardType>& fitting) {
  const CardType& first = fitting.front();
  const std::string uninstall = "Uninstall the product that " + inQuotes(first.name) + " belongs to";
  // At the end, where nothing follows that could be taken for a part of the command.
  const std::string remove =
      " If the entry stays, have an administrator remove it: reg delete \"" + (kCardTypes + first.name) + "\" /f";
  if (std::none_of(fitting.begin(), fitting.end(), isOurs))
    return broken("Only another product's entry, " + described(first) +
                      ", fits this token, so Windows takes that product for it." +
                      (fitting.size() == 1 ? "" : " " + inOrder(fitting)),
                  uninstall + ", then install the minidriver." + remove);
  return broken(
      "Another product's entry, " + described(first) +
          ", comes before ours, so Windows takes that product for this token. " + inOrder(fitting),
      uninstall + "; as long as its entry is there, installing this minidriver again changes nothing." + remove);
}

Finding judgeMatch(const std::vector<CardType>& fitting) {
  const CardType& type = fitting.front();
  if (!isOurs(type)) return judgeOtherProduct(fitting);
  if (type.driverPath.empty())
    return broken("The registry entry " + inQuotes(type.name) + " names no minidriver.", kInstallAgain);
  if (const std::string problem = providerProblem(type); !problem.empty()) return broken(problem, kInstallAgain);
  const std::string names =
      "The registry entry " + inQuotes(type.name) + " names " + type.driverPath + " for this card";
  if (fitting.size() == 1) return ok(names + ".");
  return warning(names + ". Other entries fit it, too; Windows takes the first. " + inOrder(fitting),
                 "Nothing, if the certificates show. Otherwise uninstall the other products for this token.");
}

}  // namespace

// Microsoft Learn, "Smart Card Plug and Play": to pair a card, Windows goes through the entries below
// Calais\SmartCards, applies each mask, and stops at the first that fits. In which order it goes through them is not
// written there; it is taken to be the registry's own, which RegEnumKeyEx gives and in which `types` come.
Registration judgeRegistration(const std::vector<CardType>& types, ByteView atr, bool driverNamed) {
  std::vector<CardType> fitting;
  for (const CardType& type : types) {
    if (atrMatches(atr, type)) fitting.push_back(type);
  }
  Registration registration;
  if (!fitting.empty()) registration.type = fitting.front();
  registration.finding = fitting.empty() ? judgeUnknownAtr(types, atr) : judgeMatch(fitting);
  if (driverNamed && registration.finding.state == StepState::kBroken) {
    registration.finding.state = StepState::kWarning;
    registration.finding.text += " What follows is about the minidriver named with --driver.";
  }
  return registration;
}

}  // namespace orvane::tool
