// One whole session with a token, from the acquisition to the end of the context: what every call returned, and the
// complete log, compared with session.txt.
//
// The text is the same on every system. After a deliberate change it is written anew by
//   ORVANE_WRITE_SESSION=$PWD/tests/golden/session.txt build/host/orvane_tests --gtest_filter='Session.*'
// and looked through with git diff before it is committed.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

#include "golden/session_text.h"
#include "harness/all_properties.h"
#include "harness/driver_test.h"
#include "support/hex_text.h"

namespace orvane::test {
namespace {

std::string narrow(std::wstring_view text) { return std::string(text.begin(), text.end()); }

std::string hex(const Bytes& bytes) { return hexText<std::string>(bytes.data(), bytes.size()); }

std::string statusText(DWORD status) {
  std::ostringstream text;
  text << "0x" << std::hex << std::uppercase << status;
  return text.str();
}

// Lines of the log with the time of each masked: "dd/mm::hh:mm:ss:mmm-> ->DEBUG ::=>text".
std::string maskedLine(const std::string& line) {
  const std::string_view tag = line.starts_with("D ") ? "DEBUG" : line.starts_with("E ") ? "ERROR" : "?????";
  return "dd/mm::hh:mm:ss:mmm-> ->" + std::string(tag) + " ::=>" + line.substr(2) + "\n";
}

class Session : public DriverTest {
 protected:
  // Notes a call, what it returned, and the lines that it wrote.
  void note(const std::string& call, DWORD status, const std::string& outputs = "") {
    transcript_ += "\n# " + call + " = " + statusText(status) + (outputs.empty() ? "" : ", " + outputs) + "\n";
    noteLog();
  }
  void noteLog() {
    for (const std::string& line : takeLog()) transcript_ += maskedLine(line);
  }
  // One poll of the monitor.
  void notePoll(const std::string& event) {
    pollMonitor();
    transcript_ += "\n# " + event + "\n";
    noteLog();
  }

  void enumerate(const char* directory) {
    LPSTR names = nullptr;
    DWORD size = 0;
    std::string name = directory;
    const DWORD status = record_.pfnCardEnumFiles(&record_, name.data(), &names, &size, 0);
    std::string listed;
    for (const std::uint8_t c : names != nullptr ? takeBuffer(names, size) : Bytes()) {
      listed += c == 0 ? '|' : static_cast<char>(c);
    }
    note("CardEnumFiles \"" + name + "\"", status, listed);
  }

  void read(const char* directory, const char* file) {
    PBYTE data = nullptr;
    DWORD size = 0;
    std::string directoryName = directory;
    std::string fileName = file;
    const DWORD status = record_.pfnCardReadFile(&record_, directoryName.data(), fileName.data(), 0, &data, &size);
    note("CardReadFile \"" + directoryName + "\" \"" + fileName + "\"", status,
         std::to_string(size) + " bytes" + (data != nullptr ? " " + hex(takeBuffer(data, size == 0 ? 1 : size)) : ""));
  }

  void fileInfo(const char* directory, const char* file) {
    CARD_FILE_INFO info{};
    std::string directoryName = directory;
    std::string fileName = file;
    const DWORD status = record_.pfnCardGetFileInfo(&record_, directoryName.data(), fileName.data(), &info);
    note("CardGetFileInfo \"" + directoryName + "\" \"" + fileName + "\"", status,
         std::to_string(info.cbFileSize) + " bytes, access " + std::to_string(info.AccessCondition));
  }

  void container(BYTE index) {
    CONTAINER_INFO info{};
    info.dwVersion = CONTAINER_INFO_CURRENT_VERSION;
    const DWORD status = record_.pfnCardGetContainerInfo(&record_, index, 0, &info);
    const std::string signature =
        info.pbSigPublicKey != nullptr ? hex(takeBuffer(info.pbSigPublicKey, info.cbSigPublicKey)) : "none";
    const std::string exchange =
        info.pbKeyExPublicKey != nullptr ? hex(takeBuffer(info.pbKeyExPublicKey, info.cbKeyExPublicKey)) : "none";
    note("CardGetContainerInfo " + std::to_string(index), status, "signature " + signature + ", exchange " + exchange);
  }

  void property(LPCWSTR name, DWORD flags) {
    DWORD size = 0;
    const DWORD sizeStatus = record_.pfnCardGetProperty(&record_, name, nullptr, 0, &size, flags);
    note("CardGetProperty \"" + narrow(name) + "\" without a buffer", sizeStatus, std::to_string(size) + " bytes");
    Bytes data(size, kPoison);
    const DWORD status = record_.pfnCardGetProperty(&record_, name, data.data(), size, &size, flags);
    note("CardGetProperty \"" + narrow(name) + "\"", status, hex(data));
  }

  void authenticate(const std::string& what, const char* pin, DWORD flags) {
    PinBytes bytes(*pin != 0 ? std::optional<std::string>(pin) : std::nullopt);
    PBYTE sessionPin = nullptr;
    DWORD sessionPinLength = 99;
    DWORD attempts = 99;
    const DWORD status = record_.pfnCardAuthenticateEx(&record_, ROLE_USER, flags, bytes.data(), bytes.size(),
                                                       &sessionPin, &sessionPinLength, &attempts);
    note("CardAuthenticateEx " + what, status, std::to_string(attempts) + " attempts");
  }

