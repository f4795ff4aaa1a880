#include <gtest/gtest.h>

#include <sstream>

#include "golden/session_text.h"
#include "log/explanations.h"
#include "log/lines.h"

namespace orvane::tool {
namespace {

constexpr const char* kTime = "15/11::10:03:25:123-> ->";

std::string entryLine(const std::string& call) {
  return std::string(kTime) + "DEBUG ::=>" + call + " :: LOG_FUNCTION_NAME = Entry\n";
}

std::string debugLine(const std::string& message) { return std::string(kTime) + "DEBUG ::=>" + message + "\n"; }

// The calls of all lines of a text.
std::vector<std::string> callsIn(const std::string& text) {
  std::vector<std::string> calls;
  for (const LogLine& line : LogReader().add(text)) calls.push_back(line.call);
  return calls;
}

TEST(ToolLogLine, IsTakenApart) {
  struct Case {
    const char* line;
    LogTag tag;
    const char* day;
    const char* time;
    const char* message;
  };
  const Case cases[] = {
      {"15/11::10:03:25:123-> ->DEBUG ::=>text", LogTag::kDebug, "15/11", "10:03:25.123", "text"},
      {"01/02::00:00:00:000-> ->ERROR ::=>", LogTag::kError, "01/02", "00:00:00.000", ""},
      {"15/11::10:03:25:123-> ->EXCEP ::=>a b", LogTag::kException, "15/11", "10:03:25.123", "a b"},
      {"15/11::10:03:25:123-> ->INFO  ::=>->ERROR ::=>", LogTag::kInfo, "15/11", "10:03:25.123", "->ERROR ::=>"},
      {"15/11::10:03:25:123-> ->OTHER ::=>text", LogTag::kNone, "", "", "15/11::10:03:25:123-> ->OTHER ::=>text"},
      {"1/11::10:03:25:123-> ->DEBUG ::=>text", LogTag::kNone, "", "", "1/11::10:03:25:123-> ->DEBUG ::=>text"},
      {"15/11::10:03:25:123-> ->DEBUG ::=", LogTag::kNone, "", "", "15/11::10:03:25:123-> ->DEBUG ::="},
      {"", LogTag::kNone, "", "", ""},
  };
  for (const Case& row : cases)
    EXPECT_EQ(parseLogLine(row.line), (LogLine{row.line, row.day, row.time, row.tag, row.message, ""})) << row.line;
}

TEST(ToolLogReader, PutsLinesTogetherFromPieces) {
  const std::string text = debugLine("one") + "\r\n" + debugLine("two") + "15/11::10";
  const std::vector<std::string> raw = {std::string(kTime) + "DEBUG ::=>one", "", std::string(kTime) + "DEBUG ::=>two",
                                        "15/11::10"};
  for (std::size_t size = 1; size <= text.size(); ++size) {
    LogReader reader;
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size(); start += size) {
      for (const LogLine& line : reader.add(text.substr(start, size))) lines.push_back(line.raw);
    }
    for (const LogLine& line : reader.finish()) lines.push_back(line.raw);
    EXPECT_EQ(lines, raw) << "in pieces of " << size;
    EXPECT_TRUE(reader.finish().empty());
  }
}

// Each piece is looked through once: a file without line ends is read in time.
TEST(ToolLogReader, LongLinesComeInManyPieces) {
  constexpr std::size_t kPieces = 50000;
  LogReader reader;
  for (std::size_t i = 0; i < kPieces; ++i) ASSERT_TRUE(reader.add(std::string(1024, 'x')).empty());
  const std::vector<LogLine> lines = reader.add("\ny\n");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].raw, std::string(kPieces * 1024, 'x'));
  EXPECT_EQ(lines[1].raw, "y");
}

TEST(ToolLogReader, LinesBelongToTheCallBeforeThem) {
  EXPECT_EQ(callsIn(debugLine("first of all") + entryLine("CardReadFile") + debugLine("a") + entryLine("CardSignData") +
                    debugLine("b")),
            (std::vector<std::string>{"", "CardReadFile", "CardReadFile", "CardSignData", "CardSignData"}));
}

TEST(ToolLogReader, MonitorLinesBelongToNoCall) {
  const std::string call = "CardReadFile";
  const std::string monitor = "monitor";
  EXPECT_EQ(callsIn(entryLine(call) + debugLine("Device monitor thread started.") +
                    debugLine("Device reconnected [0012AB] -> bumping freshness") +
                    debugLine("device reconnect false [0012AB]") +
                    debugLine(">>> GLOBAL CACHE BUMPED: ver=1 pins=1 cont=0 file=0") + debugLine("of the call") +
                    debugLine("Cache state after reconnect: ver=1 pins=1 cont=0 files=0") +
                    debugLine(">>> GLOBAL CACHE BUMPED: ver=1 pins=1 cont=0 file=0") +
                    debugLine("Device disconnected [0012AB] -> clearing per-device state") +
                    debugLine("Cache state after disconnect: ver=1 pins=1 cont=0 files=0") + debugLine("valid")),
            (std::vector<std::string>{call, monitor, monitor, monitor, monitor, call, monitor, call, monitor, monitor,
                                      call}));
}

