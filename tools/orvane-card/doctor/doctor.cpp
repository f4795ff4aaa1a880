// doctor: walks the chain that makes a certificate appear.
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include "card/certificate.h"
#include "card/containers.h"
#include "commands/commands.h"
#include "doctor/checks.h"
#include "doctor/installation.h"
#include "doctor/shown_verdict.h"
#include "doctor/user_store.h"
#include "doctor/windows_services.h"
#include "doctor/words.h"
#include "text/table.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kErrorsInLog =
    "\"orvane-card log --process orvane-card --level error\" shows what the minidriver wrote.";

// A failed call of the minidriver as a finding.
Finding failed(const ToolError& error) {
  return broken(capitalised(inWords(error)) + ".", error.advice().empty() ? kErrorsInLog : error.advice());
}

std::vector<CardFileFacts> fileFacts(CardSession& card) {
  const CardSession::Transaction transaction(card);
  std::vector<CardFileFacts> facts;
  for (const std::string directory : {"", "mscp"}) {
    for (const std::string& name : card.listFiles(directory)) {
      CardFileFacts file;
      file.path = {directory, name};
      try {
        file.statedSize = card.fileInfo(file.path).size;
        if (!isCertificateFile(file.path.name)) file.size = card.readFile(file.path).size();
      } catch (const ToolError& error) {
        file.problem = inWords(error);
      }
      facts.push_back(std::move(file));
    }
  }
  return facts;
}

std::optional<PublicKey> keyIn(const Bytes& blob) {
  return blob.empty() ? std::nullopt : std::optional(decodePublicKey(blob));
}

ContainerFacts containerFacts(CardSession& card, const Container& container) {
  ContainerFacts facts;
  facts.record = container.record;
  if (!container.record.valid()) return facts;
  try {
    const ContainerKeys keys = card.containerKeys(container.record.index);
    facts.signature = keyIn(keys.signature);
    facts.keyExchange = keyIn(keys.keyExchange);
  } catch (const ToolError& error) {
    facts.keysProblem = inWords(error);
  }
  facts.hasCertificate = !container.certificate.empty();
  facts.certificate = container.certificate;
  if (!facts.hasCertificate) {
    const bool holdsNone = !container.status || *container.status == static_cast<DWORD>(SCARD_E_NO_KEY_CONTAINER);
    if (!holdsNone) facts.certificateProblem = container.whyNone;
    return facts;
  }
  try {
    const CertificateFacts certificate = decodeCertificate(container.certificate);
    facts.certified = certificate.key;
    facts.subject = certificate.subjectName;
    facts.notBefore = certificate.notBefore;
    facts.notAfter = certificate.notAfter;
  } catch (const ToolError& error) {
    facts.certificateProblem = error.what();
  }
  return facts;
}

std::vector<ContainerFacts> allContainerFacts(CardSession& card) {
  const CardSession::Transaction transaction(card);
  std::vector<ContainerFacts> facts;
  for (const Container& container : readContainers(card)) facts.push_back(containerFacts(card, container));
  return facts;
}

// This moment as isoTime writes it.
std::string isoNow() {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  return isoTime(joined(now.dwHighDateTime, now.dwLowDateTime));
}

// Watches "cardcf": until the monitor has seen the token, but not forever, and then for a little more than one of its
// polls, in which nothing should happen.
FreshnessFacts watchFreshness(CardSession& card) {
  constexpr auto kLongestWait = std::chrono::seconds(10);
  constexpr auto kQuietTime = std::chrono::milliseconds(1500);
  constexpr auto kPause = std::chrono::milliseconds(250);
  FreshnessFacts facts;
  Clock::time_point change = Clock::now();
  Clock::time_point end = change + kLongestWait;
  try {
    while (true) {
      const Freshness now = decodeFreshness(card.readFile(parseCardPath("cardcf")));
      if (facts.last && now != *facts.last) {
        change = Clock::now();
        if (facts.moved) ++facts.laterMoves;
      }
      facts.last = now;
      if (!facts.moved && now.version != 0) {
        facts.moved = true;
        end = Clock::now() + kQuietTime;
      }
      if (Clock::now() >= end) break;
      std::this_thread::sleep_for(kPause);
    }
  } catch (const ToolError& error) {
    facts.last.reset();
    facts.problem = inWords(error);
  }
  facts.age = std::chrono::duration<double>(Clock::now() - change).count();
  return facts;
}

// Doctor walks along the chain and stops at a link on which the next ones depend. What is installed on the machine does
// not depend on the card, so it is looked at without one, too. Each link is shown as soon as it is known: a library
// that hangs, or takes the program down with it, then does so below the last link that was fine.
class Doctor {
 public:
  explicit Doctor(Environment& environment) : environment_(environment) {}

  DoctorReport examine() {
    const bool hasCard = examineReader();
    showUpTo(DoctorStep::kRegistration);
    if (examineInstallation() && hasCard) {
      examineCard();
    } else {
      examineLog();
    }
    if (!libraries_.empty()) report(DoctorStep::kLogon, judgeLogon(logonFacts(libraries_)));
    showUpTo(kDoctorStepCount);
    return report_;
  }

