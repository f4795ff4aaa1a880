// Finds out, without a token and without administrator's rights, whether the minidriver works on this machine.
//
//   orvane-trial [--report FOLDER] [--limit SECONDS] [--details]
//
//     --report FOLDER   where the report goes; it is made if it is not there (normally "report" beside the folder of
//     this program)
//     --limit SECONDS   for each program of the trial, normally 300
//     --details         the report may name readers, serials and certificates
//
// Exit codes: 0 nothing failed, 1 something failed (the report says what), 2 there is no report.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "machine.h"
#include "report.h"
#include "trial.h"

namespace orvane::trial {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kLimitSeconds = 300;

fs::path programFolder() {
  wchar_t path[4096] = {};
  GetModuleFileNameW(nullptr, path, 4096);
  return fs::path(path).parent_path();
}

Setting settingOf(int count, wchar_t** arguments) {
  Setting setting;
  setting.programs = programFolder();
  setting.report = setting.programs.parent_path() / L"report";
  setting.limitSeconds = kLimitSeconds;
  for (int i = 1; i < count; ++i) {
    const std::wstring_view option = arguments[i];
    const bool hasValue = i + 1 < count;
    if (option == L"--details") {
      setting.isDetailed = true;
    } else if (option == L"--report" && hasValue) {
      setting.report = fs::absolute(arguments[++i]);
    } else if (option == L"--limit" && hasValue) {
      setting.limitSeconds = static_cast<unsigned>(std::wcstoul(arguments[++i], nullptr, 10));
      if (setting.limitSeconds == 0) throw std::runtime_error("--limit takes a number of seconds");
    } else {
      throw std::runtime_error("usage: orvane-trial [--report FOLDER] [--limit SECONDS] [--details]");
    }
  }
  setting.scratch = fs::temp_directory_path() / (L"Orvane trial " + std::to_wstring(GetCurrentProcessId()));
  return setting;
}

// The tests write to their own temporary folder, and nothing that somebody has set for tests in general reaches them.
void prepareEnvironment(const fs::path& scratch) {
  for (const wchar_t* const name : {L"TEMP", L"TMP"}) SetEnvironmentVariableW(name, scratch.c_str());
  for (const wchar_t* const name : {L"GTEST_FILTER", L"GTEST_OUTPUT", L"GTEST_SHARD_INDEX", L"GTEST_TOTAL_SHARDS",
                                    L"ORVANE_SOAK_CYCLES", L"ORVANE_SOAK_CALLS"}) {
    SetEnvironmentVariableW(name, nullptr);
  }
}

void write(const fs::path& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + toUtf8(file.wstring()));
}

std::string withWindowsLineEnds(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '\n') result.push_back('\r');
    result.push_back(c);
  }
  return result;
}

void redactFiles(const fs::path& folder, const Redaction& redaction) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::ifstream stream(entry.path(), std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    stream.close();
    write(entry.path(), redaction.apply(text));
  }
}

int run(const Setting& setting) {
  const ULONGLONG begun = GetTickCount64();
  Head head{ORVANE_VERSION, nowText(), 0, machineFacts()};
  // While TEMP is still the user's.
  const Redaction redaction = machineRedaction(setting.programs.parent_path());
  fs::create_directories(setting.report);
  fs::create_directories(setting.scratch);
  prepareEnvironment(setting.scratch);
  std::vector<Result> results = carryOut(setting);
  std::printf("Collecting facts about this machine ...\n");
  results.push_back(collectFacts(setting));
  std::error_code ignored;
  fs::remove_all(setting.scratch, ignored);
  for (Result& result : results) result.detail = redaction.apply(result.detail);
  if (!setting.isDetailed) redactFiles(setting.report / L"facts", redaction);
  head.seconds = static_cast<double>(GetTickCount64() - begun) / 1000;
  const std::string summary = summaryText(head, results);
  write(setting.report / L"junit.xml", junitText(results));
  write(setting.report / L"summary.txt", withWindowsLineEnds(summary));
  std::printf("\n%s\nThe report is in %s\n", summary.c_str(), toUtf8(setting.report.wstring()).c_str());
  return countOf(results, State::kFailed) == 0 ? 0 : 1;
}

}  // namespace
}  // namespace orvane::trial

int wmain(int count, wchar_t** arguments) {
  if (count == 3 && std::wstring_view(arguments[1]) == L"--load") return orvane::trial::loadAndFree(arguments[2]);
  try {
    return orvane::trial::run(orvane::trial::settingOf(count, arguments));
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "The trial could not be carried out: %s\n", exception.what());
    return 2;
  }
}
