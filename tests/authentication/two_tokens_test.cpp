// PINs belong to tokens: what is known of one says nothing about another.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class TwoTokens : public DriverTest {
 protected:
  // A context on kSerial that knows its PIN, and one on kOtherSerial.
  void openBoth() {
    first_ = &open();
    authenticate(*first_);
    defineToken({.serial = kOtherSerial, .keys = {makeKey(2, 3)}});
    second_ = &openContext();
    setSerial(*second_, kOtherSerial);
    ASSERT_EQ(cachedPin(*first_), kUserPin);
  }

  DWORD verify(CARD_DATA& record, DWORD flags, const std::optional<std::string>& pin) {
    PinBytes bytes{pin};
    return record.pfnCardAuthenticateEx(&record, ROLE_USER, flags, bytes.data(), bytes.size(), nullptr, nullptr,
                                        nullptr);
  }

  CARD_DATA* first_ = nullptr;
  CARD_DATA* second_ = nullptr;
};

TEST_F(TwoTokens, ACachedPinDoesNotAuthenticateAnotherTokenSilently) {
  openBoth();
  EXPECT_EQ(verify(*second_, CARD_PIN_SILENT_CONTEXT, std::nullopt), code(SCARD_W_CARD_NOT_AUTHENTICATED));
  EXPECT_EQ(takeLog(), (Lines{"D CardAuthenticateEx :: LOG_FUNCTION_NAME = Entry",
                              "D CardAuthenticateEx: no cached PIN, silent auth not possible [0034CD]"}));
  EXPECT_EQ(takeCalls(), Lines{});
  EXPECT_EQ(authenticatedState(*second_), 0u);
}

TEST_F(TwoTokens, ACachedPinDoesNotAnswerForAnotherToken) {
  openBoth();
  EXPECT_EQ(verify(*second_, 0, kWrongPin), code(SCARD_W_WRONG_CHV));
  EXPECT_EQ(takeCalls(),
            withHandle(std::string("orvane_validatePassword(\"0034CD\", \"") + kWrongPin + "\", 1, 8, null)"));
  // Nor does the wrong one say anything about the first token's.
  EXPECT_EQ(cachedPin(*first_), kUserPin);
  EXPECT_EQ(authenticatedState(*first_), 1u);
  EXPECT_EQ(cachedPin(*second_), "");
  forget();
}

TEST_F(TwoTokens, EachKeepsItsOwn) {
  openBoth();
  authenticate(*second_);
  changeUserPin(*second_, kUserPin, kNewPin);
  EXPECT_EQ(cachedPin(*first_), kUserPin);
  EXPECT_EQ(cachedPin(*second_), kNewPin);
  EXPECT_EQ(second_->pfnCardDeauthenticateEx(second_, PIN_SET_ALL_ROLES, 0), 0u);
  EXPECT_EQ(cachedPin(*first_), kUserPin);
  EXPECT_EQ(cachedPin(*second_), "");
  forget();
}

}  // namespace
}  // namespace orvane::test
