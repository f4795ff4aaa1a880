#include "trial.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>
#include <span>

#include "child_process.h"
#include "machine.h"
#include "report.h"
#include "test_output.h"

namespace orvane::trial {
namespace {

namespace fs = std::filesystem;

// In a folder of its own: beside the software token, an installed minidriver could take that for the maker's library.
constexpr const wchar_t* kToolProgram = L"..\\tool\\orvane-card.exe";

constexpr const char* kStart = "Programs and libraries start here";
constexpr const char* kTool = "The support tool with this machine's readers";
using nlohmann::literals::operator""_json_pointer;

constexpr const char* kTraces = "Nothing stays behind";

// Suites in one process: few, so that it is seen how far the trial is, and that a limit of time fits.
constexpr std::size_t kTogether = 16;

// The tool's exit codes for what a machine may lack.
constexpr DWORD kNoCard = 3;
constexpr DWORD kNoDriver = 4;

void say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

// Why the trial does not run a suite on somebody's machine; null if it does.
const char* whyLeftOut(const std::string& suite) {
  return suite == "LogWithoutTempFolder" ? "it writes to the root of the drive, which the trial leaves alone" : nullptr;
}

// Runs one of the kit's programs.
Ending run(const Setting& setting, const wchar_t* program, const std::wstring& arguments) {
  return runProgram((setting.programs / program).lexically_normal(), arguments, setting.limitSeconds,
                    setting.scratch / L"output.txt");
}

Result plain(const char* subject, const std::string& name, const std::string& problem, double seconds) {
  return {subject, "Trial", name, problem.empty() ? State::kPassed : State::kFailed, seconds, problem};
}

// Each library is loaded in a process of its own.
Result load(const Setting& setting, const std::wstring& library) {
  const bool isOurs = library != L"VCRUNTIME140.dll";
  const std::wstring file = isOurs ? (setting.programs / library).wstring() : library;
  const Ending ending = run(setting, L"orvane-trial.exe", L"--load \"" + file + L"\"");
  std::string problem;
  if (ending.startError != 0 || ending.isOutOfTime || ending.exitCode > 0xFFFF) {
    problem = endingText(ending);
  } else if (ending.exitCode != 0) {
    problem = loadErrorText(ending.exitCode);
  }
  if (!isOurs && !problem.empty())
    problem += ". Microsoft's Visual C++ runtime brings it; the maker's library needs it.";
  return plain(kStart, "Loads " + toUtf8(library), problem, ending.seconds);
}

// The tests of some suites in one process, as far as that comes; the results of each suite that it came to.
std::vector<std::vector<Result>> runSuites(const Setting& setting, const wchar_t* program,
                                           std::span<const Suite> suites) {
  std::wstring filter;
  for (const Suite& suite : suites) {
    filter += (filter.empty() ? L"" : L":") + std::wstring(suite.name.begin(), suite.name.end()) + L".*";
  }
  const Ending ending = run(setting, program, L"\"--gtest_filter=" + filter + L"\" --gtest_color=no");
  std::string end = endingText(ending);
  if (end.empty() && ending.exitCode != 0 && ending.output.find("[  FAILED  ]") == std::string::npos) {
    end = "the program ended with 1, and no test failed";
  }
  std::vector<std::vector<Result>> some = resultsInTurn(ending.output, suites, end);
  const std::size_t last = some.size() - 1;
  if (!isExitCodeJudged() && some[last].size() > suites[last].tests.size()) some[last].pop_back();
  return some;
}

// All tests of one program, some suites in a process. Where one ends before its time, the next goes on.
void runTests(const Setting& setting, const wchar_t* program, std::vector<Result>& results) {
  const Ending listing = run(setting, program, L"--gtest_list_tests");
  std::vector<Suite> suites = suitesIn(listing.output);
  std::string problem = endingText(listing);
  if (problem.empty() && suites.empty()) problem = "it lists no tests";
  results.push_back(plain(kStart, "Starts " + toUtf8(program), problem, listing.seconds));
  if (!problem.empty()) return;
  for (const Suite& suite : suites) {
    const char* const reason = whyLeftOut(suite.name);
    if (reason == nullptr) continue;
    for (const std::string& test : suite.tests) {
      results.push_back({subjectOf(suite.name), suite.name, test, State::kNotTried, 0, reason});
    }
  }
  std::erase_if(suites, [](const Suite& suite) { return whyLeftOut(suite.name) != nullptr; });
  for (std::size_t done = 0; done < suites.size();) {
    const std::span<const Suite> next = std::span(suites).subspan(done, std::min(kTogether, suites.size() - done));
    for (const std::vector<Result>& some : runSuites(setting, program, next)) {
      const std::size_t bad = countOf(some, State::kFailed);
      say("  " + std::to_string(done + 1) + " of " + std::to_string(suites.size()) + "  " + suites[done].name +
          (bad == 0 ? "" : ": FAILED " + std::to_string(bad)));
      results.insert(results.end(), some.begin(), some.end());
      ++done;
    }
  }
}

nlohmann::json documentIn(const Ending& ending) {
  const std::size_t begin = ending.output.find('{');
  if (begin == std::string::npos) return {};
  return nlohmann::json::parse(ending.output.substr(begin), nullptr, false);
}

// Keeps what the tool said, with names and serials if they were asked for.
void keep(const Setting& setting, const char* file, const nlohmann::json& whole, const nlohmann::json& harmless) {
  fs::create_directories(setting.report / "facts");
  std::ofstream(setting.report / "facts" / file, std::ios::binary)
      << (setting.isDetailed ? whole : harmless).dump(2) << "\n";
}

// Looks at whatever reader and card there is, through whatever minidriver is installed.
Result info(const Setting& setting) {
  const Ending ending = run(setting, kToolProgram, L"info --json");
  const nlohmann::json document = documentIn(ending);
  Result result = plain(kTool, "orvane-card info", "", ending.seconds);
  nlohmann::json harmless = {{"exitCode", ending.exitCode}};
  if (ending.startError != 0 || ending.isOutOfTime || !document.is_object()) {
    result.state = State::kFailed;
    result.detail = endingText(ending);
    if (result.detail.empty()) result.detail = "it printed nothing that can be read";
  } else if (ending.exitCode == 0) {
    harmless["readers"] = document.at("/result/readers"_json_pointer).size();
    for (const char* const name : {"fileVersion", "interfaceVersion"}) {
      harmless[name] = document.at("/result/driver"_json_pointer).at(name);
    }
    result.detail = "a card is there, and its minidriver answered";
  } else if (ending.exitCode == kNoCard) {
    result.state = State::kNotTried;
    result.detail =
        "there is no smart-card service, no reader or no card (without a reader Windows may stop the service)";
  } else if (ending.exitCode == kNoDriver) {
    result.state = State::kNotTried;
    result.detail =
        "a card is there, but no minidriver serves it: none is installed for it, or it does not load, or refuses the "
        "card "
        "(facts\\doctor.json has the link that breaks)";
  } else {
    result.state = State::kFailed;
    result.detail = "exit code " + std::to_string(ending.exitCode);
  }
  keep(setting, "info.json", document, harmless);
  return result;
}

// What "doctor" says of this machine is a fact, not a test of the kit: nothing need be installed.
Result doctor(const Setting& setting) {
  const Ending ending = run(setting, kToolProgram, L"doctor --json");
  const nlohmann::json document = documentIn(ending);
  nlohmann::json harmless = {{"exitCode", ending.exitCode}, {"steps", nlohmann::json::object()}};
  std::string problem = ending.exitCode <= 12 ? "" : endingText(ending);
  if (ending.startError != 0 || ending.isOutOfTime) problem = endingText(ending);
  if (problem.empty() && (!document.is_object() || !document.contains("result"))) {
    problem = "it printed nothing that can be read";
  }
  if (problem.empty()) {
    harmless["verdict"] = document.at("result").at("verdict");
    for (const nlohmann::json& step : document.at("result").at("steps")) {
      harmless["steps"][step.at("step").get<std::string>()] = step.at("state");
    }
  }
  keep(setting, "doctor.json", document, harmless);
  return plain(kTool, "orvane-card doctor", problem, ending.seconds);
}

Result version(const Setting& setting) {
  const Ending ending = run(setting, kToolProgram, L"--version");
  std::string problem = endingText(ending);
  if (problem.empty() && ending.output.find(ORVANE_VERSION) == std::string::npos) problem = "it says another version";
  return plain(kStart, "Starts orvane-card.exe", problem, ending.seconds);
}

// A part that cannot read what the tool says is a failure, and the trial goes on.
template <typename Part>
Result guarded(const char* name, const Part& part) {
  try {
    return part();
  } catch (const std::exception& exception) {
    return plain(kTool, name, exception.what(), 0);
  }
}

// What is left in a folder, one name a line.
std::string contentOf(const fs::path& folder) {
  std::string names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    names += toUtf8(entry.path().filename().wstring()) + "\n";
  }
  return names;
}

}  // namespace

