// CardAuthenticatePin: the older way to verify a PIN, without lock, card handle and roles.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

struct PinCase {
  const char* name = "";
  bool hasRecord = true;
  bool hasContext = true;
  const wchar_t* userId = L"user";
  std::optional<std::string> pin = kUserPin;
  bool isZeroLength = false;
  bool hasCounter = true;
  bool isCachedBefore = false;
  std::optional<Answer> answer = std::nullopt;
  DWORD status = 0;
  Lines trace = {};                              // after the entry line
  std::optional<DWORD> attempts = std::nullopt;  // none: untouched
  std::string cachedPin = "";
};

constexpr char kPinEntry[] = "D CardAuthenticatePin :: LOG_FUNCTION_NAME = Entry";

std::string validate(const std::string& pin) {
  return "orvane_validatePassword(\"0012AB\", \"" + pin + "\", 1, 0, null)";
}

class AuthenticatePinTest : public DriverTest {
 protected:
  void run(const PinCase& row) {
    CARD_DATA& record = openFresh();
    if (row.isCachedBefore) authenticate(record, 0);
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    answer("orvane_validatePassword", row.answer);
    PinBytes pin(row.pin);
    DWORD attempts = kPoison32;

    const Outcome outcome = observe([&] {
      return record.pfnCardAuthenticatePin(argument, const_cast<LPWSTR>(row.userId), pin.data(),
                                           row.isZeroLength ? 0 : pin.size(), row.hasCounter ? &attempts : nullptr);
    });
    EXPECT_EQ(outcome, (Outcome{row.status, concat({kPinEntry}, row.trace)}));
    EXPECT_EQ(attempts, row.attempts.value_or(kPoison32));
    EXPECT_EQ(cachedPin(record), row.cachedPin);
    EXPECT_EQ(authenticatedState(record), 0u);
  }
};

TEST_F(AuthenticatePinTest, RefusesArgumentsInOrder) {
  const Lines invalid = {"E CardAuthenticatePin: invalid parameter(s)"};
  const PinCase cases[] = {
      {.name = "no record", .hasRecord = false, .status = 87, .trace = invalid},
      {.name = "no user id", .userId = nullptr, .status = 87, .trace = invalid},
      {.name = "no PIN", .pin = std::nullopt, .status = 87, .trace = invalid},
      {.name = "no PIN comes before no context",
       .hasContext = false,
       .pin = std::nullopt,
       .status = 87,
       .trace = invalid},
      {.name = "no context before length 0",
       .hasContext = false,
       .isZeroLength = true,
       .status = 87,
       .trace = {"E CardAuthenticatePin: null provider context"}},
      {.name = "length 0", .isZeroLength = true, .status = 86, .trace = {"E CardAuthenticatePin: PIN length is zero"}},
      {.name = "length 0 leaves the cached PIN",
       .isZeroLength = true,
       .isCachedBefore = true,
       .status = 86,
       .trace = {"E CardAuthenticatePin: PIN length is zero"},
       .cachedPin = kUserPin},
  };
  for (const PinCase& row : cases) {
    SCOPED_TRACE(row.name);
    run(row);
  }
}

TEST_F(AuthenticatePinTest, AsksTheTokenWithoutLockAndHandle) {
  const char* const verified = "D CardAuthenticatePin: PIN verified successfully [0012AB]";
  const char* const wrong = "E CardAuthenticatePin: wrong PIN [0012AB]";
  const std::string longPin(200, 'x');
  const PinCase cases[] = {
      {.name = "right PIN", .trace = {validate(kUserPin), verified}, .attempts = 0, .cachedPin = kUserPin},
      {.name = "without a counter",
       .hasCounter = false,
       .trace = {validate(kUserPin), verified},
       .cachedPin = kUserPin},
      {.name = "user id admin is the user, too",
       .userId = L"admin",
       .trace = {validate(kUserPin), verified},
       .attempts = 0,
       .cachedPin = kUserPin},
      {.name = "empty user id",
       .userId = L"",
       .trace = {validate(kUserPin), verified},
       .attempts = 0,
       .cachedPin = kUserPin},
      {.name = "wrong PIN",
       .pin = kWrongPin,
       .status = code(SCARD_W_WRONG_CHV),
       .trace = {validate(kWrongPin), wrong},
       .attempts = 2},
      {.name = "wrong PIN forgets the cached one",
       .pin = kWrongPin,
       .isCachedBefore = true,
       .status = code(SCARD_W_WRONG_CHV),
       .trace = {validate(kWrongPin), wrong},
       .attempts = 2},
      {.name = "wrong PIN without a counter",
       .pin = kWrongPin,
       .hasCounter = false,
       .status = code(SCARD_W_WRONG_CHV),
       .trace = {validate(kWrongPin), wrong}},
      {.name = "a cached PIN does not spare the token",
       .isCachedBefore = true,
       .trace = {validate(kUserPin), verified},
       .attempts = 0,
       .cachedPin = kUserPin},
      {.name = "blocked is not told apart",
       .answer = Answer{kSofttokenPinBlocked, 0},
       .status = code(SCARD_W_WRONG_CHV),
       .trace = {validate(kUserPin), wrong},
       .attempts = 0},
      {.name = "negative result, negative attempts",
       .answer = Answer{-1, -1},
       .status = code(SCARD_W_WRONG_CHV),
       .trace = {validate(kUserPin), wrong},
       .attempts = 0xFFFFFFFF},
      {.name = "attempts of a success",
       .answer = Answer{0, 7},
       .trace = {validate(kUserPin), verified},
       .attempts = 7,
       .cachedPin = kUserPin},
      {.name = "one byte is no matter",
       .pin = "x",
       .answer = Answer{},
       .trace = {validate("x"), verified},
       .attempts = 0,
       .cachedPin = "x"},
      {.name = "200 bytes are no matter",
       .pin = longPin,
       .answer = Answer{},
       .trace = {validate(longPin), verified},
       .attempts = 0,
       .cachedPin = longPin},
      {.name = "the library sees the text up to a NUL",
       .pin = std::string("ab\0cd", 5),
       .answer = Answer{},
       .trace = {validate("ab"), verified},
       .attempts = 0,
       .cachedPin = "ab"},
  };
  for (const PinCase& row : cases) {
    SCOPED_TRACE(row.name);
    run(row);
  }
}

TEST_F(AuthenticatePinTest, SpeaksForAllContextsOfTheToken) {
  CARD_DATA& first = open();
  CARD_DATA& second = openContext();
  PinBytes pin{std::string(kUserPin)};
  wchar_t user[] = L"user";
  ASSERT_EQ(first.pfnCardAuthenticatePin(&first, user, pin.data(), pin.size(), nullptr), 0u);
  EXPECT_EQ(cachedPin(second), kUserPin);
  dropCachedPin(second);
  EXPECT_EQ(cachedPin(first), "");
}

}  // namespace
}  // namespace orvane::test
