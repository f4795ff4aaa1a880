// The mark that a token has a context: an acquisition that fails leaves it as it stands.
#include "cache/process_state.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class AttachedContext : public LinkedTest {
 protected:
  // Whether the token has the mark: only then its key count is kept. Leaves the count at 1.
  static bool isAttached(const std::string& serial) {
    return processState().deviceCache.updateKeyCount(serial, 1).has_value();
  }
};

TEST_F(AttachedContext, StaysWhenAnAcquisitionFails) {
  bind();
  processState().deviceCache.attachContext(kSerial);
  processState().deviceCache.attachContext("");
  CARD_DATA record = newRecord();
  EXPECT_EQ(CardAcquireContext(&record, 0), code(SCARD_E_NO_SMARTCARD));
  EXPECT_TRUE(isAttached(kSerial));
  EXPECT_TRUE(isAttached(""));
  defineToken({});
  queueThrow("orvane_getKeyPairList");
  EXPECT_EQ(CardAcquireContext(&record, 0), code(SCARD_F_INTERNAL_ERROR));
  EXPECT_TRUE(isAttached(kSerial));
}

TEST_F(AttachedContext, EndsWithTheDeletion) {
  bind();
  processState().deviceCache.attachContext(kSerial);
  EXPECT_EQ(CardDeleteContext(&bound_), 0u);
  EXPECT_FALSE(isAttached(kSerial));
}

}  // namespace
}  // namespace orvane::test
