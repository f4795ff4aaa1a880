#include "harness/entry_test.h"

#include <ostream>

namespace orvane::test {
namespace {

void printLines(const char* name, const Lines& lines, std::ostream& stream) {
  stream << "\n  " << name << ":";
  for (const std::string& line : lines) stream << "\n    \"" << line << "\"";
}

}  // namespace

void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << "status 0x" << std::hex << std::uppercase << outcome.status << std::dec;
  printLines("log", outcome.log, *stream);
  printLines("calls", outcome.calls, *stream);
}

Lines concat(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Lines withHandle(const std::string& call) {
  return {"orvane_setExternalSmartcardHandle(0x2A)", call + " [card 0x2A]",
          "orvane_clearExternalSmartcardHandle() [card 0x2A]"};
}

Lines withoutHandle(const std::string& call) { return {call, "orvane_clearExternalSmartcardHandle()"}; }

Bytes words(const std::vector<std::uint32_t>& values) {
  Bytes bytes;
  for (const std::uint32_t value : values) {
    for (unsigned shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  }
  return bytes;
}

Bytes wideBytes(std::wstring_view text) {
  Bytes bytes;
  for (const wchar_t unit : text) {
    bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>((unit >> 8) & 0xFF));
  }
  return bytes;
}

void EntryTest::TearDown() {
  closeAll();
  DriverTest::TearDown();
}

void EntryTest::defineCard(const std::vector<OrvaneKeyPair>& keys, const char* serial) {
  const SofttokenTokenDefinition definition{serial, "2.1.0", kUserPin, kSoPin, 3, 3, 0, 0, kSofttokenKeep};
  ASSERT_EQ(softtoken_define_token(&definition), 1);
  for (const OrvaneKeyPair& key : keys) ASSERT_EQ(softtoken_add_key(serial, &key), 1);
  for (const char* const pin : {kUserPin, kNewPin, kWrongPin, kSoPin}) addPin(pin);
}

CARD_DATA& EntryTest::openContext() {
  CARD_DATA& record = records_.emplace_back(newRecord());
  acquireQuietly(record);
  record.hScard = kCardHandle;
  return record;
}

CARD_DATA& EntryTest::open(const std::vector<OrvaneKeyPair>& keys) {
  defineCard(keys);
  return openContext();
}

CARD_DATA& EntryTest::openFresh(const std::vector<OrvaneKeyPair>& keys) {
  closeAll();
  reloadDriver();
  return open(keys);
}

void EntryTest::closeAll() {
  for (CARD_DATA& record : records_) {
    if (record.pvVendorSpecific != nullptr) EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
  }
  records_.clear();
}

CARD_DATA EntryTest::withoutContext(const CARD_DATA& record) {
  CARD_DATA copy = record;
  copy.pvVendorSpecific = nullptr;
  return copy;
}

void EntryTest::answer(const char* function, const std::optional<Answer>& prepared) {
  if (prepared) queueResult(function, prepared->result, prepared->attempts);
}

void EntryTest::authenticate(CARD_DATA& record, PIN_ID pinId, const std::string& pin) {
  PinBytes bytes(pin);
  ASSERT_EQ(record.pfnCardAuthenticateEx(&record, pinId, 0, bytes.data(), bytes.size(), nullptr, nullptr, nullptr), 0u);
  forget();
}

void EntryTest::dropCachedPin(CARD_DATA& record) {
  PinBytes bytes{std::string(kWrongPin)};
  wchar_t user[] = L"user";
  ASSERT_EQ(record.pfnCardAuthenticatePin(&record, user, bytes.data(), bytes.size(), nullptr), code(SCARD_W_WRONG_CHV));
  forget();
}

void EntryTest::changeUserPin(CARD_DATA& record, const std::string& from, const std::string& to) {
  PinBytes fromBytes(from);
  PinBytes toBytes(to);
  ASSERT_EQ(
      record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, ROLE_USER, fromBytes.data(),
                                          fromBytes.size(), ROLE_USER, toBytes.data(), toBytes.size(), 0, nullptr),
      0u);
  forget();
}

void EntryTest::setSerial(CARD_DATA& record, const std::string& serial) {
  std::wstring wide(serial.begin(), serial.end());
  ASSERT_EQ(record.pfnCardSetProperty(&record, CP_CARD_SERIAL_NO, reinterpret_cast<PBYTE>(wide.data()),
                                      static_cast<DWORD>(wide.size() * sizeof(wchar_t)), 0),
            0u);
  forget();
}

void EntryTest::learnFirmware(CARD_DATA& record, const char* firmware) {
  ASSERT_EQ(softtoken_set_firmware(inside(record).serialNumber.c_str(), firmware), 1);
  changeUserPin(record, kUserPin, kNewPin);
  changeUserPin(record, kNewPin, kUserPin);
}

std::string EntryTest::cachedPin(CARD_DATA& record) {
  // A signature that the library refuses: its arguments show the PIN.
  queueResult("orvane_signHash", 1);
  Bytes hash(32, 0x11);
  CARD_SIGNING_INFO info{};
  info.pbData = hash.data();
  info.cbData = static_cast<DWORD>(hash.size());
  const Outcome outcome = observe([&] { return record.pfnCardSignData(&record, &info); });
  EXPECT_EQ(outcome.status, code(SCARD_E_INVALID_PARAMETER));
  if (info.pbSignedData != nullptr) freeBuffer(info.pbSignedData);
  for (const std::string& call : outcome.calls) {
    if (!call.starts_with("orvane_signHash(")) continue;
    // The third argument; texts in these tests contain no ", ".
    std::size_t begin = call.find(", ", call.find(", ") + 2) + 2;
    return call.substr(begin + 1, call.find(", ", begin) - begin - 2);
  }
  ADD_FAILURE() << "the library was not asked to sign";
  return "?";
}

PIN_SET EntryTest::authenticatedState(CARD_DATA& record) {
  PIN_SET state = kPoison32;
  DWORD length = 0;
  EXPECT_EQ(record.pfnCardGetProperty(&record, CP_CARD_AUTHENTICATED_STATE, reinterpret_cast<PBYTE>(&state),
                                      sizeof(state), &length, 0),
            0u);
  forget();
  return state;
}

Bytes EntryTest::cardCf(CARD_DATA& record) {
  char name[] = "cardcf";
  PBYTE data = nullptr;
  DWORD size = 0;
  EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, name, 0, &data, &size), 0u);
  forget();
  return data != nullptr ? takeBuffer(data, size) : Bytes();
}

}  // namespace orvane::test
