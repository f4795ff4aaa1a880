// Judging whether the minidriver's log is written.
#include "doctor/checks.h"

namespace orvane::tool {
namespace {

constexpr const char* kSetLogLevel =
    "As an administrator: reg add HKLM\\Software\\Brightfold\\Orvane /v logLevel /t REG_DWORD /d 2 /f (3 instead of 2 "
    "writes everything).";

// The numbers of the registry's types.
constexpr std::uint32_t kTypeText = 1;
constexpr std::uint32_t kTypeExpandableText = 2;
constexpr std::uint32_t kTypeNumber32 = 4;
constexpr std::uint32_t kTypeNumber64 = 11;

struct ObstacleText {
  LogObstacle obstacle;
  const char* before;  // the path
  const char* behind;
  const char* advice;
};

constexpr ObstacleText kObstacles[] = {
    {LogObstacle::kNoFolder, "", " is not there.",
     "Make this folder, or let the user's variables TMP and TEMP name one that is there."},
    {LogObstacle::kFile, "", " is a file, where a folder has to be.",
     "Rename or remove it; the minidriver then makes the folder."},
    {LogObstacle::kFolder, "", " is a folder, where the log file has to be.",
     "Rename or remove it; the minidriver then makes the file."},
    {LogObstacle::kLink, "", " is a link, and the minidriver follows none there.",
     "Rename or remove it; the minidriver then makes what belongs there."},
    {LogObstacle::kRefused, "nothing can be made in ", ".",
     "Make sure that this user may write there, and that the disk is not full."},
    {LogObstacle::kRefusedFile, "nothing can be added to ", ".",
     "Make sure that this user may write to it, that it is not marked as read-only, and that the disk is not full."},
};

Finding judgeObstacle(const LogFacts& facts) {
  if (facts.folder != facts.accountFolder)
    return warning(
        "No log can be written: the name of this user's temporary folder, " + facts.accountFolder +
            ", has characters that this machine's code page does not have, and the minidriver looks for it "
            "as " +
            facts.folder + ".",
        "Set this user's environment variables TMP and TEMP to a folder with a plain name, such as C:\\Temp, "
        "and sign in again.");
  for (const ObstacleText& row : kObstacles) {
    if (row.obstacle == facts.obstacle)
      return warning(std::string("No log can be written: ") + row.before + facts.obstaclePath + row.behind, row.advice);
  }
  return {};
}

// "logLevel is 4": as the registry has it, and what the minidriver makes of it when that is something else.
std::string levelText(const LogFacts& facts, int level) {
  std::string text = "logLevel is " + facts.stored;
  if (facts.stored == std::to_string(level)) return text;
  return text + ", of which only the lowest byte counts: " + std::to_string(level);
}

Finding judgeText(const LogFacts& facts) {
  if (!facts.level)
    return warning("The registry value logLevel is no number and too long to be read, which means errors only.",
                   kSetLogLevel);
  return warning("The registry value logLevel is no number but " + facts.stored +
                     "; of it only the first byte counts, " + std::to_string(*facts.level) + ", which means " +
                     (*facts.level == 3  ? "everything"
                      : *facts.level < 2 ? "nothing"
                                         : "errors only") +
                     ".",
                 kSetLogLevel);
}

std::string writtenText(const LogFacts& facts) {
  if (!facts.level) return "Errors are logged, as always without a setting.";
  if (*facts.level == 3) return "Everything is logged (" + levelText(facts, 3) + ").";
  return "Errors are logged (" + levelText(facts, *facts.level) + ", which means errors only).";
}

}  // namespace

std::optional<int> logLevelOf(const std::optional<Bytes>& value) {
  constexpr std::size_t kLongestValue = 32;
  if (!value || value->size() > kLongestValue) return std::nullopt;
  return value->empty() ? 0 : static_cast<int>(static_cast<std::int8_t>(value->front()));
}

std::string storedText(std::uint32_t type, ByteView value) {
  if (type == kTypeNumber32 || type == kTypeNumber64) {
    std::uint64_t number = 0;
    for (std::size_t i = value.size(); i-- > 0;) number = number << 8 | value[i];
    if (number < 10) return std::to_string(number);
    std::string digits = hexNumber(static_cast<std::uint32_t>(number >> 32), 8) +
                         hexNumber(static_cast<std::uint32_t>(number & 0xFFFFFFFF), 8);
    return "0x" + digits.substr(digits.find_first_not_of('0'));
  }
  if (type == kTypeText || type == kTypeExpandableText) {
    const std::string text(value.begin(), value.end());
    return "\"" + text.substr(0, text.find('\0')) + "\"";
  }
  return value.empty() ? "empty" : "the bytes " + toHex(value, " ");
}

Finding judgeLog(const LogFacts& facts) {
  if (facts.obstacle != LogObstacle::kNone) return judgeObstacle(facts);
  if (!facts.isNumber) return judgeText(facts);
  const int level = facts.level.value_or(2);
  if (level < 2)
    return warning("Nothing is written to the log, because " + levelText(facts, level) + ".", kSetLogLevel);
  if (!facts.arrives)
    return warning(
        "No log can be written, for a reason that is not seen here: the minidriver wrote a line just now, and "
        "it did not come into the folder " +
            facts.folder + "\\Brightfold.",
        "Make sure that this user may write there, and that the disk is not full.");
  const std::string newest = facts.newestFile.empty() ? "There is no log file of this user yet; it will be below " +
                                                            facts.folder + "\\Brightfold."
                                                      : "The newest file is " + facts.newestFile + ".";
  // The temporary folder is the one that TMP, TEMP or USERPROFILE names, in this order (Microsoft Learn, GetTempPathA),
  // of the account that a service runs as.
  const std::string services = " Services and the logon process log below " + facts.windowsFolder +
                               "\\Temp\\Brightfold, those with a profile of their own below " + facts.windowsFolder +
                               "\\ServiceProfiles\\NAME\\AppData\\Local\\Temp\\Brightfold.";
  return ok(writtenText(facts) + " " + newest + services);
}

}  // namespace orvane::tool
