// CardChangeAuthenticator and CardChangeAuthenticatorEx.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

// Who changes what: a user id, or two PIN ids.
struct Role {
  std::optional<const wchar_t*> userId = std::nullopt;
  PIN_ID authenticating = ROLE_USER;
  PIN_ID target = ROLE_USER;
  const char* function = "orvane_changeUserPassword";  // of the library
};

struct ChangeCase {
  const char* name = "";
  bool hasRecord = true;
  bool hasContext = true;
  Role role = {};
  DWORD flags = 2;
  std::optional<std::string> currentPin = kUserPin;
  std::optional<std::string> newPin = kNewPin;
  bool hasCounter = true;
  std::optional<Answer> answer = std::nullopt;  // of the library's function for the role
  DWORD status = 0;
  Lines trace = {};                              // after the entry line
  std::optional<DWORD> attempts = std::nullopt;  // none: untouched
  std::string cachedPin = kUserPin;              // it is before
};

constexpr DWORD kNoAttempts = 0xFFFFFFFF;
const Role kUserById{.userId = L"user"};
const Role kAdminById{.userId = L"admin", .function = "orvane_changeSOPassword"};
const Role kUserByPinId{};
const Role kAdminByPinId{.authenticating = ROLE_ADMIN, .target = ROLE_ADMIN, .function = "orvane_changeSOPassword"};

Role adminNamed(const wchar_t* userId) {
  Role role = kAdminById;
  role.userId = userId;
  return role;
}

std::string entryName(const Role& role) {
  return role.userId ? "CardChangeAuthenticator" : "CardChangeAuthenticatorEx";
}

std::string changeUser(const std::string& from, const std::string& to) {
  return "orvane_changeUserPassword(\"0012AB\", \"" + from + "\", \"" + to + "\", -1, false, false, null)";
}

std::string changeSo(const std::string& from, const std::string& to) {
  return "orvane_changeSOPassword(\"0012AB\", \"" + from + "\", \"" + to + "\", null)";
}

// The lines of a success on a token whose PIN state nobody asked for yet.
Lines changed(const Role& role) {
  return {"D " + entryName(role) + ": success [0012AB]", "D device reconnect false [0012AB]",
          "D >>> GLOBAL CACHE BUMPED: ver=0 pins=1 cont=0 file=0"};
}

Lines failed(const Role& role, const char* attempts) {
  return {"E " + entryName(role) + ": change failed, attempts=" + attempts};
}

class ChangePinTest : public DriverTest {
 protected:
  DWORD call(const CARD_DATA& table, PCARD_DATA record, const ChangeCase& row, DWORD* attempts) {
    PinBytes current(row.currentPin);
    PinBytes fresh(row.newPin);
    if (row.role.userId) {
      return table.pfnCardChangeAuthenticator(record, const_cast<LPWSTR>(*row.role.userId), current.data(),
                                              current.size(), fresh.data(), fresh.size(), kPoison32, row.flags,
                                              attempts);
    }
    return table.pfnCardChangeAuthenticatorEx(record, row.flags, row.role.authenticating, current.data(),
                                              current.size(), row.role.target, fresh.data(), fresh.size(), kPoison32,
                                              attempts);
  }

  void run(const ChangeCase& row) {
    SCOPED_TRACE(entryName(row.role) + ": " + row.name);
    CARD_DATA& record = openFresh();
    authenticate(record, 3);
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    answer(row.role.function, row.answer);
    DWORD attempts = kPoison32;
    const Outcome outcome = observe([&] { return call(record, argument, row, row.hasCounter ? &attempts : nullptr); });
    EXPECT_EQ(outcome,
              (Outcome{row.status, concat({"D " + entryName(row.role) + " :: LOG_FUNCTION_NAME = Entry"}, row.trace)}));
    EXPECT_EQ(attempts, row.attempts.value_or(kPoison32));
    EXPECT_EQ(cachedPin(record), row.cachedPin);
    EXPECT_EQ(authenticatedState(record), 3u);
    EXPECT_EQ(cardCf(record), (Bytes{0, static_cast<std::uint8_t>(row.status == 0 ? 1 : 0), 1, 0, 1, 0}));
  }

  template <std::size_t kCount>
  void runAll(const ChangeCase (&cases)[kCount]) {
    for (const ChangeCase& row : cases) run(row);
  }
};