  void sign(BYTE index) {
    Bytes hash(32, 0x5A);
    CARD_SIGNING_INFO info{};
    info.dwVersion = 2;
    info.bContainerIndex = index;
    info.pbData = hash.data();
    info.cbData = static_cast<DWORD>(hash.size());
    const DWORD status = record_.pfnCardSignData(&record_, &info);
    const std::string signature = info.pbSignedData != nullptr ? hex(takeBuffer(info.pbSignedData, 256)) : "none";
    note("CardSignData " + std::to_string(index), status, std::to_string(info.cbSignedData) + " bytes " + signature);
  }

  void decrypt(BYTE index, DWORD padding) {
    Bytes block(512, 0x3C);
    block.front() = 0x11;
    block.back() = 0x22;
    CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
    info.bContainerIndex = index;
    info.dwPaddingType = padding;
    const DWORD status = record_.pfnCardRSADecrypt(&record_, &info);
    block.resize(info.cbData);
    note("CardRSADecrypt " + std::to_string(index) + " padding " + std::to_string(padding), status,
         std::to_string(info.cbData) + " bytes" + (status == 0 ? " " + hex(block) : ""));
  }

  void changePin(const std::string& what, const char* from, const char* to) {
    PinBytes fromBytes{std::string(from)};
    PinBytes toBytes{std::string(to)};
    DWORD attempts = 99;
    const DWORD status =
        record_.pfnCardChangeAuthenticatorEx(&record_, PIN_CHANGE_FLAG_CHANGEPIN, ROLE_USER, fromBytes.data(),
                                             fromBytes.size(), ROLE_USER, toBytes.data(), toBytes.size(), 0, &attempts);
    note("CardChangeAuthenticatorEx " + what, status, std::to_string(static_cast<int>(attempts)) + " attempts");
  }

  CARD_DATA record_{};
  std::string transcript_ = "A session with a token: every call with its result, and below it the lines it logged.\n";
};

TEST_F(Session, LogsAsItAlwaysDid) {
  const OrvaneKeyPair signatureKey = makeKey(0x11, 1);
  const OrvaneKeyPair exchangeKey = makeKey(0x22, 2, 4096);
  defineToken({.keys = {signatureKey, exchangeKey}});
  setCertificate(kSerial, signatureKey, makeCertificate(0x40, 16));
  setCertificate(kSerial, exchangeKey, makeCertificate(0x80, 24));
  resourceManager.readerName = "OrvaneDSC 0";
  resourceManager.reply = {'0', '0', '1', '2', 'A', 'B', 0x90, 0x00};

  record_ = newRecord();
  record_.hScard = kCardHandle;
  {
    const Trace trace(logFolder());
    note("CardAcquireContext", acquire(record_));
    EXPECT_EQ(linesWith("SCardTransmit ", trace.with({})),
              Lines{"SCardTransmit handle=0x2A protocol=2 pci=8 recv=64 FFFF00D5000000"});
  }
  notePoll("the monitor sees the token");

  enumerate("");
  enumerate("mscp");
  for (const char* const file : {"cardid", "cardcf"}) read("", file);
  for (const char* const file : {"cmapfile", "ksc0", "kxc1", "ksc2", "msroots", "nosuch"}) read("mscp", file);
  fileInfo("", "cardid");
  for (const char* const file : {"cardcf", "cmapfile", "ksc0", "kxc1", "msroots", "nosuch"}) fileInfo("mscp", file);
  for (const BYTE index : {BYTE{0}, BYTE{1}, BYTE{2}}) container(index);
  for (const CardProperty& wanted : kCardProperties) property(wanted.name, wanted.flags);
  property(CP_PARENT_WINDOW, 0);

  authenticate("without a PIN", "", 0);
  authenticate("with a wrong PIN", kWrongPin, 0);
  authenticate("with the right PIN", kUserPin, 0);
  authenticate("silently", "", CARD_PIN_SILENT_CONTEXT);
  property(CP_CARD_AUTHENTICATED_STATE, 0);
  sign(0);
  decrypt(1, CARD_PADDING_PKCS1);
  decrypt(1, CARD_PADDING_OAEP);
  changePin("with a wrong PIN", kWrongPin, kNewPin);
  changePin("with the right PIN", kUserPin, kNewPin);
  decrypt(1, CARD_PADDING_OAEP);
  read("", "cardcf");
  note("CardDeauthenticateEx", record_.pfnCardDeauthenticateEx(&record_, ROLE_USER, 0));
  property(CP_CARD_AUTHENTICATED_STATE, 0);
  sign(0);

  softtoken_set_connected(kSerial, 0);
  notePoll("the token is removed");
  read("", "cardcf");
  read("mscp", "cmapfile");
  sign(0);
  softtoken_set_connected(kSerial, 1);
  notePoll("the token is back");
  read("", "cardcf");
  read("mscp", "cmapfile");
  authenticate("with the new PIN", kNewPin, 0);
  sign(0);
  note("CardDeleteContext", record_.pfnCardDeleteContext(&record_));
  note("CardDeleteContext again", record_.pfnCardDeleteContext(&record_));
  EXPECT_EQ(takeMonitorStarts(), 1u);

  if (const char* const path = std::getenv("ORVANE_WRITE_SESSION")) {
    std::ofstream(path, std::ios::binary) << transcript_;
    ADD_FAILURE() << path << " was written; build again and run without ORVANE_WRITE_SESSION";
  } else {
    EXPECT_EQ(transcript_, kSessionText);
  }
}

}  // namespace
}  // namespace orvane::test
