// CardSignData: one row for every step, in the order of the steps.
#include <algorithm>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr char kSignEntry[] = "D CardSignData :: LOG_FUNCTION_NAME = Entry";
constexpr char kHash[] = "A0A1A2A3A4A5A6A7A8A9AAABACADAEAFB0B1B2B3B4B5B6B7B8B9BABBBCBDBEBF";

struct SignCase {
  const char* name = "";
  BYTE index = 0;
  DWORD flags = 0;
  std::optional<DWORD> hashLength = std::nullopt;  // none: that of the hash
  SCARDHANDLE cardHandle = kCardHandle;
  std::optional<Answer> answer = std::nullopt;
  DWORD status = 0;
  Lines trace = {};                                     // after the entry line
  std::optional<std::size_t> buffer = std::nullopt;     // the size asked for; none: pbSignedData untouched
  std::optional<DWORD> signatureLength = std::nullopt;  // none: cbSignedData untouched
  Bytes signature = {};                                 // the first bytes of the buffer
};

std::string request(unsigned index, unsigned count, const std::string& flags, unsigned authenticated = 0) {
  return "D === CardSignData: serial=[0012AB] containerIndex=" + std::to_string(index) +
         " containerListSize=" + std::to_string(count) + " dwSigningFlags=0x" + flags +
         " userPinAuth=" + std::to_string(authenticated);
}

std::string key(unsigned index, std::uint8_t id, int usage, unsigned algorithm) {
  return "D CardSignData: using container[" + std::to_string(index) + "] credId=" + idOf(id) +
         ", usage=" + std::to_string(usage) + ", alg=" + std::to_string(algorithm);
}

std::string size(unsigned bytes) { return "D CardSignData: modulus size determined = " + std::to_string(bytes); }

std::string signSuccess(unsigned bytes) { return "D CardSignData: success, signature length=" + std::to_string(bytes); }

std::string sign(std::uint8_t id, const std::string& pin, const std::string& hash = kHash, int length = 32) {
  return "orvane_signHash(\"0012AB\", " + idOf(id) + ", \"" + pin + "\", " + hash + ", " + std::to_string(length) +
         ", false, null, false)";
}

// The software token's signature as the caller gets it: 01 02 03 ... FF 00 01 ..., last byte first.
Bytes reversedPattern(std::size_t length) {
  Bytes bytes(length);
  for (std::size_t i = 0; i < length; ++i) bytes[length - 1 - i] = static_cast<std::uint8_t>((i + 1) & 0xFF);
  return bytes;
}

OrvaneKeyPair keyWithAlgorithm(std::uint8_t id, std::uint32_t algorithm) {
  OrvaneKeyPair pair = makeKey(id, 1);
  pair.algorithm = algorithm;
  return pair;
}

class SignTest : public DriverTest {
 protected:
  // All members that must not matter are poisoned, the outputs, too.
  CARD_SIGNING_INFO request(const SignCase& row) {
    auto info = poisoned<CARD_SIGNING_INFO>();
    info.bContainerIndex = row.index;
    info.dwSigningFlags = row.flags;
    info.pbData = hash_.data();
    info.cbData = row.hashLength.value_or(static_cast<DWORD>(hash_.size()));
    return info;
  }

  void run(CARD_DATA& record, const SignCase& row) { run(record, row, request(row)); }

  void run(CARD_DATA& record, const SignCase& row, CARD_SIGNING_INFO info) {
    answer("orvane_signHash", row.answer);
    record.hScard = row.cardHandle;
    CARD_SIGNING_INFO expected = info;
    const Outcome outcome = observe([&] { return record.pfnCardSignData(&record, &info); });
    EXPECT_EQ(outcome, (Outcome{row.status, concat({kSignEntry}, row.trace)}));
    if (row.signatureLength) expected.cbSignedData = *row.signatureLength;
    if (row.buffer) {
      EXPECT_NE(info.pbSignedData, expected.pbSignedData);
      expected.pbSignedData = info.pbSignedData;
    }
    EXPECT_EQ(bytesOf(info), bytesOf(expected));
    EXPECT_EQ(hash_, callersHash());
    if (row.buffer && info.pbSignedData != nullptr) {
      Bytes buffer = takeBuffer(info.pbSignedData, *row.buffer);
      ASSERT_LE(row.signature.size(), buffer.size());
      buffer.resize(row.signature.size());
      EXPECT_EQ(buffer, row.signature);
    }
  }

