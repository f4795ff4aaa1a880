// CardSetProperty: what is stored, refused and ignored.
#include <algorithm>
#include <set>

#include "harness/all_properties.h"
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

// The fields that can be set, as plain values.
struct Settings {
  std::string serialNumber = kSerial;
  Bytes pinInfo = Bytes(36, 0);
  std::uintptr_t parentWindow = 0;
  std::string pinContextString = "";
  std::uint32_t pinStrengthVerify = 0;
  std::uint32_t cacheMode = 0;
  std::uint32_t supportsX509Enrollment = 0;
  friend bool operator==(const Settings&, const Settings&) = default;
};

struct UpdateCase {
  const char* label = "";
  bool hasRecord = true;
  bool hasContext = true;
  const wchar_t* name = L"";
  std::optional<Bytes> data = std::nullopt;
  std::optional<DWORD> size = std::nullopt;  // none: that of the data
  DWORD flags = 0;
  DWORD status = 0;
  Lines log = {};  // after the two first lines
  Settings settings = {};
};

Bytes counting(std::size_t length) {
  Bytes bytes(length);
  for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  return bytes;
}

class SetPropertyTest : public DriverTest {
 protected:
  static Settings settingsOf(CARD_DATA& record) {
    const ProviderContext& context = inside(record);
    return {context.serialNumber,
            bytesOf(context.pinInfo),
            reinterpret_cast<std::uintptr_t>(context.parentWindow),
            context.pinContextString,
            context.pinStrengthVerify,
            context.cacheMode,
            context.supportsX509Enrollment};
  }

  void run(CARD_DATA& record, const UpdateCase& row) {
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    // One byte off any alignment.
    Bytes data = row.data.value_or(Bytes());
    data.insert(data.begin(), kPoison);
    const Bytes before = data;
    const auto size = row.size.value_or(static_cast<DWORD>(data.size() - 1));
    EXPECT_EQ(observe([&] {
                return record.pfnCardSetProperty(argument, row.name, row.data ? data.data() + 1 : nullptr, size,
                                                 row.flags);
              }),
              (Outcome{row.status, concat({"D CardSetProperty :: LOG_FUNCTION_NAME = Entry",
                                           "D dwflaogs :: " + std::to_string(row.flags)},
                                          row.log)}));
    EXPECT_EQ(data, before);
    const Settings settings = settingsOf(record);
    EXPECT_EQ(settings.serialNumber, row.settings.serialNumber);
    EXPECT_EQ(settings.pinContextString, row.settings.pinContextString);
    EXPECT_EQ(settings.pinInfo, row.settings.pinInfo);
    EXPECT_TRUE(settings == row.settings);
  }

  // Each row on a context of its own.
  template <std::size_t kCount>
  void runAll(const UpdateCase (&cases)[kCount]) {
    defineToken({.keys = {makeKey(1, 3)}});
    for (const UpdateCase& row : cases) {
      SCOPED_TRACE(row.label);
      run(openContext(), row);
      closeAll();
    }
  }
};

TEST_F(SetPropertyTest, RefusesArgumentsInOrder) {
  const Lines invalid = {"E CardSetProperty: pCardData or wszProperty is NULL"};
  const UpdateCase cases[] = {
      {.label = "no record", .hasRecord = false, .name = L"Cache Mode", .status = 87, .log = invalid},
      {.label = "no name, before no context", .hasContext = false, .name = nullptr, .status = 87, .log = invalid},
      {.label = "no context",
       .hasContext = false,
       .name = L"Cache Mode",
       .flags = 0xFFFFFFFF,
       .status = 87,
       .log = {"E CardSetProperty: provider context is NULL"}},
  };
  runAll(cases);
}