TEST(ToolLogReader, OtherLinesTakeCallAndLevelOfTheOneBefore) {
  LogReader reader;
  const auto lines =
      reader.add("at the beginning\n" + entryLine("CardSignData") + kTime + "ERROR ::=>text\nwith an end\n");
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0], (LogLine{"at the beginning", "", "", LogTag::kNone, "at the beginning", ""}));
  EXPECT_EQ(lines[3], (LogLine{"with an end", "15/11", "10:03:25.123", LogTag::kError, "with an end", "CardSignData"}));
}

// What the minidriver really writes: each section of the session is one call, and so are its lines.
TEST(ToolLogReader, UnderstandsAWholeSession) {
  std::istringstream session(test::kSessionText);
  LogReader reader;
  std::string call;
  std::size_t lines = 0;
  constexpr std::string_view kMaskedTime = "dd/mm::hh:mm:ss:mmm-> ->";
  for (std::string text; std::getline(session, text);) {
    if (text.starts_with("# ")) call = text.substr(2, text.find(' ', 2) - 2);
    if (!text.starts_with(kMaskedTime)) continue;
    const auto read = reader.add(kTime + text.substr(kMaskedTime.size()) + "\n");
    ASSERT_EQ(read.size(), 1U) << text;
    EXPECT_NE(read[0].tag, LogTag::kNone) << text;
    EXPECT_EQ(read[0].call, call == "the" ? "monitor" : call) << text;
    ++lines;
  }
  EXPECT_GT(lines, 250U);
}

TEST(ToolLogFilter, KeepsByCallAndLevel) {
  const auto line = [](LogTag tag, const char* call) {
    LogLine made;
    made.tag = tag;
    made.call = call;
    return made;
  };
  struct Case {
    LogFilter filter;
    LogTag tag;
    const char* call;
    bool keeps;
  };
  const Case cases[] = {
      {{}, LogTag::kNone, "", true},
      {{}, LogTag::kDebug, "CardSignData", true},
      {{std::nullopt, true}, LogTag::kDebug, "CardSignData", false},
      {{std::nullopt, true}, LogTag::kNone, "", false},
      {{std::nullopt, true}, LogTag::kError, "CardSignData", true},
      {{std::nullopt, true}, LogTag::kException, "", true},
      {{"cardsigndata", false}, LogTag::kDebug, "CardSignData", true},
      {{"CardSign", false}, LogTag::kDebug, "CardSignData", false},
      {{"CardSignData", true}, LogTag::kDebug, "CardSignData", false},
      {{"CardSignData", true}, LogTag::kError, "CardSignData", true},
      {{"CardSignData", true}, LogTag::kError, "CardReadFile", false},
  };
  for (const Case& row : cases)
    EXPECT_EQ(row.filter.keeps(line(row.tag, row.call)), row.keeps)
        << row.filter.call.value_or("any") << " " << row.filter.errorsOnly << " " << row.call;
}

TEST(ToolLogOutput, PlainIsTheLineWithItsExplanationsBelow) {
  LogLine line = parseLogLine(std::string(kTime) + "ERROR ::=>text");
  EXPECT_EQ(plainLogLine(line, {}), std::string(kTime) + "ERROR ::=>text\n");
  EXPECT_EQ(plainLogLine(line, {"one", "two"}), std::string(kTime) + "ERROR ::=>text\n    = one\n    = two\n");
}

TEST(ToolLogOutput, TerminalsGetColumnsBelowTheCall) {
  LogLine line = parseLogLine(std::string(kTime) +
                              "ERROR ::=>a\x1B[2Jb\xC2\x9B"
                              "c\xC3\xA4 d");
  line.call = "CardReadFile";
  EXPECT_EQ(styledLogLine(line, {"why so"}, Style(false), 80, "CardSignData"),
            "CardReadFile\n"
            "  10:03:25.123  ERROR  a.[2Jb.c\xC3\xA4 d\n" +
                std::string(23, ' ') + "= why so\n");
  EXPECT_EQ(
      styledLogLine(line, {"why so"}, Style(false), 32, "CardReadFile"),
      "  10:03:25.123  ERROR  a.[2Jb.c\xC3\xA4\n" + std::string(23, ' ') + "d\n" + std::string(23, ' ') + "= why so\n");
  EXPECT_EQ(styledLogLine(line, {}, Style(true), 80, ""),
            "\x1B[1mCardReadFile\x1B[0m\n"
            "  \x1B[90m10:03:25.123\x1B[0m  \x1B[31mERROR  a.[2Jb.c\xC3\xA4 d\x1B[0m\n");
  EXPECT_EQ(styledLogLine(parseLogLine("x"), {}, Style(false), 80, "CardReadFile"),
            "(unknown call)\n                       x\n");
}

