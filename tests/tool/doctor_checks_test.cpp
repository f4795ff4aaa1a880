#include <gtest/gtest.h>

#include <functional>

#include "doctor/checks.h"

namespace orvane::tool {
namespace {

constexpr const char* kBase = "Microsoft Base Smart Card Crypto Provider";
constexpr const char* kStorage = "Microsoft Smart Card Key Storage Provider";

Bytes orvane() {
  const ByteView atr = orvaneAtr();
  return {atr.begin(), atr.end()};
}

Reader reader(const char* name, bool cardPresent, Bytes atr) {
  return {name, cardPresent, false, false, std::move(atr)};
}

// The findings of one row: state and a part of the sentence.
void expectFinding(const Finding& finding, StepState state, const std::string& part, const std::string& what) {
  EXPECT_EQ(finding.state, state) << what << ": " << finding.text;
  EXPECT_NE(finding.text.find(part), std::string::npos) << what << ": " << finding.text;
  EXPECT_TRUE(finding.text.ends_with('.')) << what << ": " << finding.text;
  EXPECT_EQ(finding.advice.empty(), state == StepState::kOk) << what << ": " << finding.advice;
}

TEST(ToolDoctorReaders, MissingOnesAreBroken) {
  const Reader one = reader("one", true, orvane());
  const Reader two = reader("two", false, {});
  expectFinding(judgeReaders({}, std::nullopt, false), StepState::kBroken, "Windows sees no card reader", "none");
  expectFinding(judgeReaders({}, "one", false), StepState::kBroken, "Windows sees no card reader", "none, one wanted");
  expectFinding(judgeReaders({}, std::nullopt, true), StepState::kBroken,
                "no card reader on the machine from which this remote session is held", "none in a remote session");
  EXPECT_EQ(judgeReaders({one, two}, "three", false),
            broken("There is no reader \"three\".",
                   "There is: \"one\", \"two\". A part of the name that only one has is enough."));
  EXPECT_EQ(judgeReaders({one, two}, "O", false), broken("\"O\" is a part of several readers' names: \"one\", \"two\".",
                                                         "Write as much of the name as only one of them has."));
  EXPECT_EQ(judgeReaders({one}, std::nullopt, false), ok("One reader: \"one\"."));
  EXPECT_EQ(judgeReaders({one, two}, "two", false), ok("2 readers: \"one\", \"two\"."));
  // The certificate that somebody misses may be on the other token.
  EXPECT_EQ(judgeReaders({one, two, reader("three", true, orvane())}, std::nullopt, false),
            ok("3 readers: \"one\", \"two\", \"three\". Orvane tokens are in 2 of them; what follows is about one, and "
               "--reader chooses another."));
}

TEST(ToolDoctorCard, MustBeThereAnswerAndBeFree) {
  struct Case {
    const char* what;
    Reader reader;
    StepState state;
    const char* part;
  };
  const Case cases[] = {
      {"no card", {"R", false, false, false, {}}, StepState::kBroken, "There is no card in \"R\""},
      {"mute", {"R", true, false, true, {}}, StepState::kBroken, "does not answer"},
      {"exclusive", {"R", true, true, false, orvane()}, StepState::kBroken, "for itself alone"},
      {"another card",
       {"R", true, false, false, {0x3B, 0x8E}},
       StepState::kBroken,
       "The card in \"R\" is no Orvane token (its ATR is 3B 8E)."},
      {"an Orvane token", {"R", true, false, false, orvane()}, StepState::kOk, "An Orvane token is in \"R\""},
  };
  for (const Case& row : cases) expectFinding(judgeCard(row.reader), row.state, row.part, row.what);
}

TEST(ToolDoctorRegistration, FirstFittingEntryMustBeWhole) {
  const CardType good = {"Token", orvane(), {}, "OrvaneMinidriver.dll", kBase, kStorage};
  const auto changed = [&](const std::function<void(CardType&)>& change) {
    CardType type = good;
    change(type);
    return type;
  };
  const CardType other = changed([](CardType& type) {
    type.name = "Bank";
    type.driverPath = "bank.dll";
    type.atr = {0x3B, 0x00};
  });
  const CardType second = changed([](CardType& type) { type.name = "Second"; });
  struct Case {
    const char* what;
    std::vector<CardType> types;
    StepState state;
    const char* part;
    const char* chosen;  // null: none
  };
  const Case cases[] = {
      {"whole",
       {other, good},
       StepState::kOk,
       "The registry entry \"Token\" names OrvaneMinidriver.dll for this card.",
       "Token"},
      {"with a folder, in other letters",
       {changed([](CardType& type) { type.driverPath = "C:\\a\\orvaneminidriver.DLL"; })},
       StepState::kOk,
       "names C:\\a\\orvaneminidriver.DLL",
       "Token"},
      {"empty registry", {}, StepState::kBroken, "knows no card type with an Orvane token's ATR", nullptr},
      {"only another card's", {other}, StepState::kBroken, "knows no card type with an Orvane token's ATR", nullptr},
      {"no minidriver",
       {changed([](CardType& type) {
         type.name = "Brightfold Orvane";
         type.driverPath.clear();
       })},
       StepState::kBroken,
       "\"Brightfold Orvane\" names no minidriver",
       "Brightfold Orvane"},
      {"no crypto provider",
       {changed([](CardType& type) { type.cryptoProvider.clear(); })},
       StepState::kBroken,
       "has no text as its value \"Crypto Provider\" instead of exactly \"Microsoft Base Smart Card Crypto Provider\"",
       "Token"},
      {"crypto provider in other letters",
       {changed([](CardType& type) { type.cryptoProvider = "microsoft base smart card crypto provider"; })},
       StepState::kBroken,
       "as \"microsoft base",
       "Token"},
      {"wrong key storage provider",
       {changed([](CardType& type) { type.keyStorageProvider = kBase; })},
       StepState::kBroken,
       "\"Smart Card Key Storage Provider\" as \"Microsoft Base",
       "Token"},
      {"another minidriver",
       {changed([](CardType& type) { type.driverPath = "other.dll"; }), second},
       StepState::kBroken,
       "Another product's entry, \"Token\" (other.dll), comes before ours, so Windows takes that product for this "
       "token. In "
       "the order in which Windows takes them: \"Token\" (other.dll), \"Second\" (OrvaneMinidriver.dll).",
       "Token"},
      {"another product without a minidriver",
       {changed([](CardType& type) {
          type.driverPath.clear();
          type.cryptoProvider = "Old Provider";
        }),
        second},
       StepState::kBroken,
       "\"Token\" (Old Provider, no minidriver), \"Second\" (OrvaneMinidriver.dll).",
       "Token"},
      {"only another product",
       {changed([](CardType& type) { type.driverPath = "other.dll"; })},
       StepState::kBroken,
       "Only another product's entry, \"Token\" (other.dll), fits this token, so Windows takes that product for it.",
       "Token"},
      {"a second one that fits",
       {good, other, second},
       StepState::kWarning,
       "Other entries fit it, too; Windows takes the first. In the order in which Windows takes them: \"Token\" "
       "(OrvaneMinidriver.dll), \"Second\" (OrvaneMinidriver.dll).",
       "Token"},
      {"ours without an ATR",
       {changed([](CardType& type) { type.atr.clear(); })},
       StepState::kBroken,
       "does not fit the token: it has no ATR",
       nullptr},
      {"ours with a shorter ATR",
       {changed([](CardType& type) { type.atr.pop_back(); })},
       StepState::kBroken,
       "its ATR has 18 bytes, the token's 19",
       nullptr},
      {"ours with a shorter mask",
       {changed([](CardType& type) { type.mask = Bytes(18, 0xFF); })},
       StepState::kBroken,
       "its ATRMask has 18 bytes, its ATR 19; the mask is FF FF FF",
       nullptr},
      {"ours with a wrong mask",
       {changed([](CardType& type) {
         type.mask = Bytes(19, 0xFF);
         type.mask[1] = 0x0F;
       })},
       StepState::kBroken,
       "does not fit the token: its ATRMask is FF 0F FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF, which has to "
       "be 19 "
       "times FF.",
       nullptr},
      {"ours with another ATR and a wrong mask",
       {changed([](CardType& type) {
         type.atr[18] = 0;
         type.mask = Bytes(19, 0);
       })},
       StepState::kBroken,
       "58 58 5F 44 53 43 5F 4B 45 59 00, and its ATRMask is 00 00",
       nullptr},
      {"ours with another ATR",
       {changed([](CardType& type) { type.atr[18] = 0; })},
       StepState::kBroken,
       "its ATR is 3B 8E",
       nullptr},
  };
  for (const Case& row : cases) {
    const Registration registration = judgeRegistration(row.types, orvaneAtr(), false);
    expectFinding(registration.finding, row.state, row.part, row.what);
    EXPECT_EQ(registration.type ? registration.type->name : "none", row.chosen ? row.chosen : "none") << row.what;

    // Named on the command line, the minidriver is found all the same.
    const Registration named = judgeRegistration(row.types, orvaneAtr(), true);
    expectFinding(named.finding, row.state == StepState::kBroken ? StepState::kWarning : row.state, row.part, row.what);
  }
  // Who reads it must not look for the fault in our file, nor install it again.
  const CardType first = changed([](CardType& type) {
    type.name = "Alpha";
    type.driverPath = "alpha.dll";
  });
  EXPECT_EQ(judgeRegistration({first, good}, orvaneAtr(), false).finding.advice,
            "Uninstall the product that \"Alpha\" belongs to; as long as its entry is there, installing this "
            "minidriver again "
            "changes nothing. If the entry stays, have an administrator remove it: reg delete "
            "\"HKLM\\SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\Alpha\" /f");
  EXPECT_EQ(judgeRegistration({first}, orvaneAtr(), false).finding.advice,
            "Uninstall the product that \"Alpha\" belongs to, then install the minidriver. If the entry stays, have an "
            "administrator remove it: reg delete "
            "\"HKLM\\SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\Alpha\" /f");
}

LibraryFile library(std::uint16_t machine, std::vector<std::string> imports = {}) {
  LibraryFile file;
  file.path = "C:\\a.dll";
  file.found = true;
  file.pe = PeFile{machine, std::move(imports)};
  file.version = "1.2.3.4";
  return file;
}

TEST(ToolDoctorDriver, MustBeThereAndOfTheProcessorsKind) {
  EXPECT_EQ(judgeDriver(library(kMachineArm64), kMachineArm64), ok("C:\\a.dll, version 1.2.3.4, for ARM64."));
  LibraryFile file = library(kMachineX64);
  file.version.clear();
  EXPECT_EQ(judgeDriver(file, kMachineX64), ok("C:\\a.dll, for x64."));
  expectFinding(judgeDriver(file, kMachineArm64), StepState::kBroken,
                "C:\\a.dll is built for x64, but this program runs as ARM64", "another kind");
  file.missing = {"VCRUNTIME140.dll"};
  expectFinding(judgeDriver(file, kMachineX64), StepState::kBroken,
                "C:\\a.dll needs VCRUNTIME140.dll, which is not there", "missing");
  // An x64 program on an Arm machine loads hybrid code, too, one on an Intel machine does not.
  for (const std::uint16_t kind : {kMachineArm64Ec, kMachineArm64X}) {
    EXPECT_EQ(judgeDriver(library(kind), kMachineArm64Ec).state, StepState::kOk) << machineName(kind);
    expectFinding(judgeDriver(library(kind), kMachineX64), StepState::kBroken,
                  "C:\\a.dll is built for " + machineName(kind) + ", but this program runs as x64", "hybrid code");
  }
  expectFinding(judgeDriver(library(kMachineArm64), kMachineArm64Ec), StepState::kBroken,
                "is built for ARM64, but this program runs as x64", "ARM64 code in an x64 program");
  file.pe.reset();
  expectFinding(judgeDriver(file, kMachineX64), StepState::kBroken, "C:\\a.dll is no program library", "no library");
  file.readable = false;
  expectFinding(judgeDriver(file, kMachineX64), StepState::kBroken, "C:\\a.dll is there but cannot be read", "refused");
  file.found = false;
  expectFinding(judgeDriver(file, kMachineX64), StepState::kBroken, "There is no file C:\\a.dll", "not there");
}

TEST(ToolDoctorLibrary, MustBeThereAndLoad) {
  const PeFile driver = {kMachineX64, {"KERNEL32.dll", "ORVANEDSCLIBRARY.DLL"}};
  EXPECT_EQ(judgeLibrary(driver, library(kMachineX64), kMachineX64), ok("C:\\a.dll, version 1.2.3.4, for x64."));
  EXPECT_EQ(judgeLibrary({kMachineX64, {"KERNEL32.dll"}}, LibraryFile{}, kMachineX64),
            ok("This minidriver does not use OrvaneDSCLibrary.dll."));

  LibraryFile file = library(kMachineX64);
  file.loadError = ToolError("LoadLibrary", 1114);
  expectFinding(
      judgeLibrary(driver, file, kMachineX64), StepState::kBroken,
      "C:\\a.dll does not load: a library failed while it started [LoadLibrary: ERROR_DLL_INIT_FAILED (1114)].",
      "load error");
  file.loadError = ToolError("LoadLibrary", 577);
  EXPECT_EQ(judgeLibrary(driver, file, kMachineX64).advice, file.loadError->advice());
  file.missing = {"VCRUNTIME140.dll", "other.dll"};
  expectFinding(judgeLibrary(driver, file, kMachineX64), StepState::kBroken,
                "OrvaneDSCLibrary.dll needs VCRUNTIME140.dll, other.dll, which is not there", "missing");
  expectFinding(judgeLibrary(driver, file, kMachineArm64), StepState::kBroken, "is built for x64", "another kind");
  file.pe.reset();
  expectFinding(judgeLibrary(driver, file, kMachineX64), StepState::kBroken, "is no program library", "no library");
  file.found = false;
  expectFinding(judgeLibrary(driver, file, kMachineX64), StepState::kBroken,
                "OrvaneDSCLibrary.dll is missing; it is not at C:\\a.dll", "not there");
}

TEST(ToolDoctorLibrary, ApiSetsAreNoFiles) {
  for (const char* name : {"api-ms-win-crt-heap-l1-1-0.dll", "API-MS-x.dll", "ext-ms-y.dll"})
    EXPECT_TRUE(isApiSet(name)) << name;
  for (const char* name : {"KERNEL32.dll", "apidll", "api", ""}) EXPECT_FALSE(isApiSet(name)) << name;
}

std::vector<CardFileFacts> goodFiles() {
  return {{{"", "cardid"}, 16, 16, ""},
          {{"mscp", "cardcf"}, 6, 6, ""},
          {{"mscp", "cmapfile"}, 172, 172, ""},
          {{"mscp", "ksc00"}, 4096, 0, ""},
          {{"mscp", "kxc01"}, 4096, 0, "not looked at here"}};
}

TEST(ToolDoctorFiles, MustBeListedReadableAndOfTheirSizes) {
  struct Case {
    const char* what;
    std::function<void(std::vector<CardFileFacts>&)> change;
    StepState state;
    const char* part;
  };
  using Files = std::vector<CardFileFacts>;
  const Case cases[] = {
      {"good", [](Files&) {}, StepState::kOk,
       "The token shows Windows 5 files, 2 of them for certificates; the others can all be read."},
      {"empty cmapfile", [](Files& files) { files[2].size = files[2].statedSize = 0; }, StepState::kOk,
       "5 files, 2 of"},
      {"nothing", [](Files& files) { files.clear(); }, StepState::kBroken, "does not list the file \"cardid\""},
      {"no cardcf", [](Files& files) { files.erase(files.begin() + 1); }, StepState::kBroken,
       "does not list the file \"cardcf\""},
      {"no cmapfile", [](Files& files) { files.erase(files.begin() + 2); }, StepState::kBroken,
       "does not list the file \"cmapfile\""},
      {"unreadable", [](Files& files) { files[1].problem = "why"; }, StepState::kBroken,
       "The file \"cardcf\" cannot be read: why."},
      {"long cardcf", [](Files& files) { files[1].size = files[1].statedSize = 7; }, StepState::kBroken,
       "\"cardcf\" has 7 bytes"},
      {"short cardid", [](Files& files) { files[0].size = files[0].statedSize = 15; }, StepState::kBroken,
       "\"cardid\" has 15 bytes"},
      {"odd cmapfile", [](Files& files) { files[2].size = files[2].statedSize = 87; }, StepState::kBroken,
       "\"cmapfile\" has 87 bytes"},
      {"other size than stated", [](Files& files) { files[2].size = 86; }, StepState::kWarning,
       "\"cmapfile\" has 86 bytes, but is said to have 172"},
      {"another file",
       [](Files& files) {
         files.push_back({{"mscp", "other"}, 5, 5, ""});
       },
       StepState::kOk, "6 files, 2 of"},
  };
  for (const Case& row : cases) {
    Files files = goodFiles();
    row.change(files);
    expectFinding(judgeFiles(files), row.state, row.part, row.what);
  }
}

TEST(ToolDoctorLog, LevelIsTheFirstByte) {
  EXPECT_EQ(logLevelOf(std::nullopt), std::nullopt);
  EXPECT_EQ(logLevelOf(Bytes{}), 0);
  EXPECT_EQ(logLevelOf(Bytes{3, 0, 0, 0}), 3);
  EXPECT_EQ(logLevelOf(Bytes{0x33, 0x00}), 51);
  EXPECT_EQ(logLevelOf(Bytes{0xFF}), -1);
  EXPECT_EQ(logLevelOf(Bytes(32, 2)), 2);
  EXPECT_EQ(logLevelOf(Bytes(33, 2)), std::nullopt);
}

TEST(ToolDoctorLog, ValuesAreShownAsTheRegistryHasThem) {
  EXPECT_EQ(storedText(4, Bytes{3, 0, 0, 0}), "3");
  EXPECT_EQ(storedText(4, Bytes{0, 3, 0, 0}), "0x300");
  EXPECT_EQ(storedText(4, Bytes{0xFF, 0xFF, 0xFF, 0xFF}), "0xFFFFFFFF");
  EXPECT_EQ(storedText(11, Bytes{1, 0, 0, 0, 2, 0, 0, 0}), "0x200000001");
  EXPECT_EQ(storedText(1, Bytes{'3', 0}), "\"3\"");
  EXPECT_EQ(storedText(2, Bytes{}), "\"\"");
  EXPECT_EQ(storedText(3, Bytes{3, 0xAB}), "the bytes 03 AB");
  EXPECT_EQ(storedText(3, Bytes{}), "empty");
}

TEST(ToolDoctorLog, MustBeWrittenSomewhere) {
  struct Case {
    const char* what;
    LogFacts facts;
    StepState state;
    const char* part;
  };
  const auto with = [](std::optional<int> level, const char* stored, bool isNumber = true) {
    LogFacts facts;
    facts.level = level;
    facts.stored = stored;
    facts.isNumber = isNumber;
    facts.folder = facts.accountFolder = "T";
    facts.newestFile = "T\\f";
    facts.windowsFolder = "W";
    return facts;
  };
  const auto obstructed = [&](LogObstacle obstacle, const char* path) {
    LogFacts facts = with(3, "3");
    facts.obstacle = obstacle;
    facts.obstaclePath = path;
    return facts;
  };
  LogFacts fresh = with(std::nullopt, "");
  fresh.newestFile.clear();
  LogFacts lost = with(3, "3");
  lost.arrives = false;
  LogFacts outside = obstructed(LogObstacle::kNoFolder, "C:\\?");
  outside.folder = "C:\\?";
  outside.accountFolder = "C:\\\xC5\x81";
  LogFacts similar = with(3, "3");
  similar.folder = "C:\\L";
  similar.accountFolder = "C:\\\xC5\x81";
  const Case cases[] = {
      {"default", fresh, StepState::kOk,
       "Errors are logged, as always without a setting. There is no log file of this user yet; it will be below "
       "T\\Brightfold."},
      {"errors", with(2, "2"), StepState::kOk,
       "Errors are logged (logLevel is 2, which means errors only). The newest file is T\\f."},
      {"everything", with(3, "3"), StepState::kOk, "Everything is logged (logLevel is 3). The newest"},
      {"everything, in a large number", with(3, "0x103"), StepState::kOk,
       "Everything is logged (logLevel is 0x103, of which only the lowest byte counts: 3). The newest"},
      {"more", with(4, "4"), StepState::kOk, "Errors are logged (logLevel is 4, which means errors only). The newest"},
      {"exceptions", with(1, "1"), StepState::kWarning, "because logLevel is 1."},
      {"nothing", with(0, "0"), StepState::kWarning, "because logLevel is 0."},
      {"nothing, in a large number", with(0, "0x300"), StepState::kWarning,
       "because logLevel is 0x300, of which only the lowest byte counts: 0."},
      {"negative", with(-1, "0xFF"), StepState::kWarning,
       "logLevel is 0xFF, of which only the lowest byte counts: -1."},
      {"text", with(51, "\"3\"", false), StepState::kWarning,
       "logLevel is no number but \"3\"; of it only the first byte counts, 51, which means errors only."},
      {"bytes", with(3, "the bytes 03", false), StepState::kWarning,
       "no number but the bytes 03; of it only the first byte counts, 3, which means everything."},
      {"no bytes", with(0, "empty", false), StepState::kWarning, "only the first byte counts, 0, which means nothing."},
      {"long text", with(std::nullopt, "", false), StepState::kWarning, "too long to be read, which means errors"},
      {"no folder", obstructed(LogObstacle::kNoFolder, "T"), StepState::kWarning,
       "No log can be written: T is not there."},
      {"a file in a folder's place", obstructed(LogObstacle::kFile, "T\\Brightfold"), StepState::kWarning,
       "No log can be written: T\\Brightfold is a file, where a folder has to be."},
      {"a folder in the file's place", obstructed(LogObstacle::kFolder, "T\\f"), StepState::kWarning,
       "No log can be written: T\\f is a folder, where the log file has to be."},
      {"a link", obstructed(LogObstacle::kLink, "T\\Brightfold"), StepState::kWarning, "T\\Brightfold is a link"},
      {"a folder that takes nothing", obstructed(LogObstacle::kRefused, "T"), StepState::kWarning,
       "No log can be written: nothing can be made in T."},
      {"a file that takes nothing", obstructed(LogObstacle::kRefusedFile, "T\\f"), StepState::kWarning,
       "No log can be written: nothing can be added to T\\f."},
      {"a line that did not arrive", lost, StepState::kWarning, "it did not come into the folder T\\Brightfold."},
      {"a name that the code page does not have", outside, StepState::kWarning,
       "folder, C:\\\xC5\x81, has characters that this machine's code page does not have, and the minidriver looks for "
       "it as C:\\?."},
      {"a name that is much the same in the code page", similar, StepState::kOk, "The newest file is T\\f."},
      {"services", with(3, "3"), StepState::kOk,
       "Services and the logon process log below W\\Temp\\Brightfold, those with a profile of their own below "
       "W\\ServiceProfiles\\NAME\\AppData\\Local\\Temp\\Brightfold."},
  };
  for (const Case& row : cases) expectFinding(judgeLog(row.facts), row.state, row.part, row.what);
}

TEST(ToolDoctorFreshness, MonitorMustSeeTheTokenAndThenBeQuiet) {
  struct Case {
    const char* what;
    FreshnessFacts facts;
    StepState state;
    const char* part;
  };
  const Freshness numbers = {1, 2, 300, 400};
  const Case cases[] = {
      {"quiet",
       {numbers, "", true, 0, 1.54},
       StepState::kOk,
       "The minidriver notices when the token changes; it has not for 1.5 s (version 1, PINs 2, containers 300, files "
       "400)."},
      {"not seen",
       {numbers, "", false, 0, 10},
       StepState::kWarning,
       "The minidriver has not noticed the token for 10.0 s"},
      {"moves on",
       {numbers, "", true, 3, 0.1},
       StepState::kWarning,
       "while nothing was done, the minidriver noticed 3 changes (version 1"},
      {"unreadable",
       {std::nullopt, "why", false, 0, 0},
       StepState::kBroken,
       "The file \"cardcf\" cannot be read: why."},
  };
  for (const Case& row : cases) expectFinding(judgeFreshness(row.facts), row.state, row.part, row.what);
}

}  // namespace
}  // namespace orvane::tool
