// CardGetProperty: the eighteen properties, each with every way to ask for it.
#include <algorithm>

#include "harness/all_properties.h"
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr char kEntry[] = "D CardGetProperty :: LOG_FUNCTION_NAME = Entry";

struct PropertyCase {
  const wchar_t* name = L"";
  DWORD flags = 0;
  Bytes value = {};
  Lines announcement = {};  // before any test
  Lines success = {};       // after the value was written
  Lines tooSmall = {};      // "{cb}" stands for the size of the caller's buffer
};

std::string narrow(std::wstring_view text) { return std::string(text.begin(), text.end()); }

Lines withSize(Lines lines, DWORD size) {
  for (std::string& line : lines) {
    const std::size_t at = line.find("{cb}");
    if (at != std::string::npos) line.replace(at, 4, std::to_string(size));
  }
  return lines;
}

Bytes pinInfo(std::uint32_t purpose) { return words({6, 0, purpose, 1, 2, 6, 0, 0, 0}); }

// The properties in the order in which their names are tested, as a context on the token 0012AB answers them.
const PropertyCase kCases[] = {
    {.name = L"Card Identifier",
     .value = {'0', '0', '1', '2', 'A', 'B', '0', '0', '1', '2', 'A', 'B', '0', '0', '1', '2'},
     .announcement = {"D Property = CP_CARD_GUID"},
     .success = {"D CP_CARD_GUID: returning per-device GUID for serial=[0012AB] len=6"},
     .tooSmall = {"D CP_CARD_GUID: buffer too small, required = 16"}},
    {.name = L"Read Only Mode",
     .value = words({1}),
     .announcement = {"D Property = CP_CARD_READ_ONLY"},
     .success = {"D CP_CARD_READ_ONLY: returning TRUE (card is readble)"},
     .tooSmall = {"D CP_CARD_READ_ONLY: buffer too small, required = 4"}},
    {.name = L"Free Space",
     .value = words({1, 12288, 0, 6}),
     .announcement = {"D Property = CP_CARD_FREE_SPACE"},
     .success = {"D CP_CARD_FREE_SPACE: key slots = 0"},
     .tooSmall = {"D CP_CARD_FREE_SPACE: buffer too small, required = 16"}},
    {.name = L"Key Sizes",
     .value = words({1, 2048, 2048, 4096, 2048}),
     .announcement = {"D Property = CP_CARD_KEYSIZES"},
     .success = {"D CP_CARD_KEYSIZES: returning 2048-bit fixed key size"},
     .tooSmall = {"D CP_CARD_KEYSIZES: buffer too small, required = 20"}},
    {.name = L"Capabilities",
     .value = words({1, 1, 0}),
     .announcement = {"D Property = CP_CARD_CAPABILITIES"},
     .success = {"D CP_CARD_CAPABILITIES: returning fKeyGen=FALSE, fCertificateCompression=FALSE"},
     .tooSmall = {"D CP_CARD_CAPABILITIES: buffer too small, required = 12"}},
    {.name = L"Cache Mode",
     .value = words({2}),
     .announcement = {"D Property = CP_CARD_CACHE_MODE"},
     .success = {"D CP_CARD_CACHE_MODE: returning CP_CACHE_MODE_SESSION_ONLY mode"},
     .tooSmall = {"D CP_CARD_CACHE_MODE: buffer too small, required = 4"}},
    {.name = L"Card Serial Number",
     .value = {'0', 0, '0', 0, '1', 0, '2', 0, 'A', 0, 'B', 0, 0, 0},
     .announcement = {"D Property = CP_CARD_SERIAL_NUMBER"},
     .tooSmall = {"D Buffer is not sufficent"}},
    {.name = L"PIN Information",
     .flags = 1,
     .value = pinInfo(0),
     .announcement = {"D === CardGetProperty: CP_CARD_PIN_INFO serial=[0012AB] dwFlags=1"},
     .tooSmall = {"E CP_CARD_PIN_INFO: buffer too small, required = 36, cbData = {cb}"}},
    {.name = L"Supports Windows x.509 Enrollment",
     .value = words({1}),
     .announcement = {"D Property = Supports Windows x.509 Enrollment"},
     .tooSmall = {"D Enrollment property: buffer too small, required = 4"}},
    {.name = L"PIN List",
     .value = words({2}),
     .announcement = {"D Property = CP_CARD_LIST_PINS"},
     .success = {"D CP_CARD_LIST_PINS: returning PIN_SET with ROLE_USER"},
     .tooSmall = {"E CP_CARD_LIST_PINS: ERROR_INSUFFICIENT_BUFFER, required=4, cbData={cb}"}},
    {.name = L"Authenticated State",
     .value = words({0}),
     .announcement = {"D Property = CP_CARD_AUTHENTICATED_STATE"},
     .success = {"D CP_CARD_AUTHENTICATED_STATE: returning 0"},
     .tooSmall = {"D Insufficient Buffer"}},
    {.name = L"Algorithms",
     .flags = 2,
     .value = {0x00, 0xA4, 0, 0, 0x00, 0x24, 0, 0},
     .announcement = {"D Property = CP_ENUM_ALGORITHMS"},
     .tooSmall = {"D Insufficient Buffer for asymmetric algs"}},
    {.name = L"PIN Strength Verify", .value = words({1}), .announcement = {"D Property = CP_CARD_PIN_STRENGTH_VERIFY"}},
    {.name = L"PIN Strength Change", .value = words({1}), .announcement = {"D Property = CP_CARD_PIN_STRENGTH_CHANGE"}},
    {.name = L"PIN Strength Unblock",
     .value = words({1}),
     .announcement = {"D Property = CP_CARD_PIN_STRENGTH_UNBLOCK"}},
    {.name = L"Key Import Support",
     .value = words({0}),
     .announcement = {"D Property = CP_KEY_IMPORT_SUPPORT"},
     .tooSmall = {"D Insufficient Buffer"}},
    {.name = L"Padding Schemes",
     .value = words({2}),  // nobody has looked at the firmware yet
     .announcement = {"D Property = CP_PADDING_SCHEMES"},
     .tooSmall = {"D buffer is not sufficent"}},
    {.name = L"Chaining Modes",
     .value = words({3}),
     .announcement = {"D Property = CP_CHAINING_MODES"},
     .tooSmall = {"D buffer is not sufficent"}},
};
static_assert(std::size(kCases) == 18 && std::size(kCardProperties) == 18);

