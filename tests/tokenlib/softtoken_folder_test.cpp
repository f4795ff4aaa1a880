// Tokens described by a folder, with real keys. The folder test-tokens next to the program is made by the build:
// REAL1 with keys of every size and usage, FIPS1 with the FIPS 140-3 switch.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

#include "rsa_check.h"
#include "softtoken_tools.h"
#include "tokenlib/token_client.h"

namespace orvane::tokentest {
namespace {

namespace fs = std::filesystem;

fs::path programFolder() {
#if defined(_WIN32)
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return fs::path(path).parent_path();
#else
  return fs::read_symlink("/proc/self/exe").parent_path();
#endif
}

void setVariable(const char* name, const std::string& value) {
#if defined(_WIN32)
  _putenv_s(name, value.c_str());
#else
  setenv(name, value.c_str(), 1);
#endif
}

Bytes modulusOf(const OrvaneKeyPair& keyPair) {
  return Bytes(keyPair.modulus, keyPair.modulus + keyPair.modulusLength);
}

class SofttokenFolderTest : public SofttokenTest {
 protected:
  void SetUp() override {
    SofttokenTest::SetUp();
    ASSERT_TRUE(fs::is_directory(tokens)) << tokens << " is made by the build (target softtoken_test_tokens)";
    softtoken_set_folder(tokens.string().c_str());
  }

  void TearDown() override {
    SofttokenTest::TearDown();
    fs::remove_all(scratch);
  }

  // Makes the scratch folder empty and the token folder.
  void useScratch() {
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    softtoken_set_folder(scratch.string().c_str());
  }

