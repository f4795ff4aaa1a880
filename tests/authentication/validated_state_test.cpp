// CardAuthenticateEx with what a token's record holds only if somebody stored an empty PIN: validated, but nothing
// cached. The PIN decides.
#include <utility>

#include "cache/process_state.h"
#include "harness/linked_test.h"
#include "support/secret.h"

namespace orvane::test {
namespace {

constexpr char kValidationEntry[] = "D CardAuthenticateEx :: LOG_FUNCTION_NAME = Entry";

class ValidatedState : public LinkedTest {
 protected:
  void SetUp() override {
    LinkedTest::SetUp();
    bind();
    processState().deviceCache.storeValidatedPassword(kSerial, SecretText());
    ASSERT_TRUE(processState().deviceCache.pinState(kSerial).isValidatedLocal);
    forget();
  }
};

TEST_F(ValidatedState, IsNotEnoughToBeSilent) {
  EXPECT_EQ(CardAuthenticateEx(&bound_, ROLE_USER, CARD_PIN_SILENT_CONTEXT, nullptr, 0, nullptr, nullptr, nullptr),
            static_cast<DWORD>(SCARD_W_CARD_NOT_AUTHENTICATED));
  EXPECT_EQ(takeLog(),
            (Lines{kValidationEntry, "D CardAuthenticateEx: no cached PIN, silent auth not possible [0012AB]"}));
}

TEST_F(ValidatedState, IsNotEnoughToBeTrusted) {
  BYTE pin[] = {'1', '2', '3'};
  EXPECT_EQ(CardAuthenticateEx(&bound_, ROLE_USER, 0, pin, sizeof(pin), nullptr, nullptr, nullptr),
            static_cast<DWORD>(SCARD_E_INVALID_PARAMETER));
  EXPECT_EQ(takeLog(), (Lines{kValidationEntry, "D empty password for [0012AB]",
                              "E CardAuthenticateEx: PIN length invalid, size=3"}));
}

}  // namespace
}  // namespace orvane::test
