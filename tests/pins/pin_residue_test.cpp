// Where PINs are: while one is cached there is one copy of it in the whole process, and after it was invalidated,
// replaced, refused or unloaded there is none, in whole or in part. Nor is there one in a log.
//
// The token library answers as it is told to and keeps no PIN itself; every copy that is found is the minidriver's.
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "harness/driver_test.h"
#include "harness/log_reader.h"
#include "pins/memory_scan.h"
#include "softtoken/softtoken_pins.h"
#ifndef _WIN32
#include "faults/failing_new.h"
#include "support/secret.h"
#include "tokenlib/maker_boundary.h"
#endif

namespace orvane::test {
namespace {

constexpr MaskedPin kPin("Zq7#vK2!mWx9@Lp4$Rt6%Hy8^Bn3&Gd5*Fj1(Sc0)Ek+Ua=~");
constexpr MaskedPin kOtherPin("tX3!Jw8@eN5#oC1$iV9%uM4^yB7&rP2*aD6(kZ0)lQ+gH=sY");
// A short one: longer security officer's PINs are handed to the library in memory that only the library can overwrite.
constexpr MaskedPin kOfficerPin("Wd5!Nf9@Kx2#Tb7");
constexpr MaskedPin kOtherOfficerPin("pC8$Gm3%Jr6^Vy1");

// The bytes of a PIN that count as one find.
constexpr std::size_t kPieceSize = 12;

class PinResidue : public DriverTest {
 protected:
  void SetUp() override {
    DriverTest::SetUp();
    defineToken({.keys = {makeKey(1, 3)}, .userPin = "", .soPin = ""});
    softtoken_hide_pins(1);
  }

  void open() {
    record_ = newRecord();
    ASSERT_EQ(acquire(record_), 0u);
    record_.hScard = kCardHandle;
  }

  // CardAuthenticateEx, which the library answers with `result`.
  DWORD authenticate(const MaskedPin& pin, long long result, int attempts = kSofttokenKeep) {
    queueResult("orvane_validatePassword", result, attempts);
    PlainPin plain(pin);
    return record_.pfnCardAuthenticateEx(&record_, ROLE_USER, 0, plain.data(), plain.size(), nullptr, nullptr, nullptr);
  }
  DWORD authenticatePin(const MaskedPin& pin, long long result) {
    queueResult("orvane_validatePassword", result);
    PlainPin plain(pin);
    wchar_t user[] = L"user";
    return record_.pfnCardAuthenticatePin(&record_, user, plain.data(), plain.size(), nullptr);
  }
  DWORD change(PIN_ID role, const MaskedPin& from, const MaskedPin& to, bool isChanged) {
    queueResult(role == ROLE_USER ? "orvane_changeUserPassword" : "orvane_changeSOPassword", isChanged ? 1 : 0);
    PlainPin plainFrom(from);
    PlainPin plainTo(to);
    return record_.pfnCardChangeAuthenticatorEx(&record_, PIN_CHANGE_FLAG_CHANGEPIN, role, plainFrom.data(),
                                                plainFrom.size(), role, plainTo.data(), plainTo.size(), 0, nullptr);
  }
  void decrypt() {
    queueResult("orvane_decrypt", 0, kSofttokenKeep, 4, {1, 2, 3, 4});
    Bytes block(256, 0x22);
    CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
    EXPECT_EQ(record_.pfnCardRSADecrypt(&record_, &info), 0u);
  }

  // One copy of the PIN, the cached one, and none of these others.
  static void expectCached(const MaskedPin& pin, std::vector<const MaskedPin*> others = {}) {
    others.push_back(&pin);
    std::vector<Finds> finds = findPinsInMemory(others);
    EXPECT_EQ(finds.back().size(), pin.size() / kPieceSize) << ::testing::PrintToString(finds.back());
    finds.pop_back();
    EXPECT_EQ(finds, std::vector<Finds>(finds.size()));
  }
  static void expectNone(const std::vector<const MaskedPin*>& pins) {
    EXPECT_EQ(findPinsInMemory(pins), std::vector<Finds>(pins.size()));
  }