// One question, with everything that can be wrong about it.
struct Question {
  bool hasRecord = true;
  bool hasContext = true;
  const wchar_t* name = nullptr;
  bool hasBuffer = true;
  DWORD bufferSize = 0;
  bool hasLength = true;
  DWORD flags = 0;
};

class GetPropertyTest : public DriverTest {
 protected:
  // Asks with a poisoned buffer that is one byte off any alignment and has spare bytes behind it. `value` is what the
  // buffer must begin with afterwards, `length` what the size pointer must hold; without one it must be untouched.
  void expectAnswer(CARD_DATA& record, const Question& question, const Outcome& expected,
                    std::optional<DWORD> length = std::nullopt, const Bytes& value = {}) {
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !question.hasRecord ? nullptr : question.hasContext ? &record : &noContext;
    Bytes buffer(question.bufferSize + 9, kPoison);
    DWORD dataLength = kPoison32;
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetProperty(argument, question.name,
                                                 question.hasBuffer ? buffer.data() + 1 : nullptr, question.bufferSize,
                                                 question.hasLength ? &dataLength : nullptr, question.flags);
              }),
              expected);
    EXPECT_EQ(dataLength, length.value_or(kPoison32));
    Bytes wanted(buffer.size(), kPoison);
    ASSERT_LE(value.size() + 1, wanted.size());
    std::copy(value.begin(), value.end(), wanted.begin() + 1);
    EXPECT_EQ(buffer, wanted);
  }

  Question questionFor(const PropertyCase& row) {
    return {.name = row.name, .bufferSize = static_cast<DWORD>(row.value.size()), .flags = row.flags};
  }

  void expectSuccess(CARD_DATA& record, const PropertyCase& row) {
    expectAnswer(record, questionFor(row), {0, concat(concat({kEntry}, row.announcement), row.success)},
                 static_cast<DWORD>(row.value.size()), row.value);
  }
};

