#include "doctor/checks.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "doctor/words.h"
#include "support/text_compare.h"
#include "text/phrases.h"

namespace orvane::tool {
namespace {

constexpr const char* kPlugIn = "Plug the token in; if it is in, unplug it, wait a moment and plug it in again.";

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
  if (!chooseReader(readers, wanted)) {
    const ToolError error = readerNotNamed(readers, wanted.value_or(""));
    return broken(capitalised(error.what()) + ".", error.advice());
  }
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
    return broken(
        "The card in " + inQuotes(reader.name) + " is no Orvane token (its ATR is " + toHex(reader.atr, " ") + ").",
        "Plug the Orvane token in; if it is in another reader, choose that with --reader. The card that is in "
        "this one, such as a bank card or a badge, needs nothing from here.");
  return ok("An Orvane token is in " + inQuotes(reader.name) + ".");
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
    return broken(file.path + " does not load: " + inWords(*file.loadError) + ".",
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
  const std::size_t certificates = files.size() - looked;
  return ok("The token shows Windows " + std::to_string(files.size()) + " files, " + std::to_string(certificates) +
            " of them for certificates; the others can all be read.");
}

Finding judgeFreshness(const FreshnessFacts& facts) {
  if (!facts.last) return broken("The file \"cardcf\" cannot be read: " + facts.problem + ".", kPlugIn);
  std::array<char, 32> age{};
  std::snprintf(age.data(), age.size(), "%.1f", facts.age);
  const std::string numbers = " (" + freshnessText(*facts.last) + ").";
  const std::string seconds = std::string(age.data()) + " s";
  if (!facts.moved)
    return warning("The minidriver has not noticed the token for " + seconds +
                       ", so Windows will not notice when it changes" + numbers,
                   kPlugIn);
  if (facts.laterMoves)
    return warning("The token seems to come and go: while nothing was done, the minidriver noticed " +
                       std::to_string(facts.laterMoves) + (facts.laterMoves == 1 ? " change" : " changes") + numbers,
                   "Try another USB port, without a hub; then another token.");
  return ok("The minidriver notices when the token changes; it has not for " + seconds + numbers);
}

}  // namespace orvane::tool
