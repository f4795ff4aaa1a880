// CardAuthenticateEx: PIN verification by role, with the PIN that the process already knows.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

// What happened before the call.
enum class Before {
  kNothing,
  kCached,          // the PIN was validated, no role is authenticated here
  kCachedAndRoles,  // the PIN was validated for both roles
  kRoles            // as before, and then a wrong PIN through CardAuthenticatePin
};

struct ExCase {
  const char* name = "";
  bool hasRecord = true;
  bool hasContext = true;
  PIN_ID pinId = ROLE_USER;
  DWORD flags = 0;
  std::optional<std::string> pin = kUserPin;
  std::optional<DWORD> length = std::nullopt;  // none: the PIN's
  SCARDHANDLE cardHandle = kCardHandle;
  bool hasSessionPin = true;
  bool hasSessionPinLength = true;
  bool hasCounter = true;
  Before before = Before::kNothing;
  std::optional<Answer> answer = std::nullopt;
  DWORD status = 0;
  Lines trace = {};                              // after the entry line
  std::optional<DWORD> attempts = std::nullopt;  // none: all three outputs untouched
  PIN_SET authenticated = 0;
  std::string cachedPin = "";
};

constexpr DWORD kSilent = CARD_PIN_SILENT_CONTEXT;
constexpr char kExEntry[] = "D CardAuthenticateEx :: LOG_FUNCTION_NAME = Entry";
constexpr char kAsked[] = "D empty password for [0012AB]";
constexpr char kReturning[] = "D CardAuthenticateEx: returning SCARD_S_SUCCESS [0012AB]";
constexpr char kWrong[] = "E CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV";
constexpr char kBlocked[] = "E CardAuthenticateEx: PIN blocked, returning SCARD_W_CHV_BLOCKED";
constexpr char kProbe[] = "D CardAuthenticateEx: NULL pbPinData probe -> SCARD_W_CARD_NOT_AUTHENTICATED [0012AB]";
constexpr char kNotSilent[] = "D CardAuthenticateEx: no cached PIN, silent auth not possible [0012AB]";
constexpr char kSilentSuccess[] = "D CardAuthenticateEx: silent auth with cached PIN [0012AB]";

std::string validateEx(const std::string& pin) {
  return "orvane_validatePassword(\"0012AB\", \"" + pin + "\", 1, 8, null)";
}

class AuthenticateExTest : public DriverTest {
 protected:
  void prepare(CARD_DATA& record, Before before) {
    if (before == Before::kNothing) return;
    authenticate(record, before == Before::kCached ? 0 : 3);
    if (before == Before::kRoles) dropCachedPin(record);
  }

  void run(const ExCase& row) {
    CARD_DATA& record = openFresh();
    prepare(record, row.before);
    record.hScard = row.cardHandle;
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    answer("orvane_validatePassword", row.answer);
    PinBytes pin(row.pin);
    BYTE untouched = 0;
    PBYTE sessionPin = &untouched;
    DWORD sessionPinLength = kPoison32;
    DWORD attempts = kPoison32;

    const Outcome outcome = observe([&] {
      return record.pfnCardAuthenticateEx(argument, row.pinId, row.flags, pin.data(), row.length.value_or(pin.size()),
                                          row.hasSessionPin ? &sessionPin : nullptr,
                                          row.hasSessionPinLength ? &sessionPinLength : nullptr,
                                          row.hasCounter ? &attempts : nullptr);
    });
    EXPECT_EQ(outcome, (Outcome{row.status, concat({kExEntry}, row.trace)}));
    const bool isFilled = row.attempts.has_value();
    EXPECT_EQ(attempts, isFilled && row.hasCounter ? *row.attempts : kPoison32);
    EXPECT_EQ(sessionPin, isFilled && row.hasSessionPin ? nullptr : &untouched);
    EXPECT_EQ(sessionPinLength, isFilled && row.hasSessionPinLength ? 0 : kPoison32);
    EXPECT_EQ(authenticatedState(record), row.authenticated);
    // CardSignData logs the flag itself.
    EXPECT_EQ(inside(record).userAuthenticated, row.authenticated & 1u);
    EXPECT_EQ(inside(record).adminAuthenticated, (row.authenticated >> 1) & 1u);
    EXPECT_EQ(cachedPin(record), row.cachedPin);
  }

  template <std::size_t kCount>
  void runAll(const ExCase (&cases)[kCount]) {
    for (const ExCase& row : cases) {
      SCOPED_TRACE(row.name);
      run(row);
    }
  }
};

