// CardRSADecrypt: one row for every step, in the order of the steps.
#include <algorithm>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr char kDecryptEntry[] = "D CardRSADecrypt :: LOG_FUNCTION_NAME = Entry";
constexpr char kPkcs1[] = "D CardRSADecrypt: PaddingType=PKCS1";

struct DecryptCase {
  const char* name = "";
  DWORD cardVersion = 7;
  DWORD version = 2;
  BYTE index = 0;
  DWORD keySpec = AT_KEYEXCHANGE;
  DWORD padding = CARD_PADDING_PKCS1;
  Bytes cipherText = {1, 2, 3, 4, 5};  // least significant byte first
  SCARDHANDLE cardHandle = kCardHandle;
  std::optional<Answer> answer = std::nullopt;
  DWORD status = 0;
  Lines trace = {};                               // after the entry line
  std::optional<Bytes> plaintext = std::nullopt;  // none: buffer and length untouched
};

Lines chosen(const std::string& padding, unsigned index, unsigned keySpec, std::uint8_t id) {
  return {"D CardRSADecrypt: PaddingType=" + padding,
          "D CardRSADecrypt: containerIndex=" + std::to_string(index) + ", dwKeySpec=" + std::to_string(keySpec),
          "D CardRSADecrypt: credentialId=" + idOf(id)};
}

std::string decryptSuccess(unsigned length) {
  return "D CardRSADecrypt: decryption successful, length=" + std::to_string(length);
}

std::string decrypt(std::uint8_t id, const std::string& pin, const std::string& bytes, unsigned length) {
  return "orvane_decrypt(\"0012AB\", " + idOf(id) + ", \"" + pin + "\", " + bytes + ", " + std::to_string(length) +
         ", false, null)";
}

std::string repeated(const char* text, unsigned count) {
  std::string result;
  for (unsigned i = 0; i < count; ++i) result.append(text);
  return result;
}

class DecryptTest : public DriverTest {
 protected:
  // The members that must not matter are poisoned.
  static CARD_RSA_DECRYPT_INFO request(const DecryptCase& row, Bytes& buffer) {
    auto info = poisoned<CARD_RSA_DECRYPT_INFO>();
    info.dwVersion = row.version;
    info.bContainerIndex = row.index;
    info.dwKeySpec = row.keySpec;
    info.pbData = buffer.data();
    info.cbData = static_cast<DWORD>(row.cipherText.size());
    info.dwPaddingType = row.padding;
    return info;
  }

  void run(CARD_DATA& record, const DecryptCase& row) {
    SCOPED_TRACE(row.name);
    answer("orvane_decrypt", row.answer);
    record.hScard = row.cardHandle;
    record.dwVersion = row.cardVersion;
    Bytes buffer = row.cipherText;
    buffer.insert(buffer.end(), 8, kPoison);
    Bytes expectedBuffer = buffer;
    CARD_RSA_DECRYPT_INFO info = request(row, buffer);
    CARD_RSA_DECRYPT_INFO expected = info;
    EXPECT_EQ(observe([&] { return record.pfnCardRSADecrypt(&record, &info); }),
              (Outcome{row.status, concat({kDecryptEntry}, row.trace)}));
    if (row.plaintext) {
      expected.cbData = static_cast<DWORD>(row.plaintext->size());
      ASSERT_LE(row.plaintext->size(), row.cipherText.size());
      std::copy(row.plaintext->begin(), row.plaintext->end(), expectedBuffer.begin());
    }
    EXPECT_EQ(bytesOf(info), bytesOf(expected));
    EXPECT_EQ(buffer, expectedBuffer);
    record.dwVersion = 7;
  }

  template <std::size_t kCount>
  void runAll(CARD_DATA& record, const DecryptCase (&cases)[kCount]) {
    for (const DecryptCase& row : cases) run(record, row);
  }
};

