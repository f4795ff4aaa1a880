// The software token's own behaviour: PINs and their counters, the FIPS switch, tokens that come and go, prepared
// reactions, the record of calls and the gates.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "softtoken_tools.h"
#include "tokenlib/token_client.h"

namespace orvane::tokentest {
namespace {

constexpr unsigned kLongMs = 60000;  // bounds a test that fails; one that works never waits so long

class SofttokenBehaviourTest : public SofttokenTest {
 protected:
  void SetUp() override {
    SofttokenTest::SetUp();
    defineToken("A1");
    softtoken_add_key("A1", &keyPair);
  }

  int validate(const char* pin, int* attempts) { return tokenlib::validatePassword("A1", pin, *attempts); }
  unsigned validated() { return tokenlib::getTokenInfo("A1").passwordValidated; }
  int sign(const char* serial, const char* pin, int hashLength) {
    const unsigned char hash[65] = {};
    unsigned char signature[128];
    int length = 0;
    return tokenlib::signHash(serial, keyPair.credentialId, pin, hash, hashLength, signature, length);
  }

  OrvaneKeyPair keyPair = makeKeyPair(0xC1, 128, 3);
};

struct PinStep {
  const char* pin;
  int result;
  int attempts;  // after the call, which is handed 8
  unsigned validated;
};

TEST_F(SofttokenBehaviourTest, CountsWrongUserPinsAndBlocks) {
  const PinStep steps[] = {
      {"9999", kSofttokenWrongPin, 2, 0},   {"1234", kSofttokenOk, 8, 1},         {"", kSofttokenPinMissing, 3, 1},
      {"12345", kSofttokenWrongPin, 2, 0},  {"123", kSofttokenWrongPin, 1, 0},    {"9999", kSofttokenWrongPin, 0, 0},
      {"1234", kSofttokenPinBlocked, 0, 0}, {"9999", kSofttokenPinBlocked, 0, 0},
  };
  for (const PinStep& step : steps) {
    SCOPED_TRACE(step.pin);
    int attempts = 8;
    EXPECT_EQ(validate(step.pin, &attempts), step.result);
    EXPECT_EQ(attempts, step.attempts);
    EXPECT_EQ(validated(), step.validated);
  }
  EXPECT_EQ(sign("A1", "1234", 32), kSofttokenPinBlocked);
  softtoken_set_tries_left("A1", 1, 1);
  EXPECT_EQ(sign("A1", "1234", 32), kSofttokenOk);
}

TEST_F(SofttokenBehaviourTest, ChangesTheUserPin) {
  int attempts = -1;
  EXPECT_FALSE(tokenlib::changeUserPassword("A1", "9999", "5678", attempts));
  EXPECT_EQ(attempts, 2);
  attempts = -1;
  EXPECT_TRUE(tokenlib::changeUserPassword("A1", "1234", "5678", attempts));
  EXPECT_EQ(attempts, -1);
  EXPECT_EQ(validate("1234", &attempts), kSofttokenWrongPin);
  EXPECT_EQ(validate("5678", &attempts), kSofttokenOk);
}

TEST_F(SofttokenBehaviourTest, ChangesTheSecurityOfficersPin) {
  EXPECT_TRUE(tokenlib::changeSOPassword("A1", "87654321", "a much longer PIN than before"));
  EXPECT_FALSE(tokenlib::changeSOPassword("A1", "87654321", "x"));
  EXPECT_TRUE(tokenlib::changeSOPassword("A1", "a much longer PIN than before", "1"));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(tokenlib::changeSOPassword("A1", "wrong", "x"));
  EXPECT_FALSE(tokenlib::changeSOPassword("A1", "1", "x")) << "blocked";
  EXPECT_EQ(sign("A1", "1234", 32), kSofttokenOk) << "the user PIN has a counter of its own";
}

TEST_F(SofttokenBehaviourTest, SignsHashesOfKnownLengthsWithTheRightPin) {
  defineToken("F1", 1);
  softtoken_add_key("F1", &keyPair);
  const struct {
    const char* serial;
    const char* pin;
    int hashLength;
    int result;
  } cases[] = {
      {"A1", "1234", 16, 0},
      {"A1", "1234", 20, 0},
      {"A1", "1234", 32, 0},
      {"A1", "1234", 48, 0},
      {"A1", "1234", 64, 0},
      {"F1", "1234", 32, 0},
      {"F1", "1234", 48, 0},
      {"F1", "1234", 64, 0},
      {"A1", "1234", 0, kSofttokenBadData},
      {"A1", "1234", -1, kSofttokenBadData},
      {"A1", "1234", 28, kSofttokenBadData},
      {"A1", "1234", 65, kSofttokenBadData},
      {"F1", "1234", 16, kSofttokenFipsRefused},
      {"F1", "1234", 20, kSofttokenFipsRefused},
      {"F1", "", 20, kSofttokenFipsRefused},
      {"A1", "", 32, kSofttokenPinMissing},
      {"A1", "4321", 32, kSofttokenWrongPin},
      {"B2", "1234", 32, kSofttokenNoToken},
  };
  for (const auto& [serial, pin, hashLength, result] : cases) {
    EXPECT_EQ(sign(serial, pin, hashLength), result) << serial << " " << pin << " " << hashLength;
  }
  keyPair.credentialId[15] ^= 1;
  EXPECT_EQ(sign("A1", "1234", 32), kSofttokenNoKey);
}

TEST_F(SofttokenBehaviourTest, TokensComeAndGo) {
  defineToken("0002");
  defineToken("a0");
  EXPECT_EQ(tokenlib::connectedDeviceList(), (std::vector<std::string>{"0002", "A1", "a0"}));
  int attempts = 8;
  EXPECT_EQ(validate("1234", &attempts), 0);
  EXPECT_EQ(softtoken_set_connected("A1", 0), 1);
  EXPECT_EQ(tokenlib::connectedDeviceList(), (std::vector<std::string>{"0002", "a0"}));
  EXPECT_EQ(validate("1234", &attempts), kSofttokenNoToken);
  EXPECT_TRUE(tokenlib::keyPairList("A1", nullptr).empty());
  EXPECT_EQ(softtoken_set_connected("A1", 1), 1);
  EXPECT_EQ(validated(), 0u) << "a token that was away forgets the PIN";
  EXPECT_EQ(tokenlib::keyPairList("A1", nullptr).size(), 1u);
  EXPECT_EQ(softtoken_set_connected("B2", 1), 0);
}

TEST_F(SofttokenBehaviourTest, ChangesSingleValues) {
  EXPECT_EQ(softtoken_set_firmware("A1", "1.9.9"), 1);
  EXPECT_EQ(softtoken_set_init_result("A1", -3), 1);
  EXPECT_EQ(softtoken_set_password_validated("A1", 5), 1);
  EXPECT_EQ(softtoken_clear_keys("A1"), 1);
  EXPECT_EQ(tokenlib::getTokenInfo("A1").firmwareVersion, "1.9.9");
  EXPECT_EQ(tokenlib::initDevice("A1", false), -3);
  EXPECT_EQ(validated(), 5u);
  EXPECT_TRUE(tokenlib::keyPairList("A1", nullptr).empty());
  for (const int result : {softtoken_set_firmware("B2", ""), softtoken_set_init_result("B2", 0),
                           softtoken_set_password_validated(nullptr, 0), softtoken_clear_keys("B2"),
                           softtoken_add_key("B2", &keyPair), softtoken_add_key("A1", nullptr),
                           softtoken_set_certificate("A1", nullptr, nullptr), softtoken_define_token(nullptr)}) {
    EXPECT_EQ(result, 0);
  }
}

TEST_F(SofttokenBehaviourTest, UsesReactionsOnceAndInOrder) {
  for (const SofttokenReaction& reaction :
       {makeReaction(kSofttokenAnswer, 1), makeReaction(kSofttokenPass), makeReaction(kSofttokenAnswer, 3)}) {
    ASSERT_EQ(softtoken_queue("orvane_initDevice", &reaction), 1);
  }
  EXPECT_EQ(softtoken_queued("orvane_initDevice"), 3u);
  EXPECT_EQ(softtoken_queued("orvane_init"), 0u);
  std::vector<int> results;
  for (int i = 0; i < 4; ++i) results.push_back(tokenlib::initDevice("A1", false));
  EXPECT_EQ(results, (std::vector<int>{1, 0, 3, 0}));
  const SofttokenReaction reaction = makeReaction(kSofttokenPass);
  EXPECT_EQ(softtoken_queue("orvane_nothing", &reaction), 0);
  EXPECT_EQ(softtoken_queue(nullptr, &reaction), 0);
  EXPECT_EQ(softtoken_queue("orvane_init", nullptr), 0);
}

TEST_F(SofttokenBehaviourTest, TellsTheThreadsOfCallsApart) {
  const unsigned long long self = softtoken_thread();
  unsigned long long other = 0;
  tokenlib::init(1);
  std::thread([&] {
    other = softtoken_thread();
    tokenlib::setExternalSmartcardHandle(7);
  }).join();
  tokenlib::init(2);
  ASSERT_NE(self, other);
  const std::vector<std::string> ours = {"orvane_init(0, 0x1, 2)", "orvane_init(0, 0x2, 2) [card 0x7]"};
  const std::vector<std::string> theirs = {"orvane_setExternalSmartcardHandle(0x7)"};
  EXPECT_EQ(recordedCalls(kSofttokenOnlyThread, self), ours);
  EXPECT_EQ(recordedCalls(kSofttokenOtherThreads, self), theirs);
  EXPECT_EQ(recordedCalls(kSofttokenOnlyThread, other), theirs);
  ASSERT_EQ(softtoken_call_count(), 3u);
  SofttokenCall call{};
  char text[64] = {};
  EXPECT_EQ(softtoken_call(2, &call, text, sizeof(text)), ours[1].size() + 1);
  EXPECT_EQ(text, ours[1]);
  EXPECT_EQ(call.thread, self);
  EXPECT_EQ(call.cardHandle, 7u);
  EXPECT_EQ(softtoken_call(3, &call, text, sizeof(text)), 0u);
  softtoken_clear_calls();
  EXPECT_EQ(softtoken_call_count(), 0u);
}

TEST_F(SofttokenBehaviourTest, CountsHandlesThatAreSetOverOthers) {
  EXPECT_EQ(softtoken_handle_overlaps(), 0u);
  tokenlib::setExternalSmartcardHandle(7);
  tokenlib::clearExternalSmartcardHandle();
  tokenlib::setExternalSmartcardHandle(7);
  EXPECT_EQ(softtoken_handle_overlaps(), 0u);
  tokenlib::setExternalSmartcardHandle(8);
  tokenlib::setExternalSmartcardHandle(8);
  softtoken_clear_calls();
  EXPECT_EQ(softtoken_handle_overlaps(), 2u);
  tokenlib::clearExternalSmartcardHandle();
  tokenlib::clearExternalSmartcardHandle();
  EXPECT_EQ(softtoken_handle_overlaps(), 2u);
  resetSofttoken();
  EXPECT_EQ(softtoken_handle_overlaps(), 0u);
}

TEST_F(SofttokenBehaviourTest, AGateHoldsOtherThreads) {
  constexpr const char* kFunction = "orvane_getConnectedDeviceList";
  ASSERT_EQ(softtoken_gate(kFunction, 1), 1);
  EXPECT_EQ(softtoken_wait_held(kFunction, 0), 0);
  EXPECT_EQ(tokenlib::connectedDeviceList().size(), 1u) << "the thread that closed the gate is not held";

  std::atomic<int> finished{0};
  std::thread other([&] {
    for (int i = 0; i < 4; ++i) {
      tokenlib::connectedDeviceList();
      ++finished;
    }
  });
  ASSERT_EQ(softtoken_wait_held(kFunction, kLongMs), 1);
  EXPECT_EQ(finished, 0);
  ASSERT_EQ(softtoken_gate_pass(kFunction, 2), 1);
  ASSERT_EQ(softtoken_wait_held(kFunction, kLongMs), 1);
  EXPECT_EQ(finished, 2);
  // A reaction is taken when the held call is let through, so that one queued meanwhile is meant for it.
  const SofttokenReaction exception = makeReaction(kSofttokenPass);
  ASSERT_EQ(softtoken_queue(kFunction, &exception), 1);
  ASSERT_EQ(softtoken_gate_pass(kFunction, 1), 1);
  ASSERT_EQ(softtoken_wait_held(kFunction, kLongMs), 1);
  EXPECT_EQ(finished, 3);
  EXPECT_EQ(softtoken_queued(kFunction), 0u);
  ASSERT_EQ(softtoken_gate(kFunction, 0), 1);
  other.join();
  EXPECT_EQ(finished, 4);
  EXPECT_EQ(softtoken_gate("orvane_nothing", 1), 0);
}

TEST_F(SofttokenBehaviourTest, ResetForgetsEverythingAndLetsHeldCallsGo) {
  ASSERT_EQ(softtoken_gate("orvane_init", 1), 1);
  const SofttokenReaction reaction = makeReaction(kSofttokenAnswer, 5);
  softtoken_queue("orvane_initDevice", &reaction);
  std::thread other([] { tokenlib::init(1); });
  ASSERT_EQ(softtoken_wait_held("orvane_init", kLongMs), 1);
  tokenlib::setExternalSmartcardHandle(9);
  resetSofttoken();
  other.join();
  EXPECT_EQ(softtoken_call_count(), 0u);
  EXPECT_EQ(softtoken_queued("orvane_initDevice"), 0u);
  EXPECT_TRUE(tokenlib::connectedDeviceList().empty());
  EXPECT_EQ(recordedCalls(), std::vector<std::string>{"orvane_getConnectedDeviceList(false, null)"});
}

TEST_F(SofttokenBehaviourTest, WorksInSeveralThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      const std::string serial = "T" + std::to_string(i);
      for (int round = 0; round < 20; ++round) {
        defineToken(serial.c_str());
        softtoken_add_key(serial.c_str(), &keyPair);
        EXPECT_EQ(tokenlib::keyPairList(serial, nullptr).size(), 1u);
        EXPECT_EQ(tokenlib::keyPairList("A1", nullptr).size(), 1u);
        EXPECT_EQ(sign(serial.c_str(), "1234", 32), 0);
        EXPECT_GE(tokenlib::connectedDeviceList().size(), 2u);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace orvane::tokentest