int loadAndFree(const wchar_t* file) {
  const HMODULE module = LoadLibraryExW(file, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (module == nullptr) return static_cast<int>(GetLastError());
  FreeLibrary(module);
  return 0;
}

std::vector<Result> carryOut(const Setting& setting) {
  const std::string registry = registrySnapshot();
  std::vector<Result> results;
  say("Starting the programs and loading the libraries ...");
  results.push_back(version(setting));
  for (const wchar_t* const library : {L"VCRUNTIME140.dll", L"OrvaneDSCLibrary.dll", L"OrvaneMinidriver.dll"}) {
    results.push_back(load(setting, library));
  }
  say("Running the tests ...");
  runTests(setting, L"orvane_tests.exe", results);
  runTests(setting, L"orvane_unload_tests.exe", results);
  say("Looking at this machine's readers ...");
  results.push_back(guarded("orvane-card info", [&] { return info(setting); }));
  results.push_back(guarded("orvane-card doctor", [&] { return doctor(setting); }));
  const bool isCrash = countOf(results, State::kFailed) != 0;
  const std::string files = contentOf(setting.scratch);
  // A test that died could not clean up; that it died is said already.
  results.push_back(plain(kTraces, "The tests leave no file", isCrash || files.empty() ? "" : "left:\n" + files, 0));
  const bool wereKeys = removeTestKeys();
  results.push_back(plain(kTraces, "The tests leave no registry key",
                          isCrash || !wereKeys ? "" : "left in this user's registry, and removed now", 0));
  results.push_back(plain(kTraces, "The machine's registry is as it was",
                          registrySnapshot() == registry ? "" : "the product's keys have changed", 0));
  return results;
}

Result collectFacts(const Setting& setting) {
  const fs::path script = setting.programs.parent_path() / L"collect.cmd";
  const fs::path facts = setting.report / L"facts";
  fs::create_directories(facts);
  wchar_t system[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  const std::wstring arguments = L"/d /c \"\"" + script.wstring() + L"\" \"" + facts.wstring() + L"\"" +
                                 (setting.isDetailed ? L" details" : L"") + L"\"";
  const Ending ending =
      runProgram(fs::path(system) / L"cmd.exe", arguments, setting.limitSeconds, setting.scratch / L"output.txt");
  return plain("What was collected", "collect.cmd", ending.isGood() ? "" : endingText(ending) + "\n" + ending.output,
               ending.seconds);
}

}  // namespace orvane::trial