TEST_F(DecryptTest, RefusesArgumentsInOrder) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  Bytes buffer(16, kPoison);
  DecryptCase row;
  row.cipherText = buffer;
  const CARD_RSA_DECRYPT_INFO good = request(row, buffer);
  CARD_RSA_DECRYPT_INFO noData = good;
  noData.pbData = nullptr;
  CARD_RSA_DECRYPT_INFO old = good;
  old.dwVersion = 1;
  CARD_RSA_DECRYPT_INFO oaep = good;
  oaep.dwPaddingType = CARD_PADDING_OAEP;
  const Outcome invalid{87, {kDecryptEntry, "E CardRSADecrypt: invalid parameters"}};
  const struct {
    const char* name;
    PCARD_DATA record;
    const CARD_RSA_DECRYPT_INFO* info;
    Outcome outcome;
  } cases[] = {
      {"no record", nullptr, &good, invalid},
      {"no request", &record, nullptr, invalid},
      {"no data, before no context", &noContext, &noData, invalid},
      {"version 1, before no context",
       &noContext,
       &old,
       {1306, {kDecryptEntry, kPkcs1, "E CardRSADecrypt: version mismatch"}}},
      {"no context", &noContext, &good, {87, {kDecryptEntry, kPkcs1, "E CardRSADecrypt: provider context is NULL"}}},
      {"no context, before the padding",
       &noContext,
       &oaep,
       {87, {kDecryptEntry, "D CardRSADecrypt: PaddingType=OAEP", "E CardRSADecrypt: provider context is NULL"}}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    std::optional<CARD_RSA_DECRYPT_INFO> info;
    if (test.info != nullptr) info = *test.info;
    EXPECT_EQ(observe([&] { return record.pfnCardRSADecrypt(test.record, info ? &*info : nullptr); }), test.outcome);
    if (info) EXPECT_EQ(bytesOf(*info), bytesOf(*test.info));
    EXPECT_EQ(buffer, Bytes(16, kPoison));
  }
}

TEST_F(DecryptTest, HoldsOnlyVersion7CallersToTheRecordsVersion) {
  CARD_DATA& record = open({makeKey(1, 2)});
  authenticate(record);
  const Lines refused = {kPkcs1, "E CardRSADecrypt: version mismatch"};
  const Lines decrypted =
      inOrder(chosen("PKCS1", 0, 1, 1), withHandle(decrypt(1, kUserPin, "0504030201", 5)), decryptSuccess(5));
  const Bytes plaintext = {1, 2, 3, 4, 5};
  const DecryptCase cases[] = {
      {.name = "0 of 7", .version = 0, .status = 1306, .trace = refused},
      {.name = "1 of 7", .version = 1, .status = 1306, .trace = refused},
      {.name = "1 of 7, before the padding",
       .version = 1,
       .padding = CARD_PADDING_OAEP,
       .status = 1306,
       .trace = {"D CardRSADecrypt: PaddingType=OAEP", "E CardRSADecrypt: version mismatch"}},
      {.name = "2 of 7", .trace = decrypted, .plaintext = plaintext},
      {.name = "3 of 7", .version = 3, .trace = decrypted, .plaintext = plaintext},
      {.name = "1 of 6", .cardVersion = 6, .version = 1, .trace = decrypted, .plaintext = plaintext},
      {.name = "0 of 5", .cardVersion = 5, .version = 0, .trace = decrypted, .plaintext = plaintext},
      {.name = "1 of 8", .cardVersion = 8, .version = 1, .trace = decrypted, .plaintext = plaintext},
  };
  runAll(record, cases);
}

TEST_F(DecryptTest, NamesThePadding) {
  CARD_DATA& record = open({makeKey(1, 2)});
  authenticate(record);
  const struct {
    DWORD padding;
    const char* label;
  } cases[] = {{CARD_PADDING_NONE, "NONE"},
               {CARD_PADDING_PKCS1, "PKCS1"},
               {CARD_PADDING_PSS, "UNKNOWN(4)"},
               {0, "UNKNOWN(0)"},
               {3, "UNKNOWN(3)"},
               {10, "UNKNOWN(10)"},
               {16, "UNKNOWN(16)"},
               {0xFFFFFFFF, "UNKNOWN(4294967295)"}};
  for (const auto& row : cases) {
    run(record, {.name = row.label,
                 .padding = row.padding,
                 .trace = inOrder(chosen(row.label, 0, 1, 1), withHandle(decrypt(1, kUserPin, "0504030201", 5)),
                                  decryptSuccess(5)),
                 .plaintext = Bytes{1, 2, 3, 4, 5}});
  }
}

TEST_F(DecryptTest, OaepNeedsNewFirmware) {
  CARD_DATA& record = open({makeKey(1, 2)});
  const DecryptCase refused{
      .name = "refused, before the index",
      .index = 9,
      .padding = CARD_PADDING_OAEP,
      .status = code(SCARD_E_UNSUPPORTED_FEATURE),
      .trace = {"D CardRSADecrypt: PaddingType=OAEP", "E CardRSADecrypt: OAEP not supported on this firmware"}};
  run(record, refused);  // nobody has looked at the firmware yet
  const struct {
    const char* firmware;
    bool isNewEnough;
  } cases[] = {{"2.0.0", true},  {"2.0", true},  {"2", true},       {"2.1", true}, {"10.0.0", true}, {"2.0.0.1", true},
               {"1.9.9", false}, {"1.9", false}, {"1.10.5", false}, {"0", false},  {"", false}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.firmware);
    learnFirmware(record, row.firmware);
    if (!row.isNewEnough) {
      run(record, refused);
      continue;
    }
    run(record, {.name = "accepted",
                 .padding = CARD_PADDING_OAEP,
                 .trace = inOrder(chosen("OAEP", 0, 1, 1), withHandle(decrypt(1, kUserPin, "0504030201", 5)),
                                  decryptSuccess(5)),
                 .plaintext = Bytes{1, 2, 3, 4, 5}});
  }
  learnFirmware(record, "2.1.0");
  setSerial(record, "nobody");
  run(record, refused);
}

