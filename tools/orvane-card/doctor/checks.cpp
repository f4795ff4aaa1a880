#include "doctor/checks.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "support/text_compare.h"

namespace orvane::tool {
namespace {

constexpr const char* kPlugIn = "Plug the token in; if it is in, unplug it, wait a moment and plug it in again.";
constexpr const char* kInstallAgain = "Install the minidriver again, with the package for this machine.";
constexpr const char* kSetLogLevel =
    "As an administrator: reg add HKLM\\Software\\Brightfold\\Orvane /v logLevel /t REG_DWORD /d 2 /f (3 instead of 2 "
    "writes everything).";

std::string inQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string_view fileName(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == std::string_view::npos ? path : path.substr(separator + 1);
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

// Why an entry that names our minidriver does not fit the token's ATR.
std::string whyNoMatch(const CardType& type, ByteView atr) {
  if (type.atr.empty()) return "it has no ATR";
  if (type.atr.size() != atr.size())
    return "its ATR has " + std::to_string(type.atr.size()) + " bytes, the token's " + std::to_string(atr.size());
  if (!type.mask.empty() && type.mask.size() != type.atr.size())
    return "its ATRMask has " + std::to_string(type.mask.size()) + " bytes, its ATR " + std::to_string(type.atr.size());
  return "its ATR is " + toHex(type.atr, " ");
}

Finding judgeUnknownAtr(const std::vector<CardType>& types, ByteView atr) {
  const ByteView ours = orvaneAtr();
  if (!std::equal(atr.begin(), atr.end(), ours.begin(), ours.end()))
    return broken("The registry knows no card type with the ATR " + toHex(atr, " ") + ".",
                  "This card is no Orvane token. Plug the token in, or choose its reader with --reader.");
  for (const CardType& type : types) {
    if (!equalsIgnoreCase(fileName(type.driverPath), kMinidriver)) continue;
    return broken("The registry entry " + inQuotes(type.name) +
                      " names the minidriver but does not fit the token: " + whyNoMatch(type, atr) + ".",
                  kInstallAgain);
  }
  return broken("The registry knows no card type with the token's ATR, so Windows does not know its minidriver.",
                "Install the minidriver on this machine.");
}

Finding judgeMatch(const CardType& type, const std::vector<std::string>& others) {
  if (type.driverPath.empty())
    return broken("The registry entry " + inQuotes(type.name) + " names no minidriver.", kInstallAgain);
  if (const std::string problem = providerProblem(type); !problem.empty()) return broken(problem, kInstallAgain);
  const std::string names =
      "The registry entry " + inQuotes(type.name) + " names " + type.driverPath + " for this card";
  if (!equalsIgnoreCase(fileName(type.driverPath), kMinidriver))
    return warning(names + ", which is another minidriver.",
                   "If this is the Orvane token, remove that entry and install the minidriver again.");
  if (!others.empty())
    return warning(
        names + "; the entry " + inQuotes(others.front()) + " fits it, too, and Windows takes the first one.",
        "Remove the entry that is not wanted.");
  return ok(names + ".");
}

std::string listed(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

// A library that is there: is it one, and for this process?
std::optional<Finding> judgeKind(const LibraryFile& file, std::uint16_t machine, const std::string& advice) {
  if (!file.readable)
    return broken(file.path + " is there but cannot be read.",
                  "Look whether this user may read it and whether another program, such as a virus scanner, holds it.");
  if (!file.pe) return broken(file.path + " is no program library.", advice);
  if (canLoad(machine, file.pe->machine)) return std::nullopt;
  return broken(file.path + " is built for " + machineName(file.pe->machine) + ", but this program runs as " +
                    processName(machine) + ", and a program can only load libraries of its own kind.",
                advice);
}

Finding judgeMissing(const std::string& library, const LibraryFile& file, std::uint16_t machine,
                     const char* otherwise) {
  return broken(library + " needs " + listed(file.missing) + ", which is not there.",
                "Install the Visual C++ runtime for " + processName(machine) + ", or " + otherwise + " again.");
}

std::string described(const LibraryFile& file) {
  return file.path + (file.version.empty() ? "" : ", version " + file.version) + ", for " +
         machineName(file.pe->machine);
}

}  // namespace

bool isApiSet(std::string_view library) {
  return equalsIgnoreCase(library.substr(0, 4), "api-") || equalsIgnoreCase(library.substr(0, 4), "ext-");
}

Finding judgeReaders(const std::vector<Reader>& readers, const std::optional<std::string>& wanted, bool isRemote) {
  if (readers.empty() && isRemote)
    return broken("Windows sees no card reader on the machine from which this remote session is held.",
                  "Plug the token in there, switch the passing on of smart cards on in the remote-desktop program, and "
                  "connect again.");
  if (readers.empty())
    return broken("Windows sees no card reader.",
                  "The token is its own reader: plug it in. If it is in, look in the Device Manager whether its reader "
                  "is shown and without a warning sign.");
  std::vector<std::string> names;
  names.reserve(readers.size());
  for (const Reader& reader : readers) names.push_back(inQuotes(reader.name));
  if (!chooseReader(readers, wanted))
    return broken("There is no reader " + inQuotes(wanted.value_or("")) + "; there is " + listed(names) + ".",
                  "Write the reader's name exactly as shown here, or leave --reader out.");
  const std::string found =
      (readers.size() == 1 ? "One reader: " : std::to_string(readers.size()) + " readers: ") + listed(names) + ".";
  const auto tokens = std::count_if(readers.begin(), readers.end(), isOrvane);
  if (tokens < 2) return ok(found);
  return ok(found + " Orvane tokens are in " + std::to_string(tokens) + " of them; what follows is about one, and " +
            "--reader chooses another.");
}

Finding judgeCard(const Reader& reader) {
  if (!reader.cardPresent)
    return broken("There is no card in " + inQuotes(reader.name) + ".",
                  std::string(kPlugIn) + " If it is in another reader, choose that with --reader.");
  if (reader.mute) return broken("The card in " + inQuotes(reader.name) + " does not answer.", kPlugIn);
  if (reader.exclusive)
    return broken("Another program holds the card in " + inQuotes(reader.name) + " for itself alone.",
                  "Close the other program, or wait until it has finished.");
  if (!isOrvane(reader))
    return warning(
        "The card in " + inQuotes(reader.name) + " is of another kind; its ATR is " + toHex(reader.atr, " ") + ".",
        "Plug the Orvane token in, or choose its reader with --reader.");
  return ok("An Orvane token is in " + inQuotes(reader.name) + ".");
}

Registration judgeRegistration(const std::vector<CardType>& types, ByteView atr, bool driverNamed) {
  Registration registration;
  std::vector<std::string> others;
  for (const CardType& type : types) {
    if (!atrMatches(atr, type)) continue;
    if (registration.type) {
      others.push_back(type.name);
    } else {
      registration.type = type;
    }
  }
  registration.finding = registration.type ? judgeMatch(*registration.type, others) : judgeUnknownAtr(types, atr);
  if (driverNamed && registration.finding.state == StepState::kBroken) {
    registration.finding.state = StepState::kWarning;
    registration.finding.text += " What follows is about the minidriver named with --driver.";
  }
  return registration;
}

Finding judgeDriver(const LibraryFile& file, std::uint16_t machine) {
  if (!file.found)
    return broken("There is no file " + file.path + ".",
                  "Install the minidriver again. A registry entry without a folder means the system folder.");
  if (auto finding = judgeKind(file, machine, kInstallAgain)) return *finding;
  if (!file.missing.empty()) return judgeMissing(file.path, file, machine, "the minidriver");
  return ok(described(file) + ".");
}

Finding judgeLibrary(const PeFile& driver, const LibraryFile& file, std::uint16_t machine) {
  const std::string library(kTokenLibrary);
  const auto isTokenLibrary = [](const std::string& name) { return equalsIgnoreCase(name, kTokenLibrary); };
  if (std::none_of(driver.imports.begin(), driver.imports.end(), isTokenLibrary))
    return ok("This minidriver does not use " + library + ".");
  const std::string advice = "Install the token's own software for " + processName(machine) +
                             "; it brings this library. It has to lie beside the minidriver or in the system folder.";
  if (!file.found) return broken(library + " is missing; it is not at " + file.path + ".", advice);
  if (auto finding = judgeKind(file, machine, advice)) return *finding;
  if (!file.missing.empty()) return judgeMissing(library, file, machine, "the token's own software");
  if (file.loadError)
    return broken(file.path + " does not load: " + file.loadError->what() + ".",
                  file.loadError->advice().empty() ? advice : file.loadError->advice());
  return ok(described(file) + ".");
}

Finding judgeFiles(const std::vector<CardFileFacts>& files) {
  for (const char* name : {"cardid", "cardcf", "cmapfile"}) {
    const auto hasName = [&](const CardFileFacts& file) { return file.path.name == name; };
    if (std::none_of(files.begin(), files.end(), hasName))
      return broken("The card does not list the file " + inQuotes(name) + ", which Windows needs.", kInstallAgain);
  }
  std::size_t looked = 0;
  for (const auto& [path, stated, size, problem] : files) {
    if (isCertificateFile(path.name)) continue;
    ++looked;
    if (!problem.empty())
      return broken(
          "The file " + inQuotes(path.name) + " cannot be read: " + problem + ".",
          std::string(kPlugIn) + " If that does not help, \"orvane-card log --level error\" shows the cause.");
    const bool wrongSize = path.name == "cardid"     ? size != 16
                           : path.name == "cardcf"   ? size != 6
                           : path.name == "cmapfile" ? size % 86 != 0
                                                     : false;
    if (wrongSize)
      return broken("The file " + inQuotes(path.name) + " has " + std::to_string(size) +
                        " bytes, which is no possible size for it.",
                    kInstallAgain);
    if (size != stated)
      return warning("The file " + inQuotes(path.name) + " has " + std::to_string(size) +
                         " bytes, but is said to have " + std::to_string(stated) + ".",
                     "Run this again. If it stays so, the token's keys changed while it was in: unplug it and plug it "
                     "in again.");
  }
  return ok(std::to_string(looked) + " files and " + std::to_string(files.size() - looked) +
            " certificates are listed; \"cardcf\" has its 6 bytes, and every file can be read.");
}

std::optional<int> logLevelOf(const std::optional<Bytes>& value) {
  constexpr std::size_t kLongestValue = 32;
  if (!value || value->size() > kLongestValue) return std::nullopt;
  return value->empty() ? 0 : static_cast<int>(static_cast<std::int8_t>(value->front()));
}

Finding judgeLog(const LogFacts& facts) {
  if (!facts.obstacle.empty() && facts.folder != facts.accountFolder)
    return warning(
        "No log can be written: the name of this user's temporary folder, " + facts.accountFolder +
            ", has characters that this machine's code page does not have, and the minidriver looks for it "
            "as " +
            facts.folder + ".",
        "Set this user's environment variables TMP and TEMP to a folder with a plain name, such as C:\\Temp, "
        "and sign in again.");
  if (!facts.obstacle.empty())
    return warning("No log can be written: " + facts.obstacle + " cannot be used.",
                   "Make sure that " + facts.obstacle + " is a folder and that this user may write there.");
  const int level = facts.level.value_or(2);
  if (level < 2)
    return warning("Nothing is written to the log, because logLevel is " + std::to_string(level) + ".", kSetLogLevel);
  if (!facts.isNumber && !facts.level)
    return warning("The registry value logLevel is no number and too long to be read, which means errors only.",
                   kSetLogLevel);
  if (!facts.isNumber)
    return warning("The registry value logLevel is no number; of it only the first byte counts, " +
                       std::to_string(level) + ", which means " + (level == 3 ? "everything" : "errors only") + ".",
                   kSetLogLevel);
  const std::string newest = facts.newestFile.empty() ? "There is no log file of this user yet; it will be below " +
                                                            facts.folder + "\\Brightfold."
                                                      : "The newest file is " + facts.newestFile + ".";
  // The temporary folder is the one that TMP, TEMP or USERPROFILE names, in this order (Microsoft Learn, GetTempPathA),
  // of the account that a service runs as.
  const std::string services = " Services and the logon process log below " + facts.windowsFolder +
                               "\\Temp\\Brightfold, those with a profile of their own below " + facts.windowsFolder +
                               "\\ServiceProfiles\\NAME\\AppData\\Local\\Temp\\Brightfold.";
  return ok((level == 3 ? "Everything is logged (level 3). " : "Errors are logged. ") + newest + services);
}

Finding judgeFreshness(const FreshnessFacts& facts) {
  if (!facts.last) return broken("\"cardcf\" cannot be read: " + facts.problem + ".", kPlugIn);
  std::array<char, 32> age{};
  std::snprintf(age.data(), age.size(), "%.1f", facts.age);
  const std::string numbers = freshnessText(*facts.last);
  if (!facts.moved)
    return warning("The numbers in \"cardcf\" (" + numbers + ") have not moved for " + age.data() +
                       " s: the minidriver's monitor does not see the token, and Windows will not notice changes.",
                   kPlugIn);
  if (facts.laterMoves)
    return warning("The numbers in \"cardcf\" (" + numbers + ") keep moving, " + std::to_string(facts.laterMoves) +
                       " more times while nothing was done: the token seems to come and go.",
                   "Try another USB port, without a hub; then another token.");
  return ok(numbers + "; the monitor sees the token, and they have been unchanged for " + age.data() + " s.");
}

}  // namespace orvane::tool