TEST_F(AuthenticateExTest, RefusesArgumentsInOrder) {
  const ExCase cases[] = {
      {.name = "no record, before wrong flags",
       .hasRecord = false,
       .flags = 1,
       .status = 87,
       .trace = {"E CardAuthenticateEx: pCardData is NULL"}},
      {.name = "flag 1", .flags = 1, .status = 87, .trace = {"E CardAuthenticateEx: unsupported dwFlags=1"}},
      {.name = "a session PIN is refused",
       .flags = CARD_AUTHENTICATE_SESSION_PIN,
       .status = 87,
       .trace = {"E CardAuthenticateEx: unsupported dwFlags=536870912"}},
      {.name = "a wrong flag beside good ones",
       .flags = 0xFFFFFFFF,
       .status = 87,
       .trace = {"E CardAuthenticateEx: unsupported dwFlags=4294967295"}},
      {.name = "the highest wrong flag",
       .flags = 0x80000000,
       .status = 87,
       .trace = {"E CardAuthenticateEx: unsupported dwFlags=2147483648"}},
      {.name = "wrong flags before no context",
       .hasContext = false,
       .flags = 2,
       .status = 87,
       .trace = {"E CardAuthenticateEx: unsupported dwFlags=2"}},
      {.name = "no context, before the probe",
       .hasContext = false,
       .pin = std::nullopt,
       .status = 87,
       .trace = {"E CardAuthenticateEx: provider context is NULL"}},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, AnswersTheProbeWhateverIsCached) {
  const ExCase cases[] = {
      {.name = "nothing cached",
       .pin = std::nullopt,
       .status = code(SCARD_W_CARD_NOT_AUTHENTICATED),
       .trace = {kProbe}},
      {.name = "cached",
       .pin = std::nullopt,
       .before = Before::kCachedAndRoles,
       .status = code(SCARD_W_CARD_NOT_AUTHENTICATED),
       .trace = {kProbe},
       .authenticated = 3,
       .cachedPin = kUserPin},
      {.name = "with the session flag",
       .flags = CARD_AUTHENTICATE_GENERATE_SESSION_PIN,
       .pin = std::nullopt,
       .status = code(SCARD_W_CARD_NOT_AUTHENTICATED),
       .trace = {kProbe}},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, IsSilentOnlyWithACachedPin) {
  const ExCase cases[] = {
      {.name = "nothing cached",
       .flags = kSilent,
       .status = code(SCARD_W_CARD_NOT_AUTHENTICATED),
       .trace = {kNotSilent}},
      {.name = "nothing cached, no PIN given: no probe",
       .flags = kSilent,
       .pin = std::nullopt,
       .status = code(SCARD_W_CARD_NOT_AUTHENTICATED),
       .trace = {kNotSilent}},
      {.name = "the roles of an earlier PIN do not count",
       .flags = kSilent,
       .before = Before::kRoles,
       .status = code(SCARD_W_CARD_NOT_AUTHENTICATED),
       .trace = {kNotSilent},
       .authenticated = 3},
      {.name = "cached, no PIN given",
       .flags = kSilent,
       .pin = std::nullopt,
       .before = Before::kCached,
       .trace = {kSilentSuccess},
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "cached, a wrong PIN given",
       .flags = kSilent,
       .pin = kWrongPin,
       .before = Before::kCached,
       .trace = {kSilentSuccess},
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "cached, a PIN of wrong length, session flag, administrator",
       .pinId = ROLE_ADMIN,
       .flags = 0x10000040,
       .pin = "1",
       .before = Before::kCached,
       .trace = {kSilentSuccess},
       .attempts = 8,
       .authenticated = 2,
       .cachedPin = kUserPin},
      {.name = "both roles",
       .pinId = 3,
       .flags = kSilent,
       .before = Before::kCached,
       .trace = {kSilentSuccess},
       .attempts = 8,
       .authenticated = 3,
       .cachedPin = kUserPin},
      {.name = "neither role",
       .pinId = 4,
       .flags = kSilent,
       .before = Before::kCached,
       .trace = {kSilentSuccess},
       .attempts = 8,
       .cachedPin = kUserPin},
      {.name = "no outputs wanted",
       .flags = kSilent,
       .hasSessionPin = false,
       .hasSessionPinLength = false,
       .hasCounter = false,
       .before = Before::kCached,
       .trace = {kSilentSuccess},
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, ChecksThePinLengthBeforeTheToken) {
  const std::string four = "4444";
  const std::string sixtyThree(63, 'p');
  const ExCase cases[] = {
      {.name = "3 bytes",
       .pin = "333",
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {kAsked, "E CardAuthenticateEx: PIN length invalid, size=3"}},
      {.name = "0 bytes at a real address",
       .pin = "x",
       .length = 0,
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {kAsked, "E CardAuthenticateEx: PIN length invalid, size=0"}},
      {.name = "64 bytes",
       .pin = std::string(64, 'p'),
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {kAsked, "E CardAuthenticateEx: PIN length invalid, size=64"}},
      {.name = "no PIN but a length",
       .pin = std::nullopt,
       .length = 8,
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {kAsked, "E CardAuthenticateEx: PIN length invalid, size=8"}},
      {.name = "the roles stay",
       .pin = "333",
       .before = Before::kRoles,
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = {kAsked, "E CardAuthenticateEx: PIN length invalid, size=3"},
       .authenticated = 3},
      {.name = "4 bytes",
       .pin = four,
       .answer = Answer{},
       .trace = inOrder(kAsked, withHandle(validateEx(four)), kReturning),
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = four},
      {.name = "63 bytes",
       .pin = sixtyThree,
       .answer = Answer{},
       .trace = inOrder(kAsked, withHandle(validateEx(sixtyThree)), kReturning),
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = sixtyThree},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, VerifiesOnTheToken) {
  const Lines verified = inOrder(kAsked, withHandle(validateEx(kUserPin)), kReturning);
  const ExCase cases[] = {
      {.name = "user", .trace = verified, .attempts = 8, .authenticated = 1, .cachedPin = kUserPin},
      {.name = "administrator: still the user's PIN",
       .pinId = ROLE_ADMIN,
       .trace = verified,
       .attempts = 8,
       .authenticated = 2,
       .cachedPin = kUserPin},
      {.name = "both roles", .pinId = 3, .trace = verified, .attempts = 8, .authenticated = 3, .cachedPin = kUserPin},
      {.name = "the library sees the text up to a NUL",
       .pin = std::string("ab\0cd", 5),
       .answer = Answer{},
       .trace = inOrder(kAsked, withHandle(validateEx("ab")), kReturning),
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = "ab"},
      {.name = "no role", .pinId = 0, .trace = verified, .attempts = 8, .cachedPin = kUserPin},
      {.name = "bits beyond the roles",
       .pinId = 0xFFFFFFFD,
       .trace = verified,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no session PIN is made",
       .flags = CARD_AUTHENTICATE_GENERATE_SESSION_PIN,
       .trace = verified,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no card handle",
       .cardHandle = 0,
       .trace = inOrder(kAsked, withoutHandle(validateEx(kUserPin)), kReturning),
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "attempts of a success",
       .answer = Answer{0, 5},
       .trace = verified,
       .attempts = 5,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no session PIN wanted",
       .hasSessionPin = false,
       .trace = verified,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no outputs wanted",
       .hasSessionPin = false,
       .hasSessionPinLength = false,
       .hasCounter = false,
       .trace = verified,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, TellsWrongFromBlocked) {
  const Lines asked = inOrder(kAsked, withHandle(validateEx(kWrongPin)));
  const Lines refused = inOrder(asked, "E invalid password for [0012AB] : 160", kWrong);
  const DWORD wrong = code(SCARD_W_WRONG_CHV);
  const DWORD blocked = code(SCARD_W_CHV_BLOCKED);
  const ExCase cases[] = {
      {.name = "wrong", .pin = kWrongPin, .status = wrong, .trace = refused, .attempts = 2},
      {.name = "wrong, no outputs wanted",
       .pin = kWrongPin,
       .hasSessionPin = false,
       .hasSessionPinLength = false,
       .hasCounter = false,
       .status = wrong,
       .trace = refused,
       .attempts = 2},
      {.name = "attempts left alone by the library",
       .pin = kWrongPin,
       .answer = Answer{-5},
       .status = wrong,
       .trace = inOrder(asked, "E invalid password for [0012AB] : -5", kWrong),
       .attempts = 8},
      {.name = "negative attempts are not blocked",
       .pin = kWrongPin,
       .answer = Answer{1, -1},
       .status = wrong,
       .trace = inOrder(asked, "E invalid password for [0012AB] : 1", kWrong),
       .attempts = 0xFFFFFFFF},
      {.name = "wrong clears the user role only",
       .pin = kWrongPin,
       .before = Before::kRoles,
       .answer = Answer{160, 1},
       .status = wrong,
       .trace = refused,
       .attempts = 1,
       .authenticated = 2},
      {.name = "wrong clears the administrator role only",
       .pinId = ROLE_ADMIN,
       .pin = kWrongPin,
       .before = Before::kRoles,
       .answer = Answer{160, 1},
       .status = wrong,
       .trace = refused,
       .attempts = 1,
       .authenticated = 1},
      {.name = "blocked clears both roles",
       .pinId = 3,
       .pin = kWrongPin,
       .before = Before::kRoles,
       .answer = Answer{164, 0},
       .status = blocked,
       .trace = inOrder(asked, "E invalid password for [0012AB] : 164", kBlocked),
       .attempts = 0},
      {.name = "blocked, no role chosen",
       .pinId = 0,
       .pin = kWrongPin,
       .before = Before::kRoles,
       .answer = Answer{164, 0},
       .status = blocked,
       .trace = inOrder(asked, "E invalid password for [0012AB] : 164", kBlocked),
       .attempts = 0,
       .authenticated = 3},
      {.name = "wrong without a card handle",
       .pin = kWrongPin,
       .cardHandle = 0,
       .status = wrong,
       .trace = inOrder(kAsked, withoutHandle(validateEx(kWrongPin)), "E invalid password for [0012AB] : 160", kWrong),
       .attempts = 2},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, TrustsAnEarlierValidation) {
  const std::string validated = "D password already validated for [0012AB]";
  const std::string counter = "D CardAuthenticateEx: pcAttemptsRemaining set to 8";
  const std::string sessionPin = "D CardAuthenticateEx: ppbSessionPin set to NULL";
  const std::string sessionPinLength = "D CardAuthenticateEx: pcbSessionPin set to 0";
  const std::string user = "D CardAuthenticateEx: USER PIN authenticated";
  const std::string admin = "D CardAuthenticateEx: ADMIN PIN authenticated";
  const Lines trusted = {validated, counter, sessionPin, sessionPinLength, user};
  const ExCase cases[] = {
      {.name = "right PIN",
       .before = Before::kCached,
       .trace = trusted,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "a wrong PIN is not looked at",
       .pin = kWrongPin,
       .before = Before::kCached,
       .trace = trusted,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "a PIN of wrong length is not looked at",
       .pin = "1",
       .before = Before::kCached,
       .trace = trusted,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no PIN but a length",
       .pin = std::nullopt,
       .length = 8,
       .before = Before::kCached,
       .trace = trusted,
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "administrator",
       .pinId = ROLE_ADMIN,
       .before = Before::kCached,
       .trace = {validated, counter, sessionPin, sessionPinLength, admin},
       .attempts = 8,
       .authenticated = 2,
       .cachedPin = kUserPin},
      {.name = "both roles",
       .pinId = 3,
       .flags = CARD_AUTHENTICATE_GENERATE_SESSION_PIN,
       .before = Before::kCached,
       .trace = {validated, counter, sessionPin, sessionPinLength, user, admin},
       .attempts = 8,
       .authenticated = 3,
       .cachedPin = kUserPin},
      {.name = "no role leaves the flags",
       .pinId = 8,
       .before = Before::kCachedAndRoles,
       .trace = {validated, counter, sessionPin, sessionPinLength},
       .attempts = 8,
       .authenticated = 3,
       .cachedPin = kUserPin},
      {.name = "no counter",
       .hasCounter = false,
       .before = Before::kCached,
       .trace = {validated, sessionPin, sessionPinLength, user},
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no session PIN",
       .hasSessionPin = false,
       .before = Before::kCached,
       .trace = {validated, counter, sessionPinLength, user},
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
      {.name = "no session PIN length",
       .hasSessionPinLength = false,
       .before = Before::kCached,
       .trace = {validated, counter, sessionPin, user},
       .attempts = 8,
       .authenticated = 1,
       .cachedPin = kUserPin},
  };
  runAll(cases);
}

TEST_F(AuthenticateExTest, BlocksAfterTheTokensTries) {
  CARD_DATA& record = open();
  const std::string refused = "E invalid password for [0012AB] : ";
  const struct {
    const char* name;
    const char* pin;
    DWORD status;
    Lines log;
    DWORD attempts;
  } steps[] = {
      {"first wrong", kWrongPin, code(SCARD_W_WRONG_CHV), {refused + "160", kWrong}, 2},
      {"second wrong", kWrongPin, code(SCARD_W_WRONG_CHV), {refused + "160", kWrong}, 1},
      {"third wrong", kWrongPin, code(SCARD_W_CHV_BLOCKED), {refused + "160", kBlocked}, 0},
      {"right, too late", kUserPin, code(SCARD_W_CHV_BLOCKED), {refused + "164", kBlocked}, 0},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    PinBytes pin{std::string(step.pin)};
    DWORD attempts = kPoison32;
    EXPECT_EQ(observe([&] {
                return record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), nullptr, nullptr,
                                                    &attempts);
              }),
              (Outcome{step.status, inOrder(kExEntry, kAsked, withHandle(validateEx(step.pin)), step.log)}));
    EXPECT_EQ(attempts, step.attempts);
    EXPECT_EQ(cachedPin(record), "");
  }
}

TEST_F(AuthenticateExTest, SharesThePinButNotTheRolesBetweenContexts) {
  CARD_DATA& first = open();
  CARD_DATA& second = openContext();
  authenticate(first, ROLE_USER);
  EXPECT_EQ(cachedPin(second), kUserPin);
  EXPECT_EQ(authenticatedState(first), 1u);
  EXPECT_EQ(authenticatedState(second), 0u);
}

}  // namespace
}  // namespace orvane::test
