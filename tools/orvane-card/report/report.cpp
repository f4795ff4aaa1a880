// report: everything that second-level support wants to know, in one folder.
#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "card/certificate_texts.h"
#include "card/containers.h"
#include "commands/commands.h"
#include "doctor/checks.h"
#include "local_files.h"
#include "log/files.h"
#include "platform/windows_api.h"
#include "report/machine.h"
#include "report/redaction.h"
#include "support/text_compare.h"
#include "text/table.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

// Of a longer log only the end goes in: a report is to be mailed.
constexpr std::size_t kLongestLog = 8U << 20;

struct ReportFile {
  std::string name;
  std::string meaning;
  std::string content = {};
};

// "2026-11-21 10:03:25", this machine's time.
std::string timeText() {
  SYSTEMTIME time{};
  GetLocalTime(&time);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", int{time.wYear}, int{time.wMonth},
                int{time.wDay}, int{time.wHour}, int{time.wMinute}, int{time.wSecond});
  return text.data();
}

// A name that no earlier report has: "orvane-report-2026-11-21-100325".
std::string newFolderName() {
  std::string name = "orvane-report-" + timeText();
  std::replace(name.begin(), name.end(), ' ', '-');
  std::erase(name, ':');
  return name;
}

// The newest log of another program than this one, which has just written one itself by being asked for a report.
std::optional<LogFile> chosenLog(const ReportOptions& options) {
  std::vector<LogFile> files = logFilesBelow(temporaryFolder(options.temp));
  if (!options.process) {
    std::vector<LogFile> others = files;
    std::erase_if(others, [](const LogFile& file) { return equalsIgnoreCase(file.process, "orvane-card"); });
    if (const LogFile* file = chooseLogFile(others, std::nullopt, options.date)) return *file;
  }
  if (const LogFile* file = chooseLogFile(files, options.process, options.date)) return *file;
  if (options.process || options.date)
    throw ToolError(ExitCode::kLocalFile,
                    "there is no such log below \"" + logFolder(temporaryFolder(options.temp)) + "\"",
                    "\"orvane-card log --list\" shows the files that there are.");
  return std::nullopt;
}

std::string logText(const std::string& path) {
  const Bytes content = readLocalFile(path);
  std::string text(content.begin(), content.end());
  if (text.size() <= kLongestLog) return text;
  const std::size_t start = text.find('\n', text.size() - kLongestLog);
  return "(the beginning is left out)\n" + text.substr(start == std::string::npos ? 0 : start + 1);
}