TEST_F(ChangePinTest, ByUserIdRefusesArgumentsInOrder) {
  const Lines invalid = {"E CardChangeAuthenticator: invalid parameter(s)"};
  const std::string unsupported = "E CardChangeAuthenticator: unsupported dwFlags=";
  const std::string length = "E CardChangeAuthenticator: new PIN length invalid, size=";
  const DWORD feature = code(SCARD_E_UNSUPPORTED_FEATURE);
  const DWORD invalidLength = code(SCARD_E_INVALID_PARAMETER);
  const Role unknown{.userId = L"Everyone"};
  const ChangeCase cases[] = {
      {.name = "no record, before the flags",
       .hasRecord = false,
       .role = kUserById,
       .flags = 1,
       .status = 87,
       .trace = invalid},
      {.name = "no user id", .role = {.userId = nullptr}, .status = 87, .trace = invalid},
      {.name = "no current PIN", .role = kUserById, .currentPin = std::nullopt, .status = 87, .trace = invalid},
      {.name = "no new PIN", .role = kUserById, .newPin = std::nullopt, .status = 87, .trace = invalid},
      {.name = "challenge and response, before no context",
       .hasContext = false,
       .role = kUserById,
       .flags = 1,
       .status = feature,
       .trace = {unsupported + "1"}},
      {.name = "flags 0", .role = kUserById, .flags = 0, .status = feature, .trace = {unsupported + "0"}},
      {.name = "flags 3", .role = kUserById, .flags = 3, .status = feature, .trace = {unsupported + "3"}},
      {.name = "all flags",
       .role = kUserById,
       .flags = 0xFFFFFFFF,
       .status = feature,
       .trace = {unsupported + "4294967295"}},
      {.name = "no context is silent, before the length",
       .hasContext = false,
       .role = kUserById,
       .newPin = "1",
       .status = 87},
      {.name = "3 bytes, before the user id",
       .role = unknown,
       .newPin = "333",
       .status = invalidLength,
       .trace = {length + "3"},
       .attempts = kNoAttempts},
      {.name = "3 bytes without a counter",
       .role = kUserById,
       .newPin = "333",
       .hasCounter = false,
       .status = invalidLength,
       .trace = {length + "3"}},
      {.name = "64 bytes",
       .role = kUserById,
       .newPin = std::string(64, 'n'),
       .status = invalidLength,
       .trace = {length + "64"},
       .attempts = kNoAttempts},
      {.name = "64 bytes for the administrator",
       .role = kAdminById,
       .newPin = std::string(64, 'n'),
       .status = invalidLength,
       .trace = {length + "64"},
       .attempts = kNoAttempts},
      {.name = "unknown user id",
       .role = unknown,
       .status = 87,
       .trace = {"E CardChangeAuthenticator: unknown userId"}},
      {.name = "empty user id",
       .role = {.userId = L""},
       .status = 87,
       .trace = {"E CardChangeAuthenticator: unknown userId"}},
      {.name = "a blank more",
       .role = {.userId = L"user "},
       .status = 87,
       .trace = {"E CardChangeAuthenticator: unknown userId"}},
  };
  runAll(cases);
}

TEST_F(ChangePinTest, ByPinIdRefusesArgumentsInOrder) {
  const Lines invalid = {"E CardChangeAuthenticatorEx: invalid parameter(s)"};
  const std::string unsupported = "E CardChangeAuthenticatorEx: unsupported dwFlags=";
  const std::string length = "E CardChangeAuthenticatorEx: new PIN length invalid, size=";
  const DWORD feature = code(SCARD_E_UNSUPPORTED_FEATURE);
  const DWORD invalidLength = code(SCARD_E_INVALID_PARAMETER);
  const auto combination = [&](PIN_ID authenticating, PIN_ID target) {
    return ChangeCase{.name = "combination",
                      .role = {.authenticating = authenticating, .target = target},
                      .status = feature,
                      .trace = {"E CardChangeAuthenticatorEx: unsupported PIN ID combination auth=" +
                                std::to_string(authenticating) + " target=" + std::to_string(target)}};
  };
  const ChangeCase cases[] = {
      {.name = "no record, before the flags", .hasRecord = false, .flags = 1, .status = 87, .trace = invalid},
      {.name = "no current PIN", .currentPin = std::nullopt, .status = 87, .trace = invalid},
      {.name = "no new PIN", .newPin = std::nullopt, .status = 87, .trace = invalid},
      {.name = "unblocking, before no context",
       .hasContext = false,
       .flags = 1,
       .status = feature,
       .trace = {unsupported + "1"}},
      {.name = "flags 0", .flags = 0, .status = feature, .trace = {unsupported + "0"}},
      {.name = "flags 3", .flags = 3, .status = feature, .trace = {unsupported + "3"}},
      {.name = "no context is silent, before the length", .hasContext = false, .newPin = "1", .status = 87},
      {.name = "3 bytes, before the PIN ids",
       .role = {.authenticating = 2, .target = 1},
       .newPin = "333",
       .status = invalidLength,
       .trace = {length + "3"},
       .attempts = kNoAttempts},
      {.name = "64 bytes",
       .newPin = std::string(64, 'n'),
       .status = invalidLength,
       .trace = {length + "64"},
       .attempts = kNoAttempts},
      combination(2, 1),
      combination(1, 2),
      combination(0, 0),
      combination(3, 3),
      combination(1, 0),
      combination(0, 1),
      combination(1, 3),
      combination(2, 0),
      combination(2, 3),
      combination(3, 2),
      combination(4294967295u, 1),
  };
  runAll(cases);
}

