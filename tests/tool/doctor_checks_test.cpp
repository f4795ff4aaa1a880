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
  expectFinding(judgeReaders({one, two}, "three", false), StepState::kBroken,
                "There is no reader \"three\"; there is \"one\", \"two\".", "another one wanted");
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
      {"another card", {"R", true, false, false, {0x3B, 0x8E}}, StepState::kWarning, "its ATR is 3B 8E"},
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
      {"empty registry", {}, StepState::kBroken, "knows no card type with the token's ATR", nullptr},
      {"only another card's", {other}, StepState::kBroken, "knows no card type with the token's ATR", nullptr},
      {"no minidriver",
       {changed([](CardType& type) { type.driverPath.clear(); })},
       StepState::kBroken,
       "\"Token\" names no minidriver",
       "Token"},
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
       StepState::kWarning,
       "names other.dll for this card, which is another minidriver",
       "Token"},
      {"a second one that fits",
       {good, other, second},
       StepState::kWarning,
       "the entry \"Second\" fits it, too",
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
       "its ATRMask has 18 bytes, its ATR 19",
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
  const Bytes bank = {0x3B, 0x01};
  expectFinding(judgeRegistration({other, good}, bank, false).finding, StepState::kBroken,
                "knows no card type with the ATR 3B 01.", "an unknown card");
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
  expectFinding(judgeLibrary(driver, file, kMachineX64), StepState::kBroken,
                "C:\\a.dll does not load: LoadLibrary failed: ERROR_DLL_INIT_FAILED (1114)", "load error");
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
      {"good", [](Files&) {}, StepState::kOk, "3 files and 2 certificates are listed"},
      {"empty cmapfile", [](Files& files) { files[2].size = files[2].statedSize = 0; }, StepState::kOk, "3 files"},
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
       StepState::kOk, "4 files"},
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

TEST(ToolDoctorLog, MustBeWrittenSomewhere) {
  struct Case {
    const char* what;
    LogFacts facts;
    StepState state;
    const char* part;
  };
  const Case cases[] = {
      {"default",
       {std::nullopt, true, "T", "", ""},
       StepState::kOk,
       "Errors are logged. There is no log file of this user yet; it will be below T\\Brightfold."},
      {"errors", {2, true, "T", "", "T\\f"}, StepState::kOk, "Errors are logged. The newest file is T\\f."},
      {"everything", {3, true, "T", "", "T\\f"}, StepState::kOk, "Everything is logged (level 3). The newest"},
      {"more", {4, true, "T", "", "T\\f"}, StepState::kOk, "Errors are logged. The newest"},
      {"exceptions", {1, true, "T", "", ""}, StepState::kWarning, "because logLevel is 1"},
      {"nothing", {0, true, "T", "", ""}, StepState::kWarning, "because logLevel is 0"},
      {"negative", {-1, true, "T", "", ""}, StepState::kWarning, "because logLevel is -1"},
      {"text",
       {51, false, "T", "", ""},
       StepState::kWarning,
       "only the first byte counts, 51, which means errors only"},
      {"bytes", {3, false, "T", "", ""}, StepState::kWarning, "only the first byte counts, 3, which means everything"},
      {"long text", {std::nullopt, false, "T", "", ""}, StepState::kWarning, "too long to be read, which means errors"},
      {"no folder",
       {3, true, "T", "T\\Brightfold", "", "T"},
       StepState::kWarning,
       "No log can be written: T\\Brightfold cannot be used"},
      {"a name that the code page does not have",
       {3, true, "C:\\?", "C:\\?\\", "", "C:\\\xC5\x81"},
       StepState::kWarning,
       "folder, C:\\\xC5\x81, has characters that this machine's code page does not have, and the minidriver looks for "
       "it as C:\\?."},
      {"a name that is much the same in the code page",
       {3, true, "C:\\L", "", "C:\\L\\f", "C:\\\xC5\x81"},
       StepState::kOk,
       "The newest file is C:\\L\\f."},
      {"services",
       {3, true, "T", "", "", "T", "W"},
       StepState::kOk,
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
       "version 1, PINs 2, containers 300, files 400; the monitor sees the token, and they have been unchanged for 1.5 "
       "s."},
      {"not seen", {numbers, "", false, 0, 10}, StepState::kWarning, "have not moved for 10.0 s"},
      {"moves on", {numbers, "", true, 3, 0.1}, StepState::kWarning, "keep moving, 3 more times"},
      {"unreadable", {std::nullopt, "why", false, 0, 0}, StepState::kBroken, "\"cardcf\" cannot be read: why."},
  };
  for (const Case& row : cases) expectFinding(judgeFreshness(row.facts), row.state, row.part, row.what);
}

}  // namespace
}  // namespace orvane::tool