std::string lines(const Json& document) { return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

// What "doctor --json" prints. It gets a connection of its own, as in a program of its own.
Json doctorDocument(const ConnectOptions& options) {
  const Output silent(OutputFormat::kJson);
  Environment environment(options, silent, false);
  Json document;
  try {
    document = resultDocument("doctor", runDoctor(environment));
  } catch (const ToolError& error) {
    document = errorDocument("doctor", error);
  }
  environment.disconnect();
  return document;
}

// Where the minidriver lies; where it ought to, if the registry names none.
std::string driverPath(const ConnectOptions& options) {
  try {
    return chooseDriver(options.driver, orvaneAtr()).path;
  } catch (const ToolError&) {
    return joinPath(systemFolder(), std::string(kMinidriver));
  }
}

void addNames(const CertificateFacts& facts, Redaction& redaction) {
  for (const std::string& name : {facts.subject, facts.subjectName, facts.email})
    redaction.add(Redaction::Kind::kName, name);
}

// The serials and names of the tokens that are connected. A token that cannot be read has none to tell.
void addTokens(Environment& environment, Redaction& redaction) {
  std::vector<Reader> readers;
  try {
    readers = environment.service().readers();
  } catch (const ToolError&) {
    return;
  }
  for (const Reader& reader : readers) {
    for (const std::string& serial : serialsIn("Reader name for hScard: " + reader.name))
      redaction.add(Redaction::Kind::kSerial, serial);
    if (!isOrvane(reader)) continue;
    try {
      const std::unique_ptr<CardSession> card =
          environment.connect(reader, chooseDriver(environment.options().driver, reader.atr));
      // doctor names both when the token says another serial than the one in use.
      const TokenFacts token = environment.tokenFacts(*card);
      for (const std::string& serial : {token.serial, token.stated}) redaction.add(Redaction::Kind::kSerial, serial);
      for (const ListedKey& key : listedKeys(readContainers(*card))) {
        if (key.certificate) addNames(*key.certificate, redaction);
      }
    } catch (const ToolError&) {
      continue;
    }
  }
}

std::string contentsText(const std::vector<ReportFile>& files, bool withNames) {
  std::string text;
  for (const ReportFile& file : files) text += "  " + padded(file.name, 15) + wrapped(file.meaning, 17, 79) + "\n";
  text += withNames
              ? "Serials of tokens and names of people, accounts and machines stand in it, as --with-names asks for.\n"
              : "Serials of tokens and names of people, accounts and this machine are replaced by\n"
                "marks such as [serial 1]; --with-names leaves them in.\n";
  return text + "PINs, keys and certificates are never in it.\n";
}

// Creates the folder; one that is there already must be empty, or two reports would mix.
void createEmptyFolder(const std::string& path) {
  createFolder(path);
  std::error_code error;
  if (!std::filesystem::is_empty(toWide(path), error) || error)
    throw ToolError(ExitCode::kLocalFile, "the folder \"" + path + "\" is not empty",
                    "Name one that does not exist yet with --output.");
}

std::vector<ReportFile> plannedFiles(const std::optional<LogFile>& log) {
  std::vector<ReportFile> files = {
      {"contents.txt", "this list, the time, and the version of orvane-card"},
      {"doctor.json", "what \"orvane-card doctor --json\" finds"},
      {"files.json", "versions and hashes of the minidriver, the token library and what they need"},
      {"registry.json", "the registry's values about minidriver, log, logon process and Windows"},
  };
  if (log)
    files.push_back(
        {"log.txt", "the log of " + log->process + " of " + log->date + ", " + std::to_string(log->size) + " bytes"});
  return files;
}

}  // namespace

Json runReport(Environment& environment, const ReportOptions& options) {
  const Output& output = environment.output();
  const std::optional<LogFile> log = chosenLog(options);
  std::vector<ReportFile> files = plannedFiles(log);
  const std::string folder = options.output.empty() ? newFolderName() : options.output;
  const std::string contents = contentsText(files, options.withNames);
  output.text("The report in the folder " + folder + " will hold:\n" + contents +
              (log ? "" : "No log has been written, so it holds none.\n"));
  Json list = Json::array();
  for (const ReportFile& file : files) list.push_back(file.name);
  Json result = {{"folder", folder}, {"files", std::move(list)}, {"withNames", options.withNames}, {"written", false}};
  if (options.dryRun) return result;
  createEmptyFolder(folder);

  Redaction redaction(!options.withNames);
  addTokens(environment, redaction);
  for (const std::string& name : accountNames()) redaction.add(Redaction::Kind::kUser, name);
  for (const std::string& name : computerNames()) redaction.add(Redaction::Kind::kComputer, name);
  const std::string logContent = log ? logText(log->path) : std::string();
  for (const std::string& serial : serialsIn(logContent)) redaction.add(Redaction::Kind::kSerial, serial);

  for (ReportFile& file : files) {
    if (file.name == "contents.txt") {
      file.content = redaction.apply("orvane-card " ORVANE_VERSION ", " + timeText() + "\n\n" + contents);
    } else if (file.name == "doctor.json") {
      file.content = lines(redaction.applyToAll(doctorDocument(environment.options())));
    } else if (file.name == "files.json") {
      file.content = lines(redaction.applyToAll(filesReport(driverPath(environment.options()))));
    } else if (file.name == "registry.json") {
      file.content = lines(redaction.applyToAll(registryReport()));
    } else {
      file.content = redaction.apply(logContent);
    }
    writeLocalFile(joinPath(folder, file.name), Bytes(file.content.begin(), file.content.end()));
  }
  result["written"] = true;
  output.text("Written. Look into it before you send it; every file is text.\n");
  return result;
}

}  // namespace orvane::tool