TEST_F(ChangePinTest, ChangesTheUserPin) {
  for (const Role& role : {kUserById, Role{.userId = L"User"}, Role{.userId = L"USER"}, kUserByPinId}) {
    const DWORD wrong = code(SCARD_W_WRONG_CHV);
    const std::string sixtyThree(63, 'n');
    const ChangeCase cases[] = {
        {.name = "changed",
         .role = role,
         .trace = inOrder(changeUser(kUserPin, kNewPin), changed(role)),
         .attempts = kNoAttempts,
         .cachedPin = kNewPin},
        {.name = "changed, without a counter",
         .role = role,
         .hasCounter = false,
         .trace = inOrder(changeUser(kUserPin, kNewPin), changed(role)),
         .cachedPin = kNewPin},
        {.name = "attempts of a success",
         .role = role,
         .answer = Answer{1, 3},
         .trace = inOrder(changeUser(kUserPin, kNewPin), changed(role)),
         .attempts = 3,
         .cachedPin = kNewPin},
        {.name = "4 bytes; a current PIN of 1 byte",
         .role = role,
         .currentPin = "1",
         .newPin = "4444",
         .answer = Answer{1},
         .trace = inOrder(changeUser("1", "4444"), changed(role)),
         .attempts = kNoAttempts,
         .cachedPin = "4444"},
        {.name = "a NUL ends both for the library",
         .role = role,
         .currentPin = std::string(kUserPin) + std::string("\0x", 2),
         .newPin = std::string("4444\0x", 6),
         .trace = inOrder(changeUser(kUserPin, "4444"), changed(role)),
         .attempts = kNoAttempts,
         .cachedPin = "4444"},
        {.name = "63 bytes; a current PIN of none",
         .role = role,
         .currentPin = "",
         .newPin = sixtyThree,
         .answer = Answer{1},
         .trace = inOrder(changeUser("", sixtyThree), changed(role)),
         .attempts = kNoAttempts,
         .cachedPin = sixtyThree},
        {.name = "wrong",
         .role = role,
         .currentPin = kWrongPin,
         .status = wrong,
         .trace = inOrder(changeUser(kWrongPin, kNewPin), failed(role, "2")),
         .attempts = 2,
         .cachedPin = ""},
        {.name = "wrong, without a counter",
         .role = role,
         .currentPin = kWrongPin,
         .hasCounter = false,
         .status = wrong,
         .trace = inOrder(changeUser(kWrongPin, kNewPin), failed(role, "2")),
         .cachedPin = ""},
        {.name = "attempts left alone by the library",
         .role = role,
         .answer = Answer{0},
         .status = wrong,
         .trace = inOrder(changeUser(kUserPin, kNewPin), failed(role, "-1")),
         .attempts = kNoAttempts,
         .cachedPin = ""},
        {.name = "blocked",
         .role = role,
         .answer = Answer{0, 0},
         .status = code(SCARD_W_CHV_BLOCKED),
         .trace = inOrder(changeUser(kUserPin, kNewPin), failed(role, "0")),
         .attempts = 0,
         .cachedPin = ""},
    };
    runAll(cases);
  }
}

TEST_F(ChangePinTest, ChangesTheAdministratorPin) {
  // The one PIN that the library takes with its length: a NUL is a byte of it.
  const std::string withNul("Nq\0fresh", 8);
  for (const Role& role : {kAdminById, adminNamed(L"Admin"), adminNamed(L"ADMIN"), kAdminByPinId}) {
    const ChangeCase cases[] = {
        {.name = "a NUL in the new PIN",
         .role = role,
         .currentPin = kSoPin,
         .newPin = withNul,
         .trace = inOrder(changeSo(kSoPin, "Nq\\x00fresh"), changed(role)),
         .attempts = kNoAttempts},
        {.name = "a NUL in the current PIN",
         .role = role,
         .currentPin = std::string(kSoPin) + std::string("\0x", 2),
         .status = code(SCARD_W_WRONG_CHV),
         .trace = inOrder(changeSo(std::string(kSoPin) + "\\x00x", kNewPin), failed(role, "-1")),
         .attempts = kNoAttempts},
        {.name = "changed",
         .role = role,
         .currentPin = kSoPin,
         .trace = inOrder(changeSo(kSoPin, kNewPin), changed(role)),
         .attempts = kNoAttempts},
        {.name = "wrong",
         .role = role,
         .currentPin = kWrongPin,
         .status = code(SCARD_W_WRONG_CHV),
         .trace = inOrder(changeSo(kWrongPin, kNewPin), failed(role, "-1")),
         .attempts = kNoAttempts},
        {.name = "wrong, without a counter",
         .role = role,
         .currentPin = kWrongPin,
         .hasCounter = false,
         .status = code(SCARD_W_WRONG_CHV),
         .trace = inOrder(changeSo(kWrongPin, kNewPin), failed(role, "-1"))},
        {.name = "63 bytes",
         .role = role,
         .newPin = std::string(63, 'n'),
         .answer = Answer{1},
         .trace = inOrder(changeSo(kUserPin, std::string(63, 'n')), changed(role)),
         .attempts = kNoAttempts},
    };
    runAll(cases);
  }
}

