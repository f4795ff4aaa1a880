// CardDeauthenticate and CardDeauthenticateEx.
#include <variant>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

// The roles that are authenticated before the call; the user's PIN is cached with any of them.
struct DeauthenticateCase {
  const char* name = "";
  bool hasRecord = true;
  bool hasContext = true;
  PIN_SET before = 3;
  std::variant<PIN_SET, const wchar_t*> pins = PIN_SET{1};  // CardDeauthenticateEx, or CardDeauthenticate
  DWORD flags = 0;
  DWORD status = 0;
  Lines log = {};  // after the first lines of the entry point that was called
  PIN_SET after = 3;
  bool isPinKept = true;
  bool isBumped = false;
  bool isSessionKept = true;
};

Lines startedEx(PIN_SET pins, DWORD flags = 0) {
  return {"D CardDeauthenticateEx :: LOG_FUNCTION_NAME = Entry", "D pinset :: " + std::to_string(pins),
          "D dwflags :: " + std::to_string(flags)};
}

constexpr char kAll[] = "D CardDeauthenticateEx: cleared all PINs [0012AB]";
constexpr char kUser[] = "D CardDeauthenticateEx: cleared USER PIN [0012AB]";
constexpr char kAdmin[] = "D CardDeauthenticateEx: cleared ADMIN PIN [0012AB]";

class DeauthenticateTest : public DriverTest {
 protected:
  void run(const DeauthenticateCase& row) {
    SCOPED_TRACE(row.name);
    CARD_DATA& record = openFresh();
    authenticate(record, row.before);
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    const Bytes cardCfBefore = cardCf(record);

    Lines first;
    const Outcome outcome = observe([&] {
      if (const PIN_SET* const pins = std::get_if<PIN_SET>(&row.pins)) {
        first = startedEx(*pins, row.flags);
        return record.pfnCardDeauthenticateEx(argument, *pins, row.flags);
      }
      first = {"D CardDeauthenticate :: LOG_FUNCTION_NAME = Entry"};
      return record.pfnCardDeauthenticate(argument, const_cast<LPWSTR>(std::get<const wchar_t*>(row.pins)), row.flags);
    });
    EXPECT_EQ(outcome, (Outcome{row.status, concat(first, row.log)}));
    EXPECT_EQ(authenticatedState(record), row.after);
    EXPECT_EQ(cachedPin(record), row.isPinKept ? kUserPin : "");
    EXPECT_EQ(inside(record).sessionAuthValid, row.isSessionKept ? 1u : 0u);
    Bytes cardCfAfter = cardCfBefore;
    if (row.isBumped) ++cardCfAfter[1];
    EXPECT_EQ(cardCf(record), cardCfAfter);
  }

  template <std::size_t kCount>
  void runAll(const DeauthenticateCase (&cases)[kCount]) {
    for (const DeauthenticateCase& row : cases) run(row);
  }
};

TEST_F(DeauthenticateTest, ExRefusesArgumentsInOrder) {
  const DeauthenticateCase cases[] = {
      {.name = "no record, before the flags",
       .hasRecord = false,
       .flags = 1,
       .status = 87,
       .log = {"E CardDeauthenticateEx: pCardData is NULL"}},
      {.name = "flags 1, before no context",
       .hasContext = false,
       .flags = 1,
       .status = 87,
       .log = {"E CardDeauthenticateEx: dwFlags must be zero, got dwFlags=1"}},
      {.name = "all flags, all PINs",
       .pins = PIN_SET{0xFF},
       .flags = 0xFFFFFFFF,
       .status = 87,
       .log = {"E CardDeauthenticateEx: dwFlags must be zero, got dwFlags=4294967295"}},
      {.name = "no context",
       .hasContext = false,
       .pins = PIN_SET{0xFF},
       .status = 87,
       .log = {"E CardDeauthenticateEx: provider context is NULL"}},
  };
  runAll(cases);
}

TEST_F(DeauthenticateTest, ExClearsTheRolesThatAreAuthenticated) {
  const DeauthenticateCase cases[] = {
      {.name = "all",
       .pins = PIN_SET{0xFF},
       .log = {kAll},
       .after = 0,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "all, nobody authenticated",
       .before = 0,
       .pins = PIN_SET{0xFF},
       .log = {kAll},
       .after = 0,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "user of both",
       .pins = PIN_SET{1},
       .log = {kUser},
       .after = 2,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "administrator of both: the user's PIN stays",
       .pins = PIN_SET{2},
       .log = {kAdmin},
       .after = 1,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "both, bumped once",
       .pins = PIN_SET{3},
       .log = {kUser, kAdmin},
       .after = 0,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "both, only the administrator authenticated",
       .before = 2,
       .pins = PIN_SET{3},
       .log = {kAdmin},
       .after = 0,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "more bits than all",
       .pins = PIN_SET{0x1FF},
       .log = {kUser, kAdmin},
       .after = 0,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "user, only the administrator authenticated", .before = 2, .pins = PIN_SET{1}, .after = 2},
      {.name = "administrator, only the user authenticated", .before = 1, .pins = PIN_SET{2}, .after = 1},
      {.name = "both, nobody authenticated", .before = 0, .pins = PIN_SET{3}, .after = 0},
      {.name = "none", .pins = PIN_SET{0}},
      {.name = "other bits", .pins = PIN_SET{0xFFFFFFFC}},
  };
  runAll(cases);
}