TEST(ToolLogOutput, JsonHasEveryPart) {
  LogLine line = parseLogLine(std::string(kTime) + "DEBUG ::=>text");
  line.call = "CardReadFile";
  EXPECT_EQ(logLineJson(line, {"why"}).dump(), R"({"day":"15/11","time":"10:03:25.123","level":"DEBUG",)"
                                               R"("call":"CardReadFile","message":"text","explanations":["why"]})");
  EXPECT_EQ(logLineJson(parseLogLine("x"), {}).dump(),
            R"({"day":null,"time":null,"level":null,"call":null,"message":"x","explanations":[]})");
}

TEST(ToolLogExplanations, KnownLinesAreExplained) {
  struct Case {
    const char* message;
    const char* beginning;  // of the only explanation; null: there is none
  };
  const Case cases[] = {
      {"CardAcquireContext completed successfully", nullptr},
      {"CardReadFile :: LOG_FUNCTION_NAME = Entry", nullptr},
      {"ATR VALUE or length IS MISMATCH", "Another kind of card"},
      {"No smart card connected", "The token library sees no token"},
      {"SLE serial APDU failed, falling back to index: 0", "The token did not tell its serial"},
      {"Serial APDU failed, falling back to index: 3", "The token did not tell its serial"},
      {"Init device failed for [0012AB]: 7", "The token did not open at once"},
      {"PACE refresh failed for [0012AB]: 7", "No key could be read"},
      {"CardAcquireContext: unhandled exception: bad allocation", "The token library failed unexpectedly"},
      {"CardSignData: provider context is NULL", "The calling program used a connection"},
      {"CardQueryFreeSpace: null provider context", "The calling program used a connection"},
      {"CMAP: no containers for 0012AB, returning empty cmapfile",
       "No keys were seen, so Windows shows no certificate"},
      {"Init device in get certificate failed : 7", "The token did not open when a certificate was read"},
      {"CardReadFile: no matching key exchange cert found", "The token holds a key without a certificate"},
      {"invalid password for [0012AB] : 7", "The token refused the PIN"},
      {"CardAuthenticateEx: no cached PIN, silent auth not possible [0012AB]", "A program asked without a dialog"},
      {"CardChangeAuthenticatorEx: change failed, attempts=7", "The PIN was not changed"},
      {"CardSignData: RSA-1024 signing not allowed", "Keys of 1024 bits are too short"},
      {"CardSignData: orvane_signHash failed, ret=7", "The token refused to sign"},
      {"CardRSADecrypt: orvane_decrypt failed, ret=7", "The token refused to decrypt"},
      {"Device reconnected [0012AB] -> bumping freshness", "The token was plugged in"},
      {"CP_CARD_GUID: buffer too small, required = 16", "Normal: programs ask for the size first"},
  };
  for (const Case& row : cases) {
    const auto explanations = explainLogMessage(row.message);
    ASSERT_EQ(explanations.size(), row.beginning ? 1U : 0U) << row.message;
    if (row.beginning)
      EXPECT_TRUE(explanations[0].starts_with(row.beginning)) << row.message << ": " << explanations[0];
  }
}

TEST(ToolLogExplanations, StatusesAreNamedOnce) {
  using Texts = std::vector<std::string>;
  struct Case {
    const char* message;
    Texts explanations;
  };
  const std::string wrongPin = "the PIN is wrong: SCARD_W_WRONG_CHV (0x8010006B)";
  const Case cases[] = {
      {"status=0x8010006B", {wrongPin}},
      {"status=0x8010006b.", {wrongPin}},
      {"SCARD_W_WRONG_CHV and 0x8010006B", {wrongPin}},
      {"0x8010006B, 0x8010000C", {wrongPin, "there is no token or card: SCARD_E_NO_SMARTCARD (0x8010000C)"}},
      {"CP_CARD_LIST_PINS: ERROR_INSUFFICIENT_BUFFER, required=4, cbData=0",
       {"Normal: programs ask for the size first and then again with room for the answer.",
        "the buffer is too small for the answer: ERROR_INSUFFICIENT_BUFFER (122)"}},
      {"ERROR_INSUFFICIENT_BUFFER, required=4",
       {"the buffer is too small for the answer: ERROR_INSUFFICIENT_BUFFER (122)"}},
      {"0x8010006", {}},
      {"0x8010006B0", {}},
      {"0x80109999", {}},
      {"SCARD_W_WRONG_CHVX", {}},
      {"0x", {}},
      {"", {}},
  };
  for (const Case& row : cases) EXPECT_EQ(explainLogMessage(row.message), row.explanations) << row.message;
}

TEST(ToolLogExplanations, EveryKnownPartIsReachedAndWellWritten) {
  for (const KnownLine& row : knownLines()) {
    const auto explanations = explainLogMessage(row.part);
    ASSERT_FALSE(explanations.empty()) << row.part;
    EXPECT_EQ(explanations[0], row.explanation) << row.part;
    EXPECT_TRUE(row.explanation.ends_with('.')) << row.part;
  }
}

}  // namespace
}  // namespace orvane::tool