TEST_F(DecryptTest, ChoosesTheKeyThatFits) {
  CARD_DATA& record = open({makeKey(1, 1), makeKey(2, 2), makeKey(3, 3), makeKey(4, 0), makeKey(5, 4), makeKey(6, 4)});
  authenticate(record);
  setKeys(record, 4, {});
  // Only the first key counts.
  setKeys(record, 5, {makeKey(6, 4), makeKey(7, 3)});
  const DWORD none = code(SCARD_E_NO_KEY_CONTAINER);
  const auto index = [](unsigned value) {
    return "E CardRSADecrypt: invalid container index=" + std::to_string(value) + ", containerCount=6";
  };
  const auto fits = [](const char* name, unsigned position, DWORD keySpec, std::uint8_t id) {
    return DecryptCase{.name = name,
                       .index = static_cast<BYTE>(position),
                       .keySpec = keySpec,
                       .trace = inOrder(chosen("PKCS1", position, keySpec, id),
                                        withHandle(decrypt(id, kUserPin, "0504030201", 5)), decryptSuccess(5)),
                       .plaintext = Bytes{1, 2, 3, 4, 5}};
  };
  const auto misfits = [&](const char* name, unsigned position, DWORD keySpec) {
    return DecryptCase{.name = name,
                       .index = static_cast<BYTE>(position),
                       .keySpec = keySpec,
                       .status = none,
                       .trace = {kPkcs1, "E CardRSADecrypt: key usage does not match dwKeySpec"}};
  };
  const DecryptCase cases[] = {
      {.name = "an index equal to the count", .index = 6, .status = none, .trace = {kPkcs1, index(6)}},
      {.name = "the largest index, before the key spec",
       .index = 255,
       .keySpec = 0,
       .status = none,
       .trace = {kPkcs1, index(255)}},
      {.name = "key spec 0, before a container without keys",
       .index = 4,
       .keySpec = 0,
       .status = 87,
       .trace = {kPkcs1, "E CardRSADecrypt: invalid dwKeySpec=0"}},
      {.name = "key spec 3", .keySpec = 3, .status = 87, .trace = {kPkcs1, "E CardRSADecrypt: invalid dwKeySpec=3"}},
      {.name = "the largest key spec",
       .keySpec = 0xFFFFFFFF,
       .status = 87,
       .trace = {kPkcs1, "E CardRSADecrypt: invalid dwKeySpec=4294967295"}},
      {.name = "a container without keys",
       .index = 4,
       .status = none,
       .trace = {kPkcs1, "E CardRSADecrypt: container has no keys"}},
      misfits("key exchange, usage 1", 0, AT_KEYEXCHANGE),
      misfits("signature, usage 2", 1, AT_SIGNATURE),
      misfits("key exchange, usage 0", 3, AT_KEYEXCHANGE),
      misfits("signature, usage 0", 3, AT_SIGNATURE),
      misfits("key exchange, usage 4", 5, AT_KEYEXCHANGE),
      misfits("signature, usage 4", 5, AT_SIGNATURE),
      fits("signature, usage 1", 0, AT_SIGNATURE, 1),
      fits("key exchange, usage 2", 1, AT_KEYEXCHANGE, 2),
      fits("signature, usage 3", 2, AT_SIGNATURE, 3),
      fits("key exchange, usage 3", 2, AT_KEYEXCHANGE, 3),
  };
  runAll(record, cases);
}