  template <std::size_t kCount>
  void runAll(CARD_DATA& record, const SignCase (&cases)[kCount]) {
    for (const SignCase& row : cases) {
      SCOPED_TRACE(row.name);
      run(record, row);
    }
  }

  static Bytes callersHash() {
    Bytes bytes(32);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(0xA0 + i);
    return bytes;
  }

  Bytes hash_ = callersHash();
};

TEST_F(SignTest, RefusesArgumentsInOrder) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  const CARD_SIGNING_INFO good = request(SignCase{});
  CARD_SIGNING_INFO noData = good;
  noData.pbData = nullptr;
  const struct {
    const char* name;
    PCARD_DATA record;
    const CARD_SIGNING_INFO* info;
    const char* line;
  } cases[] = {
      {"no record", nullptr, &good, "E CardSignData: invalid parameters"},
      {"no request", &record, nullptr, "E CardSignData: invalid parameters"},
      {"no hash, before no context", &noContext, &noData, "E CardSignData: invalid parameters"},
      {"no hash", &record, &noData, "E CardSignData: invalid parameters"},
      {"no context", &noContext, &good, "E CardSignData: provider context is NULL"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::optional<CARD_SIGNING_INFO> info;
    if (row.info != nullptr) info = *row.info;
    EXPECT_EQ(observe([&] { return record.pfnCardSignData(row.record, info ? &*info : nullptr); }),
              (Outcome{87, {kSignEntry, row.line}}));
    if (info) EXPECT_EQ(bytesOf(*info), bytesOf(*row.info));
  }
}

TEST_F(SignTest, ChoosesTheContainersFirstKey) {
  CARD_DATA& record = open({makeKey(1, 1), makeKey(2, 2, 3072), makeKey(3, 3)});
  authenticate(record);
  setKeys(record, 2, {});
  const DWORD none = code(SCARD_E_NO_KEY_CONTAINER);
  const SignCase cases[] = {
      {.name = "an index equal to the count",
       .index = 3,
       .status = none,
       .trace = {test::request(3, 3, "00000000", 1), "E CardSignData: invalid container index"}},
      {.name = "the largest index, the largest flags",
       .index = 255,
       .flags = 0xFFFFFFFF,
       .status = none,
       .trace = {test::request(255, 3, "FFFFFFFF", 1), "E CardSignData: invalid container index"}},
      {.name = "a container without keys",
       .index = 2,
       .status = none,
       .trace = {test::request(2, 3, "00000000", 1), "E CardSignData: container has no keys"}},
      {.name = "without keys, size only",
       .index = 2,
       .flags = CARD_BUFFER_SIZE_ONLY,
       .status = none,
       .trace = {test::request(2, 3, "20000000", 1), "E CardSignData: container has no keys"}},
      {.name = "first container",
       .trace = inOrder(test::request(0, 3, "00000000", 1), key(0, 1, 1, 2), size(256), alloc(256),
                        "D CardSignData: hash length=32", withHandle(sign(1, kUserPin)), signSuccess(256)),
       .buffer = 256,
       .signatureLength = 256,
       .signature = reversedPattern(256)},
      {.name = "second container, a key-exchange key",
       .index = 1,
       .flags = 0xDFFFFFFF,
       .trace = inOrder(test::request(1, 3, "DFFFFFFF", 1), key(1, 2, 2, 3), size(384), alloc(384),
                        "D CardSignData: hash length=32", withHandle(sign(2, kUserPin)), signSuccess(384)),
       .buffer = 384,
       .signatureLength = 384,
       .signature = reversedPattern(384)},
  };
  runAll(record, cases);
}