TEST_F(SetPropertyTest, StoresWhatIsLargeEnough) {
  const Bytes pinInfo = counting(36);
  const UpdateCase cases[] = {
      {.label = "cache mode",
       .name = L"Cache Mode",
       .data = words({3}),
       .flags = 7,
       .log = {"D CardSetProperty: CP_CARD_CACHE_MODE = 3"},
       .settings = {.cacheMode = 3}},
      {.label = "cache mode is not validated, more bytes do not matter",
       .name = L"Cache Mode",
       .data = words({0xFFFFFFFF, 1}),
       .log = {"D CardSetProperty: CP_CARD_CACHE_MODE = 4294967295"},
       .settings = {.cacheMode = 0xFFFFFFFF}},
      {.label = "PIN information",
       .name = L"PIN Information",
       .data = pinInfo,
       .log = {"D CardSetProperty: CP_CARD_PIN_INFO updated"},
       .settings = {.pinInfo = pinInfo}},
      {.label = "PIN information, more bytes do not matter",
       .name = L"PIN Information",
       .data = counting(40),
       .log = {"D CardSetProperty: CP_CARD_PIN_INFO updated"},
       .settings = {.pinInfo = pinInfo}},
      {.label = "parent window",
       .name = L"Parent Window",
       .data = counting(8),
       .log = {"D CardSetProperty: CP_PARENT_WINDOW updated"},
       .settings = {.parentWindow = 0x0807060504030201}},
      {.label = "PIN strength 5 counts as 1",
       .name = L"PIN Strength Verify",
       .data = words({5}),
       .log = {"D CardSetProperty: CP_CARD_PIN_STRENGTH_VERIFY = 5"},
       .settings = {.pinStrengthVerify = 1}},
      {.label = "PIN strength with its highest bit",
       .name = L"PIN Strength Verify",
       .data = words({0x80000000}),
       .log = {"D CardSetProperty: CP_CARD_PIN_STRENGTH_VERIFY = 2147483648"},
       .settings = {.pinStrengthVerify = 1}},
      {.label = "PIN strength 0",
       .name = L"PIN Strength Verify",
       .data = words({0}),
       .log = {"D CardSetProperty: CP_CARD_PIN_STRENGTH_VERIFY = 0"}},
  };
  runAll(cases);
}

TEST_F(SetPropertyTest, RefusesWhatIsTooSmall) {
  const struct {
    const wchar_t* name;
    DWORD size;
    std::string line;
  } properties[] = {
      {L"Cache Mode", 4, "E CardSetProperty: CP_CARD_CACHE_MODE buffer too small, cbDataLen="},
      {L"PIN Information", 36, "E CardSetProperty: CP_CARD_PIN_INFO buffer too small, cbDataLen="},
      {L"Parent Window", 8, "E CardSetProperty: CP_PARENT_WINDOW buffer too small, cbDataLen="},
      {L"PIN Strength Verify", 4, "E CardSetProperty: CP_CARD_PIN_STRENGTH_VERIFY buffer too small, cbDataLen="},
  };
  CARD_DATA& record = open();
  for (const auto& row : properties) {
    SCOPED_TRACE(row.line);
    for (const DWORD size : {DWORD{0}, DWORD{1}, row.size - 1}) {
      run(record, {.name = row.name,
                   .data = counting(64),
                   .size = size,
                   .status = 122,
                   .log = {row.line + std::to_string(size)}});
    }
    for (const DWORD size : {DWORD{0}, row.size, DWORD{0xFFFFFFFF}}) {
      run(record, {.name = row.name, .size = size, .status = 122, .log = {row.line + std::to_string(size)}});
    }
  }
}

TEST_F(SetPropertyTest, AcceptsWithoutStoring) {
  const UpdateCase cases[] = {
      {.label = "enrollment, value 1",
       .name = L"Supports Windows x.509 Enrollment",
       .data = words({1}),
       .log = {"D CardSetProperty: CP_SUPPORTS_WIN_X509_ENROLLMENT set"}},
      {.label = "enrollment, no data",
       .name = L"Supports Windows x.509 Enrollment",
       .size = 4,
       .log = {"D CardSetProperty: CP_SUPPORTS_WIN_X509_ENROLLMENT set"}},
      {.label = "card identifier",
       .name = L"Card Identifier",
       .data = counting(16),
       .log = {"D CardSetProperty: CP_CARD_GUID accepted for serial=[0012AB]"}},
      {.label = "card identifier, no data",
       .name = L"Card Identifier",
       .size = 16,
       .log = {"D CardSetProperty: CP_CARD_GUID accepted for serial=[0012AB]"}},
  };
  runAll(cases);
}