 private:
  // Notes what was found, and shows all links up to that one. Says whether the chain holds there.
  bool report(DoctorStep step, Finding finding) {
    const bool holds = report_.set(step, std::move(finding));
    showUpTo(static_cast<std::size_t>(step) + 1);
    return holds;
  }

  void showUpTo(DoctorStep step) { showUpTo(static_cast<std::size_t>(step)); }

  void showUpTo(std::size_t end) {
    if (end <= shown_) return;
    environment_.output().text(report_.text(shown_, end, Output::style(), Output::width()));
    shown_ = end;
  }

  // With a card, the minidriver is had write something, to see whether it arrives.
  void examineLog(CardSession* card = nullptr) {
    LogFacts facts = logFacts();
    const bool isWritten = facts.obstacle == LogObstacle::kNone && facts.level.value_or(2) >= 2;
    try {
      if (card && isWritten) facts.arrives = writesErrors(*card);
    } catch (const ToolError&) {
      // The card cannot be had any more, so nothing was written; the links that need it say so.
    }
    report(DoctorStep::kLog, judgeLog(facts));
  }

  bool examineReader() {
    std::vector<Reader> readers;
    SmartCardServiceFacts service;
    service.isRemote = isRemoteSession();
    try {
      readers = environment_.service().readers();
    } catch (const ToolError& error) {
      service.error = error;
      service.state = serviceState(L"SCardSvr");
    }
    if (!report(DoctorStep::kService, judgeService(service))) return false;
    const std::optional<std::string>& wanted = environment_.options().reader;
    if (!report(DoctorStep::kReader, judgeReaders(readers, wanted, service.isRemote))) return false;
    reader_ = *chooseReader(readers, wanted);
    return report(DoctorStep::kCard, judgeCard(reader_));
  }

  bool examineInstallation() {
    const std::optional<std::string>& named = environment_.options().driver;
    const ByteView atr = orvaneAtr();
    if (!report(DoctorStep::kRegistration, judgeRegistration(registeredCardTypes(), atr, named.has_value()).finding))
      return false;
    choice_ = chooseDriver(named, atr);
    const std::uint16_t machine = processMachine();
    const LibraryFile driver = inspectMinidriver(choice_.path, machine);
    libraries_.push_back(driver);
    if (!report(DoctorStep::kDriver, judgeDriver(driver, machine))) return false;
    libraries_.push_back(inspectTokenLibrary(choice_.path, machine));
    return report(DoctorStep::kLibrary, judgeLibrary(*driver.pe, libraries_.back(), machine));
  }

  void examineCard() {
    std::unique_ptr<CardSession> card;
    try {
      card = environment_.connect(reader_, choice_);
    } catch (const ToolError& error) {
      report(DoctorStep::kAcquire, failed(error));
      examineLog();
      return;
    }
    report(DoctorStep::kAcquire,
           ok("The minidriver accepts the token (interface version " + std::to_string(card->version()) + ")."));
    const TokenFacts token = environment_.tokenFacts(*card);
    // Only our minidriver tells a serial, and only it writes this log.
    CardSession* writer = token.serial.empty() ? nullptr : card.get();
    if (!report(DoctorStep::kToken, judgeToken(token))) {
      examineLog(writer);
      return;
    }
    std::vector<ContainerFacts> containers;
    try {
      if (report(DoctorStep::kFiles, judgeFiles(fileFacts(*card)))) {
        containers = allContainerFacts(*card);
        report(DoctorStep::kKeys, judgeKeys(containers, isoNow()));
      }
    } catch (const ToolError& error) {
      const bool listed = report_.at(DoctorStep::kFiles).holds();
      report_.set(listed ? DoctorStep::kKeys : DoctorStep::kFiles, failed(error));
    }
    examineLog(writer);
    report(DoctorStep::kFreshness, judgeFreshness(watchFreshness(*card)));
    if (report_.at(DoctorStep::kKeys).holds()) report(DoctorStep::kStore, judgeStore(storeFacts(containers)));
  }

  Environment& environment_;
  DoctorReport report_;
  Reader reader_;
  DriverChoice choice_;
  std::vector<LibraryFile> libraries_;  // the minidriver and the token library, as far as they were looked at
  std::size_t shown_ = 0;
};

}  // namespace

Json runDoctor(Environment& environment) {
  const DoctorReport report = Doctor(environment).examine();
  environment.output().text("\n");
  Json result = report.json();
  const Tone tone = report.verdict() == StepState::kOk        ? Tone::kGood
                    : report.verdict() == StepState::kWarning ? Tone::kWarning
                                                              : Tone::kBad;
  environment.output().text(Output::style().paint(tone, wrapped(report.summary(), 0, Output::width())) + "\n");
  if (report.exitCode() == ExitCode::kSuccess) return result;
  throw ShownVerdict(ToolError(report.exitCode(), report.summary()), std::move(result));
}

}  // namespace orvane::tool
