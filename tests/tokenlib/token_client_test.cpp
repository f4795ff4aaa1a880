// The client through the true boundary: on Windows the calls leave this program by the decorated imports and are
// answered by the software token's DLL.
#include "tokenlib/token_client.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "softtoken_tools.h"

namespace orvane::tokentest {
namespace {

constexpr const char* kSerial = "A1";
constexpr std::uint8_t kIdByte = 0xC1;
constexpr const char* kIdText = "C1C1C1C1C1C1C1C1C1C1C1C1C1C1C1C1";

class TokenClientTest : public SofttokenTest {
 protected:
  void SetUp() override {
    SofttokenTest::SetUp();
    defineToken(kSerial);
    ASSERT_EQ(softtoken_add_key(kSerial, &keyPair), 1);
  }

  OrvaneKeyPair keyPair = makeKeyPair(kIdByte, 128, 3);
};

TEST(TokenLibraryLayout, MatchesTheMakersRecords) {
  EXPECT_EQ(sizeof(OrvaneKeyPair), 1324u);
  EXPECT_EQ(sizeof(OrvaneCertificate), 3096u);
  EXPECT_EQ(offsetof(OrvaneCertificate, certData), 20u);
  EXPECT_EQ(offsetof(OrvaneCertificate, certLength), 3092u);
}

TEST_F(TokenClientTest, PassesTheFixedArguments) {
  int attempts = 8;
  int signatureLength = -5;
  int outputLength = 0;
  unsigned char* output = nullptr;
  const unsigned char hash[32] = {0xAB};
  unsigned char signature[128];
  int context = 0;
  tokenlib::init(0x2A);
  tokenlib::connectedDeviceList();
  tokenlib::initDevice(kSerial, false);
  tokenlib::initDevice(kSerial, true);
  tokenlib::getTokenInfo(kSerial);
  tokenlib::setExternalSmartcardHandle(0xFEDCBA9876543210);
  tokenlib::validatePassword(kSerial, "1234", attempts);
  tokenlib::clearExternalSmartcardHandle();
  tokenlib::keyPairList(kSerial, nullptr);
  attempts = -1;
  tokenlib::changeUserPassword(kSerial, "1234", "56\x01\xFF", attempts);
  tokenlib::changeSOPassword(kSerial, "0123456789ABCDEF", "\"\\");
  tokenlib::signHash(kSerial, keyPair.credentialId, "56\x01\xFF", hash, 32, signature, signatureLength);
  tokenlib::decrypt(kSerial, keyPair.credentialId, "", nullptr, 0, output, outputLength);
  tokenlib::findCertificateForKey(kSerial, keyPair.credentialId, nullptr);
  const std::string id = kIdText;
  const std::vector<std::string> expected = {
      "orvane_init(0, 0x2A, 2)",
      "orvane_getConnectedDeviceList(false, null)",
      "orvane_initDevice(\"A1\", false, null)",
      "orvane_initDevice(\"A1\", true, null)",
      "orvane_getTokenInfo(\"A1\", null)",
      "orvane_setExternalSmartcardHandle(0xFEDCBA9876543210)",
      "orvane_validatePassword(\"A1\", \"1234\", 1, 8, null) [card 0xFEDCBA9876543210]",
      "orvane_clearExternalSmartcardHandle() [card 0xFEDCBA9876543210]",
      "orvane_getKeyPairList(\"A1\", null)",
      "orvane_changeUserPassword(\"A1\", \"1234\", \"56\\x01\\xFF\", -1, false, false, null)",
      "orvane_changeSOPassword(\"A1\", \"0123456789ABCDEF\", \"\\x22\\x5C\", null)",
      "orvane_signHash(\"A1\", " + id + ", \"56\\x01\\xFF\", AB" + std::string(62, '0') + ", 32, false, null, false)",
      "orvane_decrypt(\"A1\", " + id + ", \"\", null, 0, false, null)",
      "orvane_findCertificateForKey(\"A1\", " + id + ", null)",
  };
  EXPECT_EQ(recordedCalls(), expected);

  softtoken_clear_calls();
  tokenlib::keyPairList(kSerial, &context);
  tokenlib::findCertificateForKey(kSerial, keyPair.credentialId, &context);
  for (const std::string& call : recordedCalls()) EXPECT_EQ(call.find("null"), std::string::npos) << call;
}

TEST_F(TokenClientTest, ReturnsWhatTheLibraryReturns) {
  EXPECT_EQ(tokenlib::init(1), 0);
  EXPECT_EQ(tokenlib::connectedDeviceList(), std::vector<std::string>{"A1"});
  EXPECT_EQ(tokenlib::initDevice(kSerial, false), 0);
  EXPECT_EQ(tokenlib::initDevice("B2", false), kSofttokenNoToken);
  EXPECT_EQ(tokenlib::getTokenInfo(kSerial).firmwareVersion, "2.1.0");
  EXPECT_EQ(tokenlib::getTokenInfo(kSerial).unreadTexts[0], "A1");
  EXPECT_EQ(tokenlib::getTokenInfo("B2").firmwareVersion, "");

  const std::vector<OrvaneKeyPair> keyPairs = tokenlib::keyPairList(kSerial, nullptr);
  ASSERT_EQ(keyPairs.size(), 1u);
  EXPECT_EQ(std::memcmp(&keyPairs[0], &keyPair, sizeof(keyPair)), 0);
  EXPECT_TRUE(tokenlib::keyPairList("B2", nullptr).empty());

  EXPECT_EQ(tokenlib::findCertificateForKey(kSerial, keyPair.credentialId, nullptr), nullptr);
  OrvaneCertificate certificate;
  std::memset(&certificate, 0x77, sizeof(certificate));
  certificate.certLength = 3072;
  ASSERT_EQ(softtoken_set_certificate(kSerial, keyPair.credentialId, &certificate), 1);
  const OrvaneCertificate* const found = tokenlib::findCertificateForKey(kSerial, keyPair.credentialId, nullptr);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(std::memcmp(found, &certificate, sizeof(certificate)), 0);
}

TEST_F(TokenClientTest, SignsAndDecryptsWithReadableBytes) {
  unsigned char signature[130];
  std::memset(signature, 0xEE, sizeof(signature));
  int length = -1;
  const unsigned char hash[32] = {};
  ASSERT_EQ(tokenlib::signHash(kSerial, keyPair.credentialId, "1234", hash, 32, signature, length), 0);
  EXPECT_EQ(length, 128);
  for (unsigned i = 0; i < 128; ++i) EXPECT_EQ(signature[i], i + 1) << i;
  EXPECT_EQ(signature[128], 0xEE);

  unsigned char* plain = nullptr;
  int plainLength = -1;
  ASSERT_EQ(tokenlib::decrypt(kSerial, keyPair.credentialId, "1234", signature, 128, plain, plainLength), 0);
  ASSERT_EQ(plainLength, 48);
  EXPECT_EQ(std::memcmp(plain, signature, 48), 0);
  std::free(plain);
}

// Also what nobody reads today: the software token has something else in each place.
TEST_F(TokenClientTest, CopiesTheWholeTokenInfo) {
  const TokenInfo info = tokenlib::getTokenInfo(kSerial);
  EXPECT_EQ(std::vector<std::string>(std::begin(info.unreadTexts), std::end(info.unreadTexts)),
            (std::vector<std::string>{"A1", "text 1", "text 2", "text 3", "text 4"}));
  EXPECT_EQ(info.firmwareVersion, "2.1.0");
  EXPECT_EQ(info.unreadText6, "text 6");
  for (unsigned i = 0; i < 16; ++i) EXPECT_EQ(info.unreadNumbers0[i], i + 1) << i;
  EXPECT_EQ(info.passwordValidated, 0u);
  for (unsigned i = 0; i < 20; ++i) EXPECT_EQ(info.unreadNumbers20[i], i + 21) << i;
  EXPECT_EQ(info.unreadTexts7[0], "text 7");
  EXPECT_EQ(info.unreadTexts7[1], "text 8");
  EXPECT_EQ(info.unreadNumber, 0x4142434445464748u);
}

// Together 111 characters; what is beyond is cut off.
TEST(TokenLibraryError, HoldsWhatItHasRoomFor) {
  const struct {
    std::size_t first, second, heldOfFirst, heldOfSecond;
  } rows[] = {{0, 0, 0, 0},      {110, 0, 110, 0},   {111, 0, 111, 0},   {112, 0, 111, 0},
              {1000, 0, 111, 0}, {100, 10, 100, 10}, {100, 11, 100, 11}, {100, 12, 100, 11},
              {0, 111, 0, 111},  {0, 112, 0, 111},   {111, 5, 111, 0},   {300, 5, 111, 0}};
  for (const auto& row : rows) {
    const tokenlib::TokenLibraryError error(std::string(row.first, 'a'), std::string(row.second, 'b'));
    EXPECT_EQ(error.what(), std::string(row.heldOfFirst, 'a') + std::string(row.heldOfSecond, 'b'))
        << row.first << " and " << row.second;
  }
}

// Strings up to 15 characters are inline in the maker's string, longer ones on the heap, and from 4096 bytes on blocks
// are aligned by the library: lists of all these sizes must arrive and be released.
TEST_F(TokenClientTest, TakesListsOfAnySize) {
  const struct {
    std::size_t count;
    std::size_t length;
  } cases[] = {{0, 0},    {1, 0},    {1, 15},   {1, 16},   {2, 31},   {127, 15},
               {128, 16}, {129, 40}, {1000, 3}, {1, 4094}, {1, 4095}, {3, 100000}};
  for (const auto& [count, length] : cases) {
    SCOPED_TRACE(::testing::Message() << count << " serials of " << length);
    std::vector<std::string> serials;
    std::string lines;
    for (std::size_t i = 0; i < count; ++i) {
      serials.emplace_back(length, static_cast<char>('a' + i % 26));
      lines += serials.back() + "\n";
    }
    const SofttokenReaction answer = makeReaction(lines);
    ASSERT_EQ(softtoken_queue("orvane_getConnectedDeviceList", &answer), 1);
    EXPECT_EQ(tokenlib::connectedDeviceList(), serials);
  }
}

TEST_F(TokenClientTest, TakesManyKeyPairs) {
  for (int i = 1; i < 40; ++i) {
    const OrvaneKeyPair another = makeKeyPair(static_cast<std::uint8_t>(i), 512, 1);
    ASSERT_EQ(softtoken_add_key(kSerial, &another), 1);
  }
  const std::vector<OrvaneKeyPair> keyPairs = tokenlib::keyPairList(kSerial, nullptr);
  ASSERT_EQ(keyPairs.size(), 40u);
  EXPECT_EQ(std::memcmp(&keyPairs[0], &keyPair, sizeof(keyPair)), 0);
  for (std::size_t i = 1; i < 40; ++i) {
    const OrvaneKeyPair expected = makeKeyPair(static_cast<std::uint8_t>(i), 512, 1);
    EXPECT_EQ(std::memcmp(&keyPairs[i], &expected, sizeof(expected)), 0) << i;
  }
}

TEST_F(TokenClientTest, PassesPinsOfAnyLengthByValue) {
  for (const std::size_t length : {0u, 1u, 15u, 16u, 63u, 4094u, 4095u, 4096u, 10000u}) {
    SCOPED_TRACE(length);
    softtoken_clear_calls();
    const std::string pin(length, '7');
    EXPECT_FALSE(tokenlib::changeSOPassword(kSerial, pin.c_str(), "new"));
    EXPECT_EQ(recordedCalls(),
              std::vector<std::string>{"orvane_changeSOPassword(\"A1\", \"" + pin + "\", \"new\", null)"});
  }
}

TEST_F(TokenClientTest, TurnsEveryExceptionIntoTokenLibraryError) {
  int attempts = 8;
  int length = 77;
  unsigned char signature[128];
  unsigned char* output = signature;
  const unsigned char hash[32] = {};
  const unsigned char* const id = keyPair.credentialId;
  const std::vector<std::pair<const char*, std::function<void()>>> cases = {
      {"orvane_init", [] { tokenlib::init(1); }},
      {"orvane_getConnectedDeviceList", [] { tokenlib::connectedDeviceList(); }},
      {"orvane_initDevice", [] { tokenlib::initDevice(kSerial, true); }},
      {"orvane_getTokenInfo", [] { tokenlib::getTokenInfo(kSerial); }},
      {"orvane_validatePassword", [&] { tokenlib::validatePassword(kSerial, "1111", attempts); }},
      {"orvane_getKeyPairList", [] { tokenlib::keyPairList(kSerial, nullptr); }},
      {"orvane_changeUserPassword", [&] { tokenlib::changeUserPassword(kSerial, "1", "2", attempts); }},
      {"orvane_changeSOPassword", [] { tokenlib::changeSOPassword(kSerial, "0123456789ABCDEF", "2"); }},
      {"orvane_signHash", [&] { tokenlib::signHash(kSerial, id, "1234", hash, 32, signature, length); }},
      {"orvane_decrypt", [&] { tokenlib::decrypt(kSerial, id, "1234", hash, 32, output, length); }},
      {"orvane_findCertificateForKey", [&] { tokenlib::findCertificateForKey(kSerial, id, nullptr); }},
      {"orvane_setExternalSmartcardHandle", [] { tokenlib::setExternalSmartcardHandle(1); }},
      {"orvane_clearExternalSmartcardHandle", [] { tokenlib::clearExternalSmartcardHandle(); }},
  };
  std::memset(signature, 0xEE, sizeof(signature));
  for (const auto& [function, call] : cases) {
    SCOPED_TRACE(function);
    const SofttokenReaction exception = makeReaction(kSofttokenThrow);
    ASSERT_EQ(softtoken_queue(function, &exception), 1);
    std::string message = "nothing was thrown";
    try {
      call();
    } catch (const tokenlib::TokenLibraryError& error) {
      message = error.what();
    }
    EXPECT_EQ(message, std::string(function) + ": exception in the token library");
    EXPECT_EQ(softtoken_queued(function), 0u);
  }
  EXPECT_EQ(attempts, 8);
  EXPECT_EQ(length, 77);
  EXPECT_EQ(output, signature);
  for (const unsigned char byte : signature) EXPECT_EQ(byte, 0xEE);
  EXPECT_EQ(tokenlib::init(1), 0) << "the library works on after its exceptions";
}

TEST_F(TokenClientTest, PassesPreparedAnswersOn) {
  int attempts = 8;
  SofttokenReaction answer = makeReaction(kSofttokenAnswer, -7);
  answer.attempts = 0;
  softtoken_queue("orvane_validatePassword", &answer);
  EXPECT_EQ(tokenlib::validatePassword(kSerial, "1234", attempts), -7);
  EXPECT_EQ(attempts, 0);

  unsigned char signature[128];
  std::memset(signature, 0xEE, sizeof(signature));
  int length = 5;
  answer = makeReaction("\x01\x02\x03", 0);
  answer.length = 129;
  softtoken_queue("orvane_signHash", &answer);
  EXPECT_EQ(tokenlib::signHash(kSerial, keyPair.credentialId, "", nullptr, 0, signature, length), 0);
  EXPECT_EQ(length, 129);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(signature), 4), "\x01\x02\x03\xEE");

  unsigned char* output = signature;
  answer = makeReaction(kSofttokenAnswer, 0);
  answer.length = 3;
  softtoken_queue("orvane_decrypt", &answer);
  EXPECT_EQ(tokenlib::decrypt(kSerial, keyPair.credentialId, "", signature, 1, output, length), 0);
  EXPECT_EQ(length, 3);
  EXPECT_EQ(output, nullptr);

  answer = makeReaction("9.9", 4000000000);
  softtoken_queue("orvane_getTokenInfo", &answer);
  const TokenInfo info = tokenlib::getTokenInfo(kSerial);
  EXPECT_EQ(info.firmwareVersion, "9.9");
  EXPECT_EQ(info.passwordValidated, 4000000000u);
}

}  // namespace
}  // namespace orvane::tokentest