TEST_F(DecryptTest, ReversesOnTheWayInAndOut) {
  CARD_DATA& record = open({makeKey(1, 2)});
  authenticate(record);
  Bytes block(256);
  std::string bigEndian;
  for (std::size_t i = 0; i < block.size(); ++i) {
    block[i] = static_cast<std::uint8_t>(i * 7 + 1);
    const char digits[] = {"0123456789ABCDEF"[block[i] >> 4], "0123456789ABCDEF"[block[i] & 15]};
    bigEndian.insert(0, digits, 2);
  }
  const Lines begin = chosen("PKCS1", 0, 1, 1);
  run(record, {.name = "a whole block",
               .cipherText = block,
               .trace = inOrder(begin, withHandle(decrypt(1, kUserPin, bigEndian, 256)), decryptSuccess(48)),
               // The token's plaintext is the beginning of the cipher text as the token sees it.
               .plaintext = Bytes(block.end() - 48, block.end())});
  run(record, {.name = "AA BB CC of the library",
               .answer = answerOf(0, 3, {0xAA, 0xBB, 0xCC}),
               .trace = inOrder(begin, withHandle(decrypt(1, kUserPin, "0504030201", 5)), decryptSuccess(3)),
               .plaintext = Bytes{0xCC, 0xBB, 0xAA}});
  // No key is that long; the token is to say so.
  run(record, {.name = "longer than the block of any key",
               .cipherText = Bytes(1025, 0xAB),
               .answer = answerOf(0, 2, {0x01, 0x02}),
               .trace = inOrder(begin, withHandle(decrypt(1, kUserPin, repeated("AB", 1025), 1025)), decryptSuccess(2)),
               .plaintext = Bytes{0x02, 0x01}});
  run(record, {.name = "one byte",
               .cipherText = {0x7F},
               .trace = inOrder(begin, withHandle(decrypt(1, kUserPin, "7F", 1)), decryptSuccess(1)),
               .plaintext = Bytes{0x7F}});
}

TEST_F(DecryptTest, MapsTheLibrarysResult) {
  CARD_DATA& record = open({makeKey(1, 2)});
  authenticate(record);
  const Lines begun = inOrder(chosen("PKCS1", 0, 1, 1), withHandle(decrypt(1, kUserPin, "0504030201", 5)));
  const auto failure = [&](const char* name, const Answer& answer, DWORD status, const char* line) {
    return DecryptCase{.name = name, .answer = answer, .status = status, .trace = concat(begun, {line})};
  };
  const DWORD invalid = code(SCARD_E_INVALID_PARAMETER);
  const DWORD tooSmall = code(SCARD_E_INSUFFICIENT_BUFFER);
  const char* const larger = "E CardRSADecrypt: decrypted length larger than buffer";
  const DecryptCase cases[] = {
      failure("1", answerOf(1), invalid, "E CardRSADecrypt: orvane_decrypt failed, ret=1"),
      failure("-1", answerOf(-1), invalid, "E CardRSADecrypt: orvane_decrypt failed, ret=-1"),
      failure("51 means nothing here", answerOf(51), invalid, "E CardRSADecrypt: orvane_decrypt failed, ret=51"),
      failure("one byte longer", answerOf(0, 6, {1, 2, 3, 4, 5, 6}), tooSmall, larger),
      failure("far longer", answerOf(0, 100, Bytes(100, 1)), tooSmall, larger),
      failure("a negative length is a large one", answerOf(0, -1, {1}), tooSmall, larger),
      failure("a length without a block", answerOf(0, 3), tooSmall, larger),
      {.name = "exactly as long",
       .answer = answerOf(0, 5, {1, 2, 3, 4, 6}),
       .trace = concat(begun, {decryptSuccess(5)}),
       .plaintext = Bytes{6, 4, 3, 2, 1}},
      {.name = "length 0",
       .answer = answerOf(0, 0, {1}),
       .trace = concat(begun, {decryptSuccess(0)}),
       .plaintext = Bytes()},
      {.name = "no block, length 0",
       .answer = answerOf(0, 0, {}),
       .trace = concat(begun, {decryptSuccess(0)}),
       .plaintext = Bytes()},
      {.name = "no length stored",
       .answer = answerOf(0, kSofttokenKeep, {1}),
       .trace = concat(begun, {decryptSuccess(0)}),
       .plaintext = Bytes()},
  };
  runAll(record, cases);
}

TEST_F(DecryptTest, PassesLengthHandleAndPinAsTheyAre) {
  CARD_DATA& record = open({makeKey(1, 2)});
  const Lines begin = chosen("PKCS1", 0, 1, 1);
  run(record, {.name = "nobody authenticated",
               .status = code(SCARD_E_INVALID_PARAMETER),
               .trace = inOrder(begin, withHandle(decrypt(1, "", "0504030201", 5)),
                                "E CardRSADecrypt: orvane_decrypt failed, ret=257")});
  authenticate(record, 0);
  run(record, {.name = "no cipher text",
               .cipherText = {},
               .status = code(SCARD_E_INVALID_PARAMETER),
               .trace = inOrder(begin, withHandle(decrypt(1, kUserPin, "null", 0)),
                                "E CardRSADecrypt: orvane_decrypt failed, ret=33")});
  run(record, {.name = "no card handle",
               .cardHandle = 0,
               .trace = inOrder(begin, withoutHandle(decrypt(1, kUserPin, "0504030201", 5)), decryptSuccess(5)),
               .plaintext = Bytes{1, 2, 3, 4, 5}});
}

}  // namespace
}  // namespace orvane::test