// From the second change on, the token is asked whether it still holds the PIN as validated.
TEST_F(ChangePinTest, LaterChangesBumpTheFreshnessOnlyIfNeeded) {
  const std::string getInfo = "orvane_getTokenInfo(\"0012AB\", null)";
  const auto user = [&](const Role& role) {
    return ChangeCase{
        .role = role, .currentPin = kNewPin, .newPin = kUserPin, .trace = {changeUser(kNewPin, kUserPin)}};
  };
  const auto admin = [&](const Role& role) {
    return ChangeCase{.role = role, .currentPin = kSoPin, .newPin = kNewSoPin, .trace = {changeSo(kSoPin, kNewSoPin)}};
  };
  const struct {
    const char* name;
    ChangeCase second;
    int validatedOnToken;
    bool isCached;  // before the second change
    Lines log;
    std::uint8_t pins;
  } cases[] = {
      {"valid on both sides",
       user(kUserByPinId),
       1,
       true,
       {"D password validated (device) :: 1", "D password validated (local)  :: 1", "D valid",
        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=1 cont=0 file=0"},
       1},
      {"any number is valid",
       user(kUserByPinId),
       7,
       true,
       {"D password validated (device) :: 7", "D password validated (local)  :: 1", "D valid",
        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=1 cont=0 file=0"},
       1},
      {"not valid on the token",
       user(kUserByPinId),
       0,
       true,
       {"D password validated (device) :: 0", "D password validated (local)  :: 1",
        "D Not valid - bumping pin freshness", "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"},
       2},
      {"not valid in the process",
       admin(kAdminByPinId),
       1,
       false,
       {"D password validated (device) :: 1", "D password validated (local)  :: 0",
        "D Not valid - bumping pin freshness", "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"},
       2},
      {"administrator, valid on both sides",
       admin(kAdminByPinId),
       1,
       true,
       {"D password validated (device) :: 1", "D password validated (local)  :: 1", "D valid",
        "D >>> GLOBAL CACHE BUMPED: ver=0 pins=1 cont=0 file=0"},
       1},
      {"by user id",
       user(kUserById),
       0,
       true,
       {"D password validated (device) :: 0", "D password validated (local)  :: 1",
        "D Not valid - bumping pin freshness", "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"},
       2},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    CARD_DATA& record = openFresh();
    changeUserPin(record, kUserPin, kNewPin);
    if (!row.isCached) dropCachedPin(record);
    ASSERT_EQ(softtoken_set_password_validated(kSerial, row.validatedOnToken), 1);
    const std::string name = entryName(row.second.role);
    EXPECT_EQ(observe([&] { return call(record, &record, row.second, nullptr); }),
              (Outcome{0, inOrder("D " + name + " :: LOG_FUNCTION_NAME = Entry", row.second.trace,
                                  "D " + name + ": success [0012AB]", "D device reconnect true [0012AB]", getInfo,
                                  row.log)}));
    EXPECT_EQ(cardCf(record), (Bytes{0, row.pins, 1, 0, 1, 0}));
  }
}

TEST_F(ChangePinTest, TheNewPinCountsForEveryContext) {
  CARD_DATA& first = open();
  CARD_DATA& second = openContext();
  changeUserPin(first, kUserPin, kNewPin);
  EXPECT_EQ(cachedPin(second), kNewPin);
  EXPECT_EQ(authenticatedState(first), 0u);
  EXPECT_EQ(observe([&] {
              return second.pfnCardAuthenticateEx(&second, ROLE_USER, CARD_PIN_SILENT_CONTEXT, nullptr, 0, nullptr,
                                                  nullptr, nullptr);
            }),
            (Outcome{0,
                     {"D CardAuthenticateEx :: LOG_FUNCTION_NAME = Entry",
                      "D CardAuthenticateEx: silent auth with cached PIN [0012AB]"}}));
}

}  // namespace
}  // namespace orvane::test