TEST_F(SetPropertyTest, NarrowsTexts) {
  const std::string nulEnded("1234\0", 5);
  const struct {
    const char* label;
    std::optional<Bytes> data;
    std::optional<DWORD> size;
    std::string text;
  } texts[] = {
      {"without its NUL", wideBytes(L"1234"), std::nullopt, "1234"},
      {"a counted NUL stays", wideBytes(std::wstring_view(L"1234\0", 5)), std::nullopt, nulEnded},
      {"less than there is", wideBytes(L"1234"), 4, "12"},
      {"an odd byte does not count", wideBytes(L"1234"), 7, "123"},
      {"length 1", wideBytes(L"1234"), 1, ""},
      {"length 0", wideBytes(L"1234"), 0, ""},
      {"no data", std::nullopt, 8, ""},
      {"no data, length 0", std::nullopt, 0, ""},
      {"units by their low bytes", Bytes{0x41, 0x12, 0xFF, 0xFF, 0x42, 0x80}, std::nullopt,
       "A\xFF"
       "B"},
      {"a long text", wideBytes(std::wstring(300, L'7')), std::nullopt, std::string(300, '7')},
  };
  defineToken({.keys = {makeKey(1, 3)}});
  for (const auto& row : texts) {
    SCOPED_TRACE(row.label);
    run(openContext(), {.name = L"Card Serial Number",
                        .data = row.data,
                        .size = row.size,
                        .log = {"D CardSetProperty: CP_CARD_SERIAL_NO = " + row.text},
                        .settings = {.serialNumber = row.text}});
    run(openContext(), {.name = L"PIN Context String",
                        .data = row.data,
                        .size = row.size,
                        .log = {"D CardSetProperty: CP_PIN_CONTEXT_STRING = " + row.text},
                        .settings = {.pinContextString = row.text}});
    closeAll();
  }
}

TEST_F(SetPropertyTest, RefusesOtherNames) {
  CARD_DATA& record = open();
  std::set<std::wstring> names = {L"", L"cache mode", L"CARD SERIAL NUMBER", L"Card Serial Number "};
  for (const LPCWSTR name : allPropertyNames()) names.insert(name);
  for (const LPCWSTR name : kSettableCardProperties) names.erase(name);
  for (const std::wstring& name : names) {
    std::string shown;
    for (const wchar_t unit : name) shown.push_back(static_cast<char>(unit));
    SCOPED_TRACE(shown);
    run(record, {.name = name.c_str(),
                 .data = counting(64),
                 .status = code(SCARD_E_UNSUPPORTED_FEATURE),
                 .log = {"D CardSetProperty: unsupported property = " + shown}});
  }
}

TEST_F(SetPropertyTest, ANewSerialCountsAtOnceAndForThisRecordOnly) {
  CARD_DATA& first = open({makeKey(1, 3)});
  CARD_DATA& second = openContext();
  defineToken({.serial = kOtherSerial, .keys = {makeKey(7, 3)}});
  setSerial(first, kOtherSerial);
  authenticate(first);
  // The containers stay those of the first token.
  ASSERT_EQ(inside(first).containerCount(), 1u);
  EXPECT_EQ(bytesOf(inside(first).container(0).keyPairs.at(0)), bytesOf(makeKey(1, 3)));
  EXPECT_EQ(cachedPin(second), "");
  EXPECT_EQ(cardCf(first), (Bytes{0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(cardCf(second), (Bytes{0, 0, 1, 0, 1, 0}));
}

}  // namespace
}  // namespace orvane::test