TEST_F(GetPropertyTest, AnswersWithEnoughRoom) {
  CARD_DATA& record = open();
  for (std::size_t i = 0; i < std::size(kCases); ++i)
    EXPECT_EQ(narrow(kCases[i].name), narrow(kCardProperties[i].name));
  for (const PropertyCase& row : kCases) {
    SCOPED_TRACE(narrow(row.name));
    const auto size = static_cast<DWORD>(row.value.size());
    const Outcome success{0, concat(concat({kEntry}, row.announcement), row.success)};
    for (const DWORD spare : {0u, 1u, 100u}) {
      SCOPED_TRACE(spare);
      Question question = questionFor(row);
      question.bufferSize += spare;
      expectAnswer(record, question, success, size, row.value);
    }
  }
}

TEST_F(GetPropertyTest, TellsTheSizeWhenThereIsTooLittleRoom) {
  CARD_DATA& record = open();
  for (const PropertyCase& row : kCases) {
    SCOPED_TRACE(narrow(row.name));
    const auto size = static_cast<DWORD>(row.value.size());
    const auto refused = [&](DWORD bufferSize) {
      return Outcome{122, concat(concat({kEntry}, row.announcement), withSize(row.tooSmall, bufferSize))};
    };
    Question question = questionFor(row);
    for (const DWORD bufferSize : {size - 1, DWORD{0}}) {
      SCOPED_TRACE(bufferSize);
      question.bufferSize = bufferSize;
      expectAnswer(record, question, refused(bufferSize), size);
    }
    question.hasBuffer = false;
    for (const DWORD bufferSize : {DWORD{0}, size, size + 1}) {
      SCOPED_TRACE(bufferSize);
      question.bufferSize = bufferSize;
      expectAnswer(record, question, refused(bufferSize), size);
    }
  }
}

TEST_F(GetPropertyTest, RefusesArgumentsBeforeTheName) {
  CARD_DATA& record = open();
  const Outcome invalid{87, {kEntry, "E CardGetProperty: invalid parameter(s)"}};
  const Outcome noContext{87, {kEntry, "E CardGetProperty: provider context is NULL"}};
  for (const PropertyCase& row : kCases) {
    SCOPED_TRACE(narrow(row.name));
    Question question = questionFor(row);
    question.hasLength = false;
    expectAnswer(record, question, invalid);
    question.hasContext = false;
    expectAnswer(record, question, invalid);
    question.hasLength = true;
    expectAnswer(record, question, noContext);
    question.hasRecord = false;
    expectAnswer(record, question, invalid);
  }
  expectAnswer(record, {.name = nullptr}, invalid);
  expectAnswer(record, {.hasContext = false, .name = L"no such name"}, noContext);
}

TEST_F(GetPropertyTest, ComparesNamesExactly) {
  CARD_DATA& record = open();
  std::vector<std::wstring> names = {
      L"", L"Parent Window", L"PIN Context String", L"Container Info", L"PIN Identifier", L"\u0143ard Identifier"};
  for (const PropertyCase& row : kCases) {
    const std::wstring name = row.name;
    std::wstring lower = name;
    std::wstring upper = name;
    for (wchar_t& unit : lower) unit = unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit + 32) : unit;
    for (wchar_t& unit : upper) unit = unit >= L'a' && unit <= L'z' ? static_cast<wchar_t>(unit - 32) : unit;
    names.insert(names.end(), {lower, upper, name + L" ", L" " + name, name.substr(0, name.size() - 1)});
  }
  for (const std::wstring& name : names) {
    // Each unit by its low byte.
    std::string shown;
    for (const wchar_t unit : name) shown.push_back(static_cast<char>(unit & 0xFF));
    SCOPED_TRACE(shown);
    expectAnswer(
        record, {.name = name.c_str(), .bufferSize = 100, .flags = 2},
        {code(SCARD_E_UNSUPPORTED_FEATURE), {kEntry, "D CardGetProperty: unsupported property requested = " + shown}});
  }
}