TEST_F(SignTest, SizeComesFromTheAlgorithmCode) {
  CARD_DATA& record =
      open({keyWithAlgorithm(1, 1), keyWithAlgorithm(2, 2), keyWithAlgorithm(3, 3), keyWithAlgorithm(4, 4),
            keyWithAlgorithm(5, 0), keyWithAlgorithm(6, 5), keyWithAlgorithm(7, 0xFFFFFFFF)});
  const std::string unknown = "E CardSignData: unknown key algorithm, defaulting to 256 bytes";
  const DWORD sizeOnly = CARD_BUFFER_SIZE_ONLY;
  const auto only = [](unsigned bytes) { return "D CardSignData: buffer size only -> " + std::to_string(bytes); };
  const auto asked = [](unsigned index) { return test::request(index, 7, "20000000"); };
  const SignCase cases[] = {
      {.name = "1",
       .index = 0,
       .flags = sizeOnly,
       .trace = {asked(0), key(0, 1, 1, 1), size(128), alloc(128), only(128)},
       .buffer = 128,
       .signatureLength = 128},
      {.name = "2",
       .index = 1,
       .flags = sizeOnly,
       .trace = {asked(1), key(1, 2, 1, 2), size(256), alloc(256), only(256)},
       .buffer = 256,
       .signatureLength = 256},
      {.name = "3",
       .index = 2,
       .flags = sizeOnly,
       .trace = {asked(2), key(2, 3, 1, 3), size(384), alloc(384), only(384)},
       .buffer = 384,
       .signatureLength = 384},
      {.name = "4",
       .index = 3,
       .flags = sizeOnly,
       .trace = {asked(3), key(3, 4, 1, 4), size(512), alloc(512), only(512)},
       .buffer = 512,
       .signatureLength = 512},
      {.name = "0",
       .index = 4,
       .flags = sizeOnly,
       .trace = {asked(4), key(4, 5, 1, 0), unknown, size(256), alloc(256), only(256)},
       .buffer = 256,
       .signatureLength = 256},
      {.name = "5, with other flags",
       .index = 5,
       .flags = 0x60000001,
       .trace = {test::request(5, 7, "60000001"), key(5, 6, 1, 5), unknown, size(256), alloc(256), only(256)},
       .buffer = 256,
       .signatureLength = 256},
      {.name = "the largest code",
       .index = 6,
       .flags = sizeOnly,
       .trace = {asked(6), key(6, 7, 1, 0xFFFFFFFF), unknown, size(256), alloc(256), only(256)},
       .buffer = 256,
       .signatureLength = 256},
  };
  runAll(record, cases);
  authenticate(record);
  run(record, {.name = "an unknown code signs, too",
               .index = 5,
               .trace = inOrder(test::request(5, 7, "00000000", 1), key(5, 6, 1, 5), unknown, size(256), alloc(256),
                                "D CardSignData: hash length=32", withHandle(sign(6, kUserPin)), signSuccess(256)),
               .buffer = 256,
               .signatureLength = 256,
               .signature = reversedPattern(256)});
}

// The library writes as many bytes as the key has, more than the caller's buffer; only a signature that fits there is
// handed over.
TEST_F(SignTest, KeyLongerThanItsAlgorithmCode) {
  OrvaneKeyPair pair = makeKey(1, 1, 4096);
  pair.algorithm = 2;
  CARD_DATA& record = open({pair});
  authenticate(record);
  Bytes answer = reversedPattern(256);
  std::reverse(answer.begin(), answer.end());
  const Lines begin = {test::request(0, 1, "00000000", 1), key(0, 1, 1, 2), size(256), alloc(256),
                       "D CardSignData: hash length=32"};
  const SignCase cases[] = {
      {.name = "as long as the code says",
       .answer = answerOf(0, 256, answer),
       .trace = inOrder(begin, withHandle(sign(1, kUserPin)), signSuccess(256)),
       .buffer = 256,
       .signatureLength = 256,
       .signature = reversedPattern(256)},
      {.name = "as long as the key",
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = inOrder(begin, withHandle(sign(1, kUserPin)), "E CardSignData: invalid signature length 512"),
       .buffer = 256,
       .signature = Bytes(256, 0)},
  };
  runAll(record, cases);
}