  const fs::path tokens = programFolder() / "test-tokens";
  const fs::path scratch =
      fs::temp_directory_path() / ("orvane-softtoken-test-" + std::to_string(std::random_device()()));
};

TEST_F(SofttokenFolderTest, ShowsTokensAsDescribed) {
  EXPECT_EQ(tokenlib::connectedDeviceList(), (std::vector<std::string>{"FIPS1", "REAL1"}));
  EXPECT_EQ(tokenlib::getTokenInfo("REAL1").firmwareVersion, "2.0.0");
  EXPECT_EQ(tokenlib::getTokenInfo("REAL1").passwordValidated, 0u);
  EXPECT_EQ(tokenlib::initDevice("REAL1", false), 0);
  const std::vector<OrvaneKeyPair> keyPairs = tokenlib::keyPairList("REAL1", nullptr);
  std::vector<std::vector<int>> shown;
  for (const OrvaneKeyPair& keyPair : keyPairs) {
    shown.push_back({static_cast<int>(keyPair.modulusLength), keyPair.keyUsage, static_cast<int>(keyPair.algorithm)});
  }
  EXPECT_EQ(shown, (std::vector<std::vector<int>>{{128, 1, 1}, {256, 3, 2}, {384, 2, 3}, {512, 1, 4}}));
}

TEST_F(SofttokenFolderTest, CertificatesHoldTheKeys) {
  for (const OrvaneKeyPair& keyPair : tokenlib::keyPairList("REAL1", nullptr)) {
    const OrvaneCertificate* const certificate =
        tokenlib::findCertificateForKey("REAL1", keyPair.credentialId, nullptr);
    ASSERT_NE(certificate, nullptr);
    ASSERT_LE(certificate->certLength, sizeof(certificate->certData));
    const std::uint8_t* const end = certificate->certData + certificate->certLength;
    const Bytes modulus = modulusOf(keyPair);
    EXPECT_NE(std::search(certificate->certData, end, modulus.begin(), modulus.end()), end);
  }
}

TEST_F(SofttokenFolderTest, SignaturesVerify) {
  for (const OrvaneKeyPair& keyPair : tokenlib::keyPairList("REAL1", nullptr)) {
    for (const std::size_t hashLength : {16u, 20u, 32u, 48u, 64u}) {
      SCOPED_TRACE(::testing::Message() << keyPair.modulusLength << " " << hashLength);
      Bytes hash(hashLength, 0x5C);
      Bytes signature(513, 0xEE);
      int length = 0;
      ASSERT_EQ(tokenlib::signHash("REAL1", keyPair.credentialId, "1234", hash.data(), static_cast<int>(hashLength),
                                   signature.data(), length),
                0);
      ASSERT_EQ(length, static_cast<int>(keyPair.modulusLength));
      EXPECT_EQ(signature[keyPair.modulusLength], 0xEE);
      signature.resize(keyPair.modulusLength);
      EXPECT_TRUE(verifyRsaSignature(modulusOf(keyPair), hash, signature));
      hash[0] ^= 1;
      EXPECT_FALSE(verifyRsaSignature(modulusOf(keyPair), hash, signature));
    }
  }
}

TEST_F(SofttokenFolderTest, DecryptsBothPaddings) {
  const OrvaneKeyPair keyPair = tokenlib::keyPairList("REAL1", nullptr).at(1);
  for (const RsaPadding padding : {RsaPadding::kPkcs1, RsaPadding::kOaepSha256}) {
    for (const std::size_t plainLength : {1u, 32u, 48u, 100u}) {
      SCOPED_TRACE(::testing::Message() << static_cast<int>(padding) << " " << plainLength);
      const Bytes plain(plainLength, 0xA5);
      const Bytes cipher = encryptRsa(modulusOf(keyPair), padding, plain);
      ASSERT_EQ(cipher.size(), 256u);
      unsigned char* output = nullptr;
      int length = -1;
      ASSERT_EQ(tokenlib::decrypt("REAL1", keyPair.credentialId, "1234", cipher.data(), 256, output, length), 0);
      EXPECT_EQ(Bytes(output, output + length), plain);
      std::free(output);
    }
  }
  const Bytes rubbish(255, 1);
  unsigned char* output = nullptr;
  int length = -1;
  EXPECT_EQ(tokenlib::decrypt("REAL1", keyPair.credentialId, "1234", rubbish.data(), 255, output, length),
            kSofttokenBadData);
  EXPECT_EQ(output, nullptr);
}

TEST_F(SofttokenFolderTest, TheFipsSwitchRefusesOldHashes) {
  const OrvaneKeyPair keyPair = tokenlib::keyPairList("FIPS1", nullptr).at(0);
  const struct {
    int hashLength;
    int result;
  } cases[] = {{16, 51}, {20, 51}, {32, 0}, {48, 0}, {64, 0}};
  for (const auto& [hashLength, result] : cases) {
    const Bytes hash(64, 1);
    Bytes signature(256);
    int length = 0;
    EXPECT_EQ(
        tokenlib::signHash("FIPS1", keyPair.credentialId, "1234", hash.data(), hashLength, signature.data(), length),
        result)
        << hashLength;
  }
}

TEST_F(SofttokenFolderTest, TokensAppearVanishAndStartAnew) {
  useScratch();
  EXPECT_TRUE(tokenlib::connectedDeviceList().empty());
  fs::create_directory(scratch / "EMPTY");
  fs::create_directory(scratch / ".hidden");
  std::ofstream(scratch / ".hidden" / "token.conf") << "pin=1\n";
  fs::copy(tokens / "FIPS1", scratch / "NEW1");
  EXPECT_EQ(tokenlib::connectedDeviceList(), std::vector<std::string>{"NEW1"});
  int attempts = 8;
  EXPECT_EQ(tokenlib::validatePassword("NEW1", "9999", attempts), kSofttokenWrongPin);
  EXPECT_EQ(attempts, 4);
  fs::rename(scratch / "NEW1", scratch / ".away");
  EXPECT_EQ(tokenlib::initDevice("NEW1", false), kSofttokenNoToken);
  EXPECT_TRUE(tokenlib::connectedDeviceList().empty());
  fs::rename(scratch / ".away", scratch / "NEW1");
  EXPECT_EQ(tokenlib::validatePassword("NEW1", "9999", attempts), kSofttokenWrongPin);
  EXPECT_EQ(attempts, 4) << "PIN counters live as long as the token is there";
  EXPECT_EQ(tokenlib::initDevice("../test-tokens/REAL1", false), kSofttokenNoToken);
}

TEST_F(SofttokenFolderTest, FindsTheFolderInTheEnvironment) {
  softtoken_reset();
  setVariable("ORVANE_SOFTTOKEN_DIR", tokens.string());
  EXPECT_EQ(tokenlib::connectedDeviceList(), (std::vector<std::string>{"FIPS1", "REAL1"}));
  setVariable("ORVANE_SOFTTOKEN_DIR", "");
  EXPECT_TRUE(tokenlib::connectedDeviceList().empty());
}

TEST_F(SofttokenFolderTest, BrokenTokensAreNotThere) {
  for (const char* description :
       {"nonsense\n", "firmware\n", "tries=x\n", "fips=2\n", "key=none 1 00112233445566778899AABBCCDDEEFF\n",
        "key=key1 1 00112233\n", "key=key1 one 00112233445566778899AABBCCDDEEFF\n"}) {
    SCOPED_TRACE(description);
    useScratch();
    fs::copy(tokens / "FIPS1", scratch / "BROKEN");
    std::ofstream(scratch / "BROKEN" / "token.conf", std::ios::app) << description;
    EXPECT_TRUE(tokenlib::connectedDeviceList().empty());
  }
}

}  // namespace
}  // namespace orvane::tokentest