TEST_F(GetPropertyTest, PinInformationByRole) {
  CARD_DATA& record = open();
  const auto announced = [](const std::string& flags) {
    return Lines{kEntry, "D === CardGetProperty: CP_CARD_PIN_INFO serial=[0012AB] dwFlags=" + flags};
  };
  expectAnswer(record, {.name = L"PIN Information", .bufferSize = 36, .flags = 1}, {0, announced("1")}, 36, pinInfo(0));
  expectAnswer(record, {.name = L"PIN Information", .bufferSize = 36, .flags = 2}, {0, announced("2")}, 36, pinInfo(4));
  const struct {
    DWORD flags;
    const char* shown;
  } others[] = {{0, "0"}, {3, "3"}, {4, "4"}, {0x80000001, "2147483649"}, {0xFFFFFFFF, "4294967295"}};
  for (const auto& row : others) {
    SCOPED_TRACE(row.shown);
    expectAnswer(record, {.name = L"PIN Information", .bufferSize = 36, .flags = row.flags},
                 {code(SCARD_E_INVALID_PARAMETER),
                  concat(announced(row.shown), {std::string("E CP_CARD_PIN_INFO: invalid PIN_ID=") + row.shown})});
    // The size is tested first.
    expectAnswer(
        record, {.name = L"PIN Information", .bufferSize = 4, .flags = row.flags},
        {122, concat(announced(row.shown), {"E CP_CARD_PIN_INFO: buffer too small, required = 36, cbData = 4"})}, 36);
  }
}

TEST_F(GetPropertyTest, AlgorithmsOnlyForAsymmetricOperations) {
  CARD_DATA& record = open();
  const struct {
    DWORD flags;
    const char* shown;
  } others[] = {{0, "0"}, {1, "1"}, {3, "3"}, {0xFFFFFFFF, "4294967295"}};
  for (const auto& row : others) {
    SCOPED_TRACE(row.shown);
    const Outcome unknown{
        code(SCARD_E_INVALID_PARAMETER),
        {kEntry, "D Property = CP_ENUM_ALGORITHMS", std::string("D unknown algoritm :: ") + row.shown}};
    // The flags are tested first.
    expectAnswer(record, {.name = L"Algorithms", .bufferSize = 8, .flags = row.flags}, unknown);
    expectAnswer(record, {.name = L"Algorithms", .bufferSize = 7, .flags = row.flags}, unknown);
    expectAnswer(record, {.name = L"Algorithms", .hasBuffer = false, .flags = row.flags}, unknown);
  }
}

TEST_F(GetPropertyTest, FlagsOfTheOthersDoNotMatter) {
  CARD_DATA& record = open();
  for (const PropertyCase& row : kCases) {
    if (row.flags != 0) continue;
    SCOPED_TRACE(narrow(row.name));
    PropertyCase withFlags = row;
    withFlags.flags = 0xFFFFFFFF;
    expectSuccess(record, withFlags);
  }
}

TEST_F(GetPropertyTest, AuthenticatedStateCountsTheUserAsBitZero) {
  const struct {
    PIN_ID pinId;
    std::uint32_t state;
  } cases[] = {{0, 0}, {ROLE_USER, 1}, {ROLE_ADMIN, 2}, {3, 3}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.pinId);
    CARD_DATA& record = openFresh();
    authenticate(record, row.pinId);
    expectSuccess(record, {.name = L"Authenticated State",
                           .value = words({row.state}),
                           .announcement = {"D Property = CP_CARD_AUTHENTICATED_STATE"},
                           .success = {"D CP_CARD_AUTHENTICATED_STATE: returning " + std::to_string(row.state)}});
  }
}