  void expectNoneInTheLog() {
    const std::string bytes = fileBytes(logFile());
    EXPECT_FALSE(bytes.empty());
    for (const MaskedPin* const pin : {&kPin, &kOtherPin, &kOfficerPin, &kOtherOfficerPin}) {
      Finds finds;
      findPin(*pin, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), 0, finds);
      EXPECT_EQ(finds, Finds{});
    }
  }

  CARD_DATA record_{};

#ifndef _WIN32
 private:
  // Natively nothing may depend on freed memory being overwritten by its next user.
  const FreedMemoryStays stays_;
#endif
};

TEST_F(PinResidue, OneCopyWhileAPinIsCached) {
  expectNone({&kPin});
  open();
  ASSERT_EQ(authenticate(kPin, 0), 0u);
  expectCached(kPin);
  signWithPreparedAnswer(record_);
  decrypt();
  expectCached(kPin);
  // The second authentication trusts the first and does not look at the PIN.
  PlainPin other(kOtherPin);
  EXPECT_EQ(
      record_.pfnCardAuthenticateEx(&record_, ROLE_USER, 0, other.data(), other.size(), nullptr, nullptr, nullptr), 0u);
  expectCached(kPin);
  // Deliberately: the next context of the process finds the PIN.
  EXPECT_EQ(record_.pfnCardDeleteContext(&record_), 0u);
  expectCached(kPin);
  expectNoneInTheLog();
}

TEST_F(PinResidue, NoneAfterwards) {
  struct Row {
    const char* name;
    std::function<void()> end;
  };
  const Row rows[] = {
      {"the user is deauthenticated", [&] { EXPECT_EQ(record_.pfnCardDeauthenticateEx(&record_, ROLE_USER, 0), 0u); }},
      {"all are deauthenticated",
       [&] { EXPECT_EQ(record_.pfnCardDeauthenticateEx(&record_, PIN_SET_ALL_ROLES, 0), 0u); }},
      {"by name",
       [&] {
         wchar_t user[] = L"user";
         EXPECT_EQ(record_.pfnCardDeauthenticate(&record_, user, 0), 0u);
       }},
      {"a wrong PIN", [&] { EXPECT_EQ(authenticatePin(kOtherPin, 1), static_cast<DWORD>(SCARD_W_WRONG_CHV)); }},
      {"a failed change",
       [&] { EXPECT_EQ(change(ROLE_USER, kPin, kOtherPin, false), static_cast<DWORD>(SCARD_W_WRONG_CHV)); }},
      {"the minidriver is unloaded",
       [&] {
         EXPECT_EQ(record_.pfnCardDeleteContext(&record_), 0u);
         reloadDriver();
         open();
       }},
      {"the token is gone",
       [&] {
         pollMonitor();
         softtoken_set_connected(kSerial, 0);
         pollMonitor();
         softtoken_set_connected(kSerial, 1);
       }},
  };
  open();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_EQ(authenticate(kPin, 0), 0u);
    expectCached(kPin);
    row.end();
    expectNone({&kPin, &kOtherPin});
    expectNoneInTheLog();
  }
  EXPECT_EQ(record_.pfnCardDeleteContext(&record_), 0u);
}

TEST_F(PinResidue, NoneOfARefusedPin) {
  open();
  EXPECT_EQ(authenticate(kPin, 1), static_cast<DWORD>(SCARD_W_WRONG_CHV));
  expectNone({&kPin});
  EXPECT_EQ(authenticate(kPin, 1, 0), static_cast<DWORD>(SCARD_W_CHV_BLOCKED));
  expectNone({&kPin});
  EXPECT_EQ(authenticatePin(kPin, 1), static_cast<DWORD>(SCARD_W_WRONG_CHV));
  expectNone({&kPin});
  queueThrow("orvane_validatePassword");
  {
    PlainPin plain(kPin);
    EXPECT_EQ(
        record_.pfnCardAuthenticateEx(&record_, ROLE_USER, 0, plain.data(), plain.size(), nullptr, nullptr, nullptr),
        static_cast<DWORD>(SCARD_F_INTERNAL_ERROR));
  }
  expectNone({&kPin});
  EXPECT_EQ(record_.pfnCardDeleteContext(&record_), 0u);
  expectNoneInTheLog();
}