TEST_F(DeauthenticateTest, ByUserId) {
  const auto passedOn = [](const std::string& userId, PIN_SET pins, const Lines& log) {
    return concat(concat({"D CardGetProperty: unsupported property requested = " + userId}, startedEx(pins)), log);
  };
  const DeauthenticateCase cases[] = {
      {.name = "no record, before the flags",
       .hasRecord = false,
       .pins = L"USER",
       .flags = 1,
       .status = 87,
       .log = {"E CardDeauthenticate: invalid card data"}},
      {.name = "flags 1, before no user id",
       .pins = static_cast<const wchar_t*>(nullptr),
       .flags = 1,
       .status = 87,
       .log = {"E CardDeauthenticate: dwFlags must be zero, got dwFlags=1"}},
      {.name = "all flags",
       .pins = L"USER",
       .flags = 0xFFFFFFFF,
       .status = 87,
       .log = {"E CardDeauthenticate: dwFlags must be zero, got dwFlags=4294967295"}},
      {.name = "no user id, before no context",
       .hasContext = false,
       .pins = static_cast<const wchar_t*>(nullptr),
       .status = 87,
       .log = {"E CardDeauthenticate: userId is null"}},
      {.name = "unknown user id, before no context",
       .hasContext = false,
       .pins = L"Everyone",
       .status = 87,
       .log = {"E CardDeauthenticate: unknown userId=Everyone"}},
      {.name = "empty user id", .pins = L"", .status = 87, .log = {"E CardDeauthenticate: unknown userId="}},
      {.name = "a blank more", .pins = L"USER ", .status = 87, .log = {"E CardDeauthenticate: unknown userId=USER "}},
      {.name = "units by their low bytes",
       .pins = L"\u0155SER",
       .status = 87,
       .log = {"E CardDeauthenticate: unknown userId=USER"}},
      {.name = "no context",
       .hasContext = false,
       .pins = L"ALL",
       .status = 87,
       .log = passedOn("ALL", 0xFF, {"E CardDeauthenticateEx: provider context is NULL"})},
      {.name = "USER",
       .pins = L"USER",
       .log = passedOn("USER", 1, {kUser}),
       .after = 2,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "user",
       .pins = L"user",
       .log = passedOn("user", 1, {kUser}),
       .after = 2,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "Admin",
       .pins = L"Admin",
       .log = passedOn("Admin", 2, {kAdmin}),
       .after = 1,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "aLL",
       .pins = L"aLL",
       .log = passedOn("aLL", 0xFF, {kAll}),
       .after = 0,
       .isPinKept = false,
       .isBumped = true,
       .isSessionKept = false},
      {.name = "user, nobody authenticated", .before = 0, .pins = L"user", .log = passedOn("user", 1, {}), .after = 0},
  };
  runAll(cases);
}

TEST_F(DeauthenticateTest, FreshnessNeverReturnsToZero) {
  CARD_DATA& record = open();
  setLogLevel({});
  for (unsigned count = 1; count <= 255; ++count) {
    ASSERT_EQ(record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0), 0u);
  }
  EXPECT_EQ(cardCf(record), (Bytes{0, 255, 1, 0, 1, 0}));
  ASSERT_EQ(record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0), 0u);
  EXPECT_EQ(cardCf(record), (Bytes{0, 1, 1, 0, 1, 0}));
}

TEST_F(DeauthenticateTest, ASerialWithoutARecordGetsOne) {
  CARD_DATA& record = open();
  setSerial(record, "nobody");
  EXPECT_EQ(cardCf(record), (Bytes{0, 1, 0, 0, 0, 0}));
  for (const std::uint8_t pins : {std::uint8_t{1}, std::uint8_t{2}}) {
    EXPECT_EQ(observe([&] { return record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0); }),
              (Outcome{0, concat(startedEx(0xFF), {"D CardDeauthenticateEx: cleared all PINs [nobody]"})}));
    EXPECT_EQ(cardCf(record), (Bytes{0, pins, 0, 0, 0, 0}));
  }
}

TEST_F(DeauthenticateTest, ThePinIsGoneForEveryContext) {
  CARD_DATA& first = open();
  CARD_DATA& second = openContext();
  authenticate(first);
  authenticate(second);
  ASSERT_EQ(first.pfnCardDeauthenticateEx(&first, ROLE_USER, 0), 0u);
  EXPECT_EQ(cachedPin(second), "");
  EXPECT_EQ(authenticatedState(second), 1u);
  EXPECT_EQ(observe([&] {
              return second.pfnCardAuthenticateEx(&second, ROLE_USER, CARD_PIN_SILENT_CONTEXT, nullptr, 0, nullptr,
                                                  nullptr, nullptr);
            }),
            (Outcome{code(SCARD_W_CARD_NOT_AUTHENTICATED),
                     {"D CardAuthenticateEx :: LOG_FUNCTION_NAME = Entry",
                      "D CardAuthenticateEx: no cached PIN, silent auth not possible [0012AB]"}}));
}

}  // namespace
}  // namespace orvane::test