TEST_F(GetPropertyTest, CardIdentifierRepeatsTheSerial) {
  CARD_DATA& record = open();
  const struct {
    std::string serial;
    std::string value;
  } cases[] = {{"0123456789", "0123456789012345"},
               {"ABCDEFGHIJKLMNOPQRST", "ABCDEFGHIJKLMNOP"},
               {"ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOP"},
               {"7", "7777777777777777"},
               {"", ""}};  // leaves the buffer as it is
  for (const auto& row : cases) {
    SCOPED_TRACE("serial " + row.serial);
    setSerial(record, row.serial);
    expectAnswer(record, {.name = L"Card Identifier", .bufferSize = 16},
                 {0,
                  {kEntry, "D Property = CP_CARD_GUID",
                   "D CP_CARD_GUID: returning per-device GUID for serial=[" + row.serial +
                       "] len=" + std::to_string(row.serial.size())}},
                 16, Bytes(row.value.begin(), row.value.end()));
  }
}

TEST_F(GetPropertyTest, SerialNumberWithItsNul) {
  CARD_DATA& record = open();
  const Lines begin = {kEntry, "D Property = CP_CARD_SERIAL_NUMBER"};
  const Lines tooSmall = concat(begin, {"D Buffer is not sufficent"});
  const struct {
    const char* name;
    std::string serial;
    DWORD size;
    Bytes value;
  } cases[] = {
      {"four characters", "A1B2", 10, wideBytes(std::wstring_view(L"A1B2\0", 5))},
      {"none", "", 2, {0, 0}},
      {"bytes from 0x80 on", "\xFF\x80", 6, {0xFF, 0, 0x80, 0, 0, 0}},
      // A NUL that the caller counted stays in the serial and counts for the size, but the copy ends there.
      {"a NUL at the end", std::string("1234\0", 5), 12, wideBytes(std::wstring_view(L"1234\0", 5))},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    setSerial(record, row.serial);
    expectAnswer(record, {.name = L"Card Serial Number", .hasBuffer = false}, {122, tooSmall}, row.size);
    expectAnswer(record, {.name = L"Card Serial Number", .bufferSize = row.size - 1}, {122, tooSmall}, row.size);
    expectAnswer(record, {.name = L"Card Serial Number", .bufferSize = row.size}, {0, begin}, row.size, row.value);
    expectAnswer(record, {.name = L"Card Serial Number", .bufferSize = row.size + 1}, {0, begin}, row.size, row.value);
  }
}

TEST_F(GetPropertyTest, PaddingSchemesFollowTheFirmware) {
  CARD_DATA& record = open();
  const struct {
    const char* firmware;
    std::uint32_t schemes;
  } cases[] = {{"2.0.0", 10},  {"2.0", 10}, {"2", 10},        {"2.0.0.0", 10},  {"2.0.1", 10}, {"10.1", 10},
               {"2.1", 10},    {"3", 10},   {"1.9", 2},       {"1.9.9", 2},     {"1.10", 2},   {"1.99.99.99", 2},
               {"0.2.0.0", 2}, {"", 2},     {"02.00.00", 10}, {"2.0.0-rc1", 10}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.firmware);
    learnFirmware(record, row.firmware);
    expectSuccess(record, {.name = L"Padding Schemes",
                           .value = words({row.schemes}),
                           .announcement = {"D Property = CP_PADDING_SCHEMES"}});
  }
  setSerial(record, "nobody");
  expectSuccess(record,
                {.name = L"Padding Schemes", .value = words({2}), .announcement = {"D Property = CP_PADDING_SCHEMES"}});
}

TEST_F(GetPropertyTest, WhatTheCallerStoredIsNotConsulted) {
  CARD_DATA& record = open();
  Bytes data(36, 0x77);
  for (const wchar_t* const name :
       {L"Cache Mode", L"PIN Information", L"Supports Windows x.509 Enrollment", L"PIN Strength Verify"}) {
    ASSERT_EQ(record.pfnCardSetProperty(&record, name, data.data(), 36, 0), 0u);
  }
  for (const PropertyCase& row : kCases) {
    SCOPED_TRACE(narrow(row.name));
    expectSuccess(record, row);
  }
}

}  // namespace
}  // namespace orvane::test
