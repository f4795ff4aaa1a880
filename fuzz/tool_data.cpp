// What orvane-card reads: program files, logs and the card's data. All of it may come from elsewhere.
#include <cstdint>
#include <string>
#include <vector>

#include "card/card_files.h"
#include "card/card_type.h"
#include "doctor/checks.h"
#include "doctor/pe_file.h"
#include "log/explanations.h"
#include "log/files.h"
#include "log/lines.h"
#include "scene.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::fuzz {
namespace {

std::string textOf(Input input) { return {reinterpret_cast<const char*>(input.data()), input.size()}; }

// Runs a decoder that may refuse its data.
template <typename Decode>
void refusable(const Decode& decode) {
  try {
    decode();
  } catch (const tool::ToolError& error) {
    require(*error.what() != '\0', "a refusal without a reason");
  }
}

}  // namespace

void fuzzProgramFiles(Input input) {
  tool::LibraryFile file;
  file.path = "library.dll";
  file.found = true;
  file.pe = tool::readPeFile(input);
  const tool::Finding driver = tool::judgeDriver(file, tool::kMachineArm64);
  // ARM64X is the other kind that such a process loads.
  const std::uint16_t machine = file.pe ? file.pe->machine : 0;
  require(driver.holds() == (machine == tool::kMachineArm64 || machine == tool::kMachineArm64X),
          "a library of another kind holds");
  if (!file.pe) return;
  std::size_t size = 0;
  for (const std::string& name : file.pe->imports) {
    require(name.find('\0') == std::string::npos, "a name with an end in it");
    size += name.size();
    tool::isApiSet(name);
  }
  // Names may lie upon each other in the file, but what is read must not grow out of proportion to it.
  require(size <= 260 * input.size(), "more names than the file can hold");
  tool::judgeLibrary(*file.pe, file, tool::kMachineArm64);
}

void fuzzLogTexts(Input input) {
  if (input.empty()) return;
  const std::size_t pieceSize = std::size_t{input.front()} + 1;
  const std::string text = textOf(input.subspan(1));
  tool::LogReader whole;
  std::vector<tool::LogLine> lines = whole.add(text);
  for (tool::LogLine& line : whole.finish()) lines.push_back(std::move(line));

  tool::LogReader inPieces;
  std::vector<tool::LogLine> same;
  for (std::size_t start = 0; start < text.size(); start += pieceSize) {
    for (tool::LogLine& line : inPieces.add(text.substr(start, pieceSize))) same.push_back(std::move(line));
  }
  for (tool::LogLine& line : inPieces.finish()) same.push_back(std::move(line));
  require(lines == same, "lines that depend on the pieces that they came in");

  const tool::Style style(true);
  std::string call;
  for (const tool::LogLine& line : lines) {
    const std::vector<std::string> explanations = tool::explainLogMessage(line.message);
    require(tool::plainLogLine(line, explanations).starts_with(line.raw), "a line that is not shown as it stands");
    const std::string styled = tool::styledLogLine(line, explanations, style, pieceSize, call);
    for (std::size_t at = styled.find('\x1B'); at != std::string::npos; at = styled.find('\x1B', at + 1))
      require(styled.compare(at, 2, "\x1B[") == 0 && styled.find('m', at) <= at + 4, "a command to the terminal");
    const std::string json =
        tool::logLineJson(line, explanations).dump(-1, ' ', false, tool::Json::error_handler_t::replace);
    require(tool::Json::accept(json), "a line that is no JSON");
    tool::LogFilter{"cardsigndata", true}.keeps(line);
    tool::logDateOf(line.raw);
    call = line.call;
  }
}

void fuzzCardData(Input input) {
  const std::string text = textOf(input);
  // The library throws for what is no UTF-8.
  require(!tool::Json(tool::toUtf8(input)).dump().empty(), "a text that is not shown");
  for (const std::string& name : tool::decodeNameList(input)) require(!name.empty(), "a file without a name");
  refusable([&] { tool::decodeFreshness(input); });
  refusable([&] { tool::decodePublicKey(input); });
  refusable([&] { require(!tool::parseCardPath(text).name.empty(), "a path without a name"); });
  refusable([&] {
    for (const tool::ContainerRecord& record : tool::decodeContainerMap(input)) tool::keyUse(record);
  });
  const std::size_t half = input.size() / 2;
  tool::CardType type;
  type.atr.assign(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(half));
  type.mask.assign(input.begin() + static_cast<std::ptrdiff_t>(half), input.end());
  tool::judgeRegistration({type}, tool::orvaneAtr(), false);
  tool::logLevelOf(type.atr);
}

}  // namespace orvane::fuzz