TEST_F(SignTest, NeedsMemoryEvenForTheSize) {
  CARD_DATA& record = open({makeKey(1, 1)});
  for (const DWORD flags : {DWORD{0}, DWORD{CARD_BUFFER_SIZE_ONLY}}) {
    SCOPED_TRACE(flags);
    const std::string first = test::request(0, 1, flags == 0 ? "00000000" : "20000000");
    const auto allocator = record.pfnCspAlloc;
    record.pfnCspAlloc = nullptr;
    run(record, {.flags = flags,
                 .status = 87,
                 .trace = {first, key(0, 1, 1, 2), size(256), "E CardSignData: allocator not available"}});
    record.pfnCspAlloc = allocator;
    failAllocationsAfter(0);
    // The null pointer is stored.
    run(record, {.flags = flags,
                 .status = code(SCARD_E_NO_MEMORY),
                 .trace = {first, key(0, 1, 1, 2), size(256), refusedAlloc(256), "E CardSignData: allocation failed"},
                 .buffer = 256});
    failAllocationsAfter(std::nullopt);
  }
}

TEST_F(SignTest, RefusesRsa1024OfKnownTokens) {
  CARD_DATA& record = open({makeKey(1, 3, 1024)});
  authenticate(record);
  const Lines refused = {key(0, 1, 3, 1), size(128), alloc(128), "D CardSignData: hash length=32",
                         "E CardSignData: RSA-1024 signing not allowed \xE2\x80\x94 key size below 112-bit security "
                         "strength"};
  run(record, {.status = code(SCARD_E_UNSUPPORTED_FEATURE),
               .trace = concat({test::request(0, 1, "00000000", 1)}, refused),
               .buffer = 128});
  run(record, {.hashLength = 20,
               .status = code(SCARD_E_UNSUPPORTED_FEATURE),
               .trace = {test::request(0, 1, "00000000", 1), refused[0], refused[1], refused[2],
                         "D CardSignData: hash length=20", refused[4]},
               .buffer = 128});

  // A token that the process keeps no record of: the library decides, and gets an empty PIN.
  defineToken({.serial = kOtherSerial, .keys = {makeKey(1, 3, 1024)}});
  setSerial(record, kOtherSerial);
  const std::string asked =
      "D === CardSignData: serial=[0034CD] containerIndex=0 containerListSize=1 dwSigningFlags=0x00000000 "
      "userPinAuth=1";
  const std::string call = "orvane_signHash(\"0034CD\", " + idOf(1) + ", \"\", " + kHash + ", 32, false, null, false)";
  Bytes signature(128);
  for (std::size_t i = 0; i < 128; ++i) signature[i] = static_cast<std::uint8_t>(i + 1);
  run(record, {.answer = answerOf(0, 128, signature),
               .trace = inOrder(asked, key(0, 1, 3, 1), size(128), alloc(128), "D CardSignData: hash length=32",
                                withHandle(call), signSuccess(128)),
               .buffer = 128,
               .signatureLength = 128,
               .signature = Bytes(signature.rbegin(), signature.rend())});
}

TEST_F(SignTest, MapsTheLibrarysResult) {
  CARD_DATA& record = open({makeKey(1, 1)});
  authenticate(record);
  const Lines begin = {test::request(0, 1, "00000000", 1), key(0, 1, 1, 2), size(256), alloc(256),
                       "D CardSignData: hash length=32"};
  const Lines begun = concat(begin, withHandle(sign(1, kUserPin)));
  const DWORD invalid = code(SCARD_E_INVALID_PARAMETER);
  Bytes whole(256, 0x55);
  whole.front() = 0x01;
  whole.back() = 0xFF;
  const Bytes reversed(whole.rbegin(), whole.rend());
  const auto failure = [&](const char* name, const Answer& answer, DWORD status, const char* line) {
    return SignCase{.name = name, .answer = answer, .status = status, .trace = concat(begun, {line}), .buffer = 256};
  };
  const SignCase cases[] = {
      failure("51", answerOf(51, 256), code(SCARD_E_UNSUPPORTED_FEATURE),
              "E CardSignData: SHA1/MD5 signing blocked on FIPS 140-3 token"),
      failure("1", answerOf(1, 256), invalid, "E CardSignData: orvane_signHash failed, ret=1"),
      failure("-1", answerOf(-1, 256), invalid, "E CardSignData: orvane_signHash failed, ret=-1"),
      failure("50", answerOf(50, 256), invalid, "E CardSignData: orvane_signHash failed, ret=50"),
      failure("-2147483647", answerOf(-2147483647, 256), invalid,
              "E CardSignData: orvane_signHash failed, ret=-2147483647"),
      failure("no length stored", answerOf(0, kSofttokenKeep), invalid, "E CardSignData: invalid signature length 0"),
      failure("length 0", answerOf(0, 0), invalid, "E CardSignData: invalid signature length 0"),
      failure("length -1", answerOf(0, -1), invalid, "E CardSignData: invalid signature length -1"),
      failure("one byte more", answerOf(0, 257), invalid, "E CardSignData: invalid signature length 257"),
      failure("far too long", answerOf(0, 2147483647), invalid, "E CardSignData: invalid signature length 2147483647"),
      {.name = "the whole modulus",
       .answer = answerOf(0, 256, whole),
       .trace = concat(begun, {signSuccess(256)}),
       .buffer = 256,
       .signatureLength = 256,
       .signature = reversed},
      {.name = "one byte less",
       .answer = answerOf(0, 255, whole),
       .trace = concat(begun, {signSuccess(255)}),
       .buffer = 256,
       .signatureLength = 255,
       .signature = Bytes(reversed.begin() + 1, reversed.end())},
      {.name = "three bytes",
       .answer = answerOf(0, 3, {0xAA, 0xBB, 0xCC}),
       .trace = concat(begun, {signSuccess(3)}),
       .buffer = 256,
       .signatureLength = 3,
       .signature = {0xCC, 0xBB, 0xAA}},
      {.name = "one byte",
       .answer = answerOf(0, 1, {0xAA}),
       .trace = concat(begun, {signSuccess(1)}),
       .buffer = 256,
       .signatureLength = 1,
       .signature = {0xAA}},
  };
  runAll(record, cases);
}

