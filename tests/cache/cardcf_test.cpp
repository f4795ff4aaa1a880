// The freshness counters as the base provider sees them, in "cardcf".
#include <string>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class CardCf : public DriverTest {
 protected:
  void deauthenticateAll(CARD_DATA& record) {
    ASSERT_EQ(record.pfnCardDeauthenticateEx(&record, PIN_SET_ALL_ROLES, 0), 0u);
  }
};

TEST_F(CardCf, WithoutARecordHasDefaults) {
  CARD_DATA& record = open();
  setSerial(record, "UNKNOWN");
  EXPECT_EQ(cardCf(record), (Bytes{0, 1, 0, 0, 0, 0}));
}

TEST_F(CardCf, EachTokenCountsForItself) {
  defineToken({.serial = "A1", .keys = {makeKey(1, 3)}});
  CARD_DATA& first = openContext();
  softtoken_set_connected("A1", 0);
  defineToken({.serial = "B2", .keys = {makeKey(2, 3)}});
  CARD_DATA& second = openContext();
  deauthenticateAll(second);
  deauthenticateAll(second);
  EXPECT_EQ(cardCf(first), (Bytes{0, 0, 1, 0, 1, 0}));
  EXPECT_EQ(cardCf(second), (Bytes{0, 2, 1, 0, 1, 0}));
}

// The PIN counter never comes back to its first value: 255 is followed by 1.
TEST_F(CardCf, PinCounterWrapsToOne) {
  CARD_DATA& record = open();
  setDebugLog(false);
  EXPECT_EQ(cardCf(record), (Bytes{0, 0, 1, 0, 1, 0}));
  for (int i = 0; i < 255; ++i) deauthenticateAll(record);
  EXPECT_EQ(cardCf(record), (Bytes{0, 255, 1, 0, 1, 0}));
  deauthenticateAll(record);
  EXPECT_EQ(cardCf(record), (Bytes{0, 1, 1, 0, 1, 0}));
}

// A changed PIN moves the counter unless the token and the process both know the PIN as valid.
TEST_F(CardCf, PinChangeMovesThePinCounter) {
  CARD_DATA& record = open();
  authenticate(record);
  changeUserPin(record, kUserPin, kNewPin);
  EXPECT_EQ(cardCf(record), (Bytes{0, 1, 1, 0, 1, 0})) << "the first bump always counts";
  changeUserPin(record, kNewPin, kUserPin);
  EXPECT_EQ(cardCf(record), (Bytes{0, 1, 1, 0, 1, 0})) << "valid on both sides";
  softtoken_set_password_validated(kSerial, 0);
  changeUserPin(record, kUserPin, kNewPin);
  EXPECT_EQ(cardCf(record), (Bytes{0, 2, 1, 0, 1, 0})) << "the token says otherwise";
  softtoken_set_password_validated(kSerial, 1);
  queueThrow("orvane_getTokenInfo");
  changeUserPin(record, kNewPin, kUserPin);
  EXPECT_EQ(cardCf(record), (Bytes{0, 3, 1, 0, 1, 0})) << "the token cannot be asked";
}

// Containers and files move in 16 bits when the number of keys changes.
TEST_F(CardCf, KeyCountMovesContainersAndFilesBeyondAByte) {
  defineToken({});
  setDebugLog(false);
  const OrvaneKeyPair key = makeKey(1, 3);
  for (int i = 0; i < 128; ++i) {
    softtoken_add_key(kSerial, &key);
    openContext();
    closeAll();
    softtoken_clear_keys(kSerial);
    openContext();
    closeAll();
  }
  softtoken_add_key(kSerial, &key);
  EXPECT_EQ(cardCf(openContext()), (Bytes{0, 0, 1, 1, 1, 1}));
}

}  // namespace
}  // namespace orvane::test
