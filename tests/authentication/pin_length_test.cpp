// Lengths of PINs that no caller can mean: the PIN is neither read nor sent to the token, and counts as wrong.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr DWORD kNoLengths[] = {65537, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

class PinLength : public DriverTest {
 protected:
  // A context that knows the user PIN, and memory of one byte: whoever believed the length would read beyond it.
  CARD_DATA& openVerified() {
    CARD_DATA& record = openFresh();
    authenticate(record);
    return record;
  }

  std::unique_ptr<BYTE> single_ = std::make_unique<BYTE>(BYTE{'1'});
};

TEST_F(PinLength, IsAWrongPinForCardAuthenticatePin) {
  for (const DWORD length : kNoLengths) {
    SCOPED_TRACE(length);
    CARD_DATA& record = openVerified();
    wchar_t user[] = L"user";
    DWORD attempts = kPoison32;
    EXPECT_EQ(record.pfnCardAuthenticatePin(&record, user, single_.get(), length, &attempts), code(SCARD_W_WRONG_CHV));
    EXPECT_EQ(attempts, 0u);
    EXPECT_EQ(takeLog(), (Lines{"D CardAuthenticatePin :: LOG_FUNCTION_NAME = Entry",
                                "E CardAuthenticatePin: wrong PIN [0012AB]"}));
    EXPECT_EQ(takeCalls(), Lines{});
    EXPECT_EQ(cachedPin(record), "");
    EXPECT_EQ(authenticatedState(record), 1u) << "the context's flag is not this entry point's affair";
  }
}

// The longest that is read, and the longest sent: the library gets it up to its end.
TEST_F(PinLength, OfSixtyFourKibibytesIsSent) {
  CARD_DATA& record = open();
  Bytes pin(65536, 'p');
  wchar_t user[] = L"user";
  EXPECT_EQ(record.pfnCardAuthenticatePin(&record, user, pin.data(), static_cast<DWORD>(pin.size()), nullptr),
            code(SCARD_W_WRONG_CHV));
  EXPECT_EQ(takeCalls(), Lines{"orvane_validatePassword(\"0012AB\", \"" + std::string(65536, 'p') + "\", 1, 0, null)"});
  forget();
}

// For the user's PIN what is cached goes, as after every failed change; the administrator's leaves it.
TEST_F(PinLength, OfTheCurrentPinIsAFailedChange) {
  const struct {
    const char* name;
    bool isEx;
    bool isUser;
  } rows[] = {{"CardChangeAuthenticator", false, true},
              {"CardChangeAuthenticator", false, false},
              {"CardChangeAuthenticatorEx", true, true},
              {"CardChangeAuthenticatorEx", true, false}};
  for (const auto& row : rows) {
    for (const DWORD length : kNoLengths) {
      SCOPED_TRACE(::testing::Message() << row.name << (row.isUser ? " user " : " admin ") << length);
      CARD_DATA& record = openVerified();
      PinBytes fresh{kNewPin};
      DWORD attempts = kPoison32;
      const PIN_ID role = row.isUser ? ROLE_USER : ROLE_ADMIN;
      const DWORD status =
          row.isEx ? record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, role, single_.get(),
                                                         length, role, fresh.data(), fresh.size(), 0, &attempts)
                   : record.pfnCardChangeAuthenticator(&record, const_cast<LPWSTR>(row.isUser ? L"user" : L"admin"),
                                                       single_.get(), length, fresh.data(), fresh.size(), 0,
                                                       CARD_AUTHENTICATE_PIN_PIN, &attempts);
      EXPECT_EQ(status, code(SCARD_W_WRONG_CHV));
      EXPECT_EQ(attempts, 0xFFFFFFFFu);
      EXPECT_EQ(takeLog(), (Lines{std::string("D ") + row.name + " :: LOG_FUNCTION_NAME = Entry",
                                  std::string("E ") + row.name + ": change failed, attempts=-1"}));
      EXPECT_EQ(takeCalls(), Lines{});
      EXPECT_EQ(cachedPin(record), row.isUser ? "" : kUserPin);
    }
  }
}

}  // namespace
}  // namespace orvane::test