TEST_F(PinResidue, NoneOfAReplacedPin) {
  open();
  ASSERT_EQ(authenticate(kPin, 0), 0u);
  ASSERT_EQ(change(ROLE_USER, kPin, kOtherPin, true), 0u);
  expectCached(kOtherPin, {&kPin});
  // By the other entry point, and to a shorter one in the place of a longer.
  ASSERT_EQ(authenticatePin(kOfficerPin, 0), 0u);
  expectCached(kOfficerPin, {&kOtherPin});
  EXPECT_EQ(record_.pfnCardDeauthenticateEx(&record_, PIN_SET_ALL_ROLES, 0), 0u);
  expectNone({&kOfficerPin});
  EXPECT_EQ(record_.pfnCardDeleteContext(&record_), 0u);
  expectNoneInTheLog();
}

TEST_F(PinResidue, NoneOfTheSecurityOfficersPin) {
  open();
  for (const bool isChanged : {true, false}) {
    SCOPED_TRACE(isChanged);
    EXPECT_EQ(change(ROLE_ADMIN, kOfficerPin, kOtherOfficerPin, isChanged),
              isChanged ? 0 : static_cast<DWORD>(SCARD_W_WRONG_CHV));
    expectNone({&kOfficerPin, &kOtherOfficerPin});
  }
  EXPECT_EQ(record_.pfnCardDeleteContext(&record_), 0u);
  expectNoneInTheLog();
}

#ifndef _WIN32

// What lay below a call's frame right after it returned.
std::array<std::uint8_t, 4096> leftOnTheStack;

// Has the library change the security officer's PIN and copies what is left below, before anything else goes there.
void changeAndLookBelow(PlainPin& from, PlainPin& to) {
  const OrvaneBoundaryText texts[] = {{reinterpret_cast<const char*>(from.data()), from.size()},
                                      {reinterpret_cast<const char*>(to.data()), to.size()}};
  OrvaneBoundaryFailure failure{};
  bool result = false;
  orvaneBoundaryChangeSoPassword(kSerial, &texts[0], &texts[1], &result, &failure);
  const auto end = reinterpret_cast<std::uintptr_t>(texts);
  for (std::size_t i = 0; i < leftOnTheStack.size(); ++i)
    leftOnTheStack[i] = *reinterpret_cast<const volatile std::uint8_t*>(end - leftOnTheStack.size() + i);
}

// The library takes them as strings, and short strings stand where the arguments of a call are.
TEST_F(PinResidue, NoneOfTheSecurityOfficersPinWhereTheArgumentsWere) {
  PlainPin from(kOfficerPin);
  PlainPin to(kOtherOfficerPin);
  queueResult("orvane_changeSOPassword", 1);
  changeAndLookBelow(from, to);
  Finds finds;
  for (const MaskedPin* const pin : {&kOfficerPin, &kOtherOfficerPin})
    findPin(*pin, leftOnTheStack.data(), leftOnTheStack.size(), 0, finds);
  leftOnTheStack.fill(0);
  EXPECT_EQ(finds, Finds{});
  EXPECT_EQ(takeCalls().size(), 1u);
}

// A text that is too long for the object stands in memory of its own.
TEST(PinMemory, OfALongTextIsOverwrittenBeforeItGoes) {
  const FreedMemoryStays stays;
  const struct {
    const char* name;
    void (*end)(std::unique_ptr<SecretText>& secret);
  } rows[] = {{"cleared", [](auto& secret) { secret->clear(); }},
              {"replaced by a short one", [](auto& secret) { *secret = SecretText("1", 1); }},
              {"replaced by a long one", [](auto& secret) { *secret = SecretText(std::string(99, '1').data(), 99); }},
              {"destroyed", [](auto& secret) { secret.reset(); }}};
  const std::string text(SecretText::kInlineCapacity + 1, '7');
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto secret = std::make_unique<SecretText>(text.data(), text.size());
    const volatile char* const block = secret->c_str();
    ASSERT_EQ(block[text.size() - 1], '7');
    row.end(secret);
    for (std::size_t i = 0; i < text.size(); ++i) EXPECT_EQ(block[i], 0) << i;
  }
}

#endif

}  // namespace
}  // namespace orvane::test
