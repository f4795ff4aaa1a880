// Several programs at one card that comes and goes; scripts/visits has it come and go, and judges what they say.
//
//   orvane_visits all FOLDER PIN VISITS PROGRAMS     starts so many of itself and waits for their end
//   orvane_visits one FOLDER PIN VISITS NUMBER       one of them
//
// What number N says (visits/visit.h) is in FOLDER\said-N.txt. When all have ended, FOLDER\end.txt has a line for each
// that says how, and one with the status of an exclusive connection, in hexadecimal, once there is a card again.
#include <windows.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "text/bytes.h"
#include "text/utf.h"
#include "tools/trial/child_process.h"
#include "visits/visit.h"

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kLimitSeconds = 6 * 3600;

fs::path ownPath() {
  wchar_t path[MAX_PATH];
  return std::wstring(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
}

int one(const fs::path& folder, const std::string& pin, int visits, const std::string& number) {
  std::ofstream said(folder / ("said-" + number + ".txt"));
  try {
    attend({(ownPath().parent_path() / "OrvaneMinidriver.dll").string(), pin, visits}, said);
    return 0;
  } catch (const std::exception& error) {
    said << "ended early: " << error.what() << std::endl;
    return 1;
  }
}

int all(const fs::path& folder, const std::string& pin, int visits, int programs) {
  std::vector<trial::Ending> endings(static_cast<std::size_t>(programs));
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < endings.size(); ++i) {
    threads.emplace_back([&, i] {
      const std::string number = std::to_string(i + 1);
      const std::string arguments = "one " + folder.string() + " " + pin + " " + std::to_string(visits) + " " + number;
      endings[i] = trial::runProgram(ownPath(), tool::toWide(arguments), kLimitSeconds, folder / ("output-" + number));
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::ofstream end(folder / "end.txt");
  for (const trial::Ending& ending : endings) {
    end << (ending.isGood() ? "good" : "bad: " + trial::endingText(ending) + " " + ending.output) << std::endl;
  }
  end << "exclusive " << tool::hexNumber(static_cast<std::uint32_t>(exclusive()), 8) << std::endl;
  return 0;
}

}  // namespace
}  // namespace orvane::test

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv, argv + argc);
  try {
    if (words.size() == 6 && words[1] == "one") {
      return orvane::test::one(words[2], words[3], std::stoi(words[4]), words[5]);
    }
    if (words.size() == 6 && words[1] == "all") {
      return orvane::test::all(words[2], words[3], std::stoi(words[4]), std::stoi(words[5]));
    }
    std::cerr << "usage: orvane_visits all FOLDER PIN VISITS PROGRAMS; scripts/visits calls it\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "orvane_visits: " << error.what() << "\n";
    return 1;
  }
}