TEST_F(SignTest, PassesHashHandleAndPinAsTheyAre) {
  CARD_DATA& record = open({makeKey(1, 1)});
  const auto begin = [](const std::string& length) {
    return Lines{test::request(0, 1, "00000000"), key(0, 1, 1, 2), size(256), alloc(256),
                 "D CardSignData: hash length=" + length};
  };
  run(record,
      {.name = "nobody authenticated",
       .status = code(SCARD_E_INVALID_PARAMETER),
       .trace = inOrder(begin("32"), withHandle(sign(1, "")), "E CardSignData: orvane_signHash failed, ret=257"),
       .buffer = 256});
  authenticate(record, 0);
  run(record, {.name = "no card handle",
               .cardHandle = 0,
               .trace = inOrder(begin("32"), withoutHandle(sign(1, kUserPin)), signSuccess(256)),
               .buffer = 256,
               .signatureLength = 256,
               .signature = reversedPattern(256)});
  const struct {
    DWORD length;
    const char* logged;
    int passed;
    const char* bytes;
  } lengths[] = {
      {0, "0", 0, "\"\""},
      {1, "1", 1, "A0"},
      {20, "20", 20, "A0A1A2A3A4A5A6A7A8A9AAABACADAEAFB0B1B2B3"},
      {0x80000000, "2147483648", -2147483647 - 1, "\"\""},
      {0xFFFFFFFF, "4294967295", -1, "\"\""},
  };
  for (const auto& row : lengths) {
    SCOPED_TRACE(row.logged);
    run(record,
        {.hashLength = row.length,
         .answer = answerOf(0, 1, {0x77}),
         .trace = inOrder(begin(row.logged), withHandle(sign(1, kUserPin, row.bytes, row.passed)), signSuccess(1)),
         .buffer = 256,
         .signatureLength = 1,
         .signature = {0x77}});
  }
}

TEST_F(SignTest, RefusalOfAFipsToken) {
  defineToken({.keys = {makeKey(1, 1)}, .isFips = true});
  CARD_DATA& record = openContext();
  authenticate(record);
  for (const DWORD length : {DWORD{16}, DWORD{20}}) {
    SCOPED_TRACE(length);
    const std::string bytes(kHash, 2 * length);
    run(record, {.hashLength = length,
                 .status = code(SCARD_E_UNSUPPORTED_FEATURE),
                 .trace = inOrder(test::request(0, 1, "00000000", 1), key(0, 1, 1, 2), size(256), alloc(256),
                                  "D CardSignData: hash length=" + std::to_string(length),
                                  withHandle(sign(1, kUserPin, bytes, static_cast<int>(length))),
                                  "E CardSignData: SHA1/MD5 signing blocked on FIPS 140-3 token"),
                 .buffer = 256});
  }
}

}  // namespace
}  // namespace orvane::test
