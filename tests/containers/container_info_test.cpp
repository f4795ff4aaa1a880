// CardGetContainerInfo, and the public key blobs that it returns.
#include "containers/key_blob.h"
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

constexpr char kEntry[] = "D CardGetContainerInfo :: LOG_FUNCTION_NAME = Entry";

Lines asked(unsigned index, unsigned count) {
  return {kEntry, "D === CardGetContainerInfo: serial=[0012AB] containerIndex=" + std::to_string(index) +
                      " containerListSize=" + std::to_string(count)};
}

Lines started(unsigned index, unsigned count) {
  return concat(asked(index, count), {"D CardGetContainerInfo Container index " + std::to_string(index)});
}

std::string finished(std::size_t signature, std::size_t keyExchange) {
  return "D CardGetContainerInfo exit: SigLen=" + std::to_string(signature) +
         ", KeyExLen=" + std::to_string(keyExchange);
}

class ContainerInfoTest : public DriverTest {
 protected:
  // What a call left in the record: the two blobs (none for a null pointer), and the record itself without them.
  struct Answer {
    Outcome outcome;
    std::optional<Bytes> signature;
    std::optional<Bytes> keyExchange;
  };

  Answer ask(CARD_DATA& record, unsigned index) {
    auto info = poisoned<CONTAINER_INFO>();
    info.dwVersion = 77;
    Answer answer;
    answer.outcome =
        observe([&] { return record.pfnCardGetContainerInfo(&record, static_cast<BYTE>(index), 0, &info); });
    EXPECT_EQ(info.dwVersion, 77u);
    EXPECT_EQ(info.dwReserved, 0u);
    answer.signature = takeBlob(info.pbSigPublicKey, info.cbSigPublicKey);
    answer.keyExchange = takeBlob(info.pbKeyExPublicKey, info.cbKeyExPublicKey);
    return answer;
  }

  void expectKeys(CARD_DATA& record, unsigned index, unsigned count, const std::optional<Bytes>& signature,
                  const std::optional<Bytes>& keyExchange) {
    const Answer answer = ask(record, index);
    const std::size_t signatureSize = signature ? signature->size() : 0;
    const std::size_t keyExchangeSize = keyExchange ? keyExchange->size() : 0;
    EXPECT_EQ(answer.outcome,
              (Outcome{0, inOrder(started(index, count), signature ? Lines{alloc(signatureSize)} : Lines{},
                                  keyExchange ? Lines{alloc(keyExchangeSize)} : Lines{},
                                  finished(signatureSize, keyExchangeSize))}));
    EXPECT_EQ(answer.signature, signature);
    EXPECT_EQ(answer.keyExchange, keyExchange);
  }
};

TEST_F(ContainerInfoTest, RefusesArgumentsInOrder) {
  CARD_DATA& record = open({makeKey(1, 3), makeKey(2, 3), makeKey(3, 3)});
  CARD_DATA noContext = withoutContext(record);
  const Outcome invalid{87, {kEntry, "E Invalid parameters"}};
  const auto flags = [](const char* shown) {
    return Outcome{87, {kEntry, std::string("E CardGetContainerInfo: dwFlags must be zero, got dwFlags=") + shown}};
  };
  const auto index = [](unsigned value) {
    return Outcome{code(SCARD_E_NO_KEY_CONTAINER),
                   concat(asked(value, 3), {"E Invalid container index: " + std::to_string(value)})};
  };
  const struct {
    const char* name;
    PCARD_DATA record;
    BYTE index;
    DWORD flags;
    bool hasInfo;
    Outcome outcome;
  } cases[] = {
      {"no record, before the flags", nullptr, 0, 1, true, invalid},
      {"no result", &record, 0, 0, false, invalid},
      {"flags 1, before no context", &noContext, 0, 1, true, flags("1")},
      {"all flags", &record, 0, 0xFFFFFFFF, true, flags("4294967295")},
      {"no context", &noContext, 0, 0, true, {87, {kEntry, "E CardGetContainerInfo: provider context is NULL"}}},
      {"an index equal to the count", &record, 3, 0, true, index(3)},
      {"the largest index", &record, 255, 0, true, index(255)},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    auto info = poisoned<CONTAINER_INFO>();
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetContainerInfo(row.record, row.index, row.flags, row.hasInfo ? &info : nullptr);
              }),
              row.outcome);
    EXPECT_EQ(bytesOf(info), Bytes(sizeof(info), kPoison));
  }
}

TEST_F(ContainerInfoTest, ReturnsTheKeysThatTheUsageCallsFor) {
  const OrvaneKeyPair signature = makeKey(1, 1, 1024);
  const OrvaneKeyPair keyExchange = makeKey(2, 2, 2048);
  const OrvaneKeyPair both = makeKey(3, 3, 4096);
  CARD_DATA& record = open({signature, keyExchange, both, makeKey(4, 0), makeKey(5, 4), makeKey(6, -1)});
  expectKeys(record, 0, 6, blobOf(signature, kSignatureBlob), std::nullopt);
  expectKeys(record, 1, 6, std::nullopt, blobOf(keyExchange, kKeyExchangeBlob));
  expectKeys(record, 2, 6, blobOf(both, kSignatureBlob), blobOf(both, kKeyExchangeBlob));
  for (const unsigned index : {3u, 4u, 5u}) expectKeys(record, index, 6, std::nullopt, std::nullopt);
}

TEST_F(ContainerInfoTest, TakesTheFirstFittingKeys) {
  const OrvaneKeyPair keyExchange = makeKey(1, 2, 2048);
  const OrvaneKeyPair signature = makeKey(2, 1, 3072);
  const OrvaneKeyPair both = makeKey(3, 3, 4096);
  const OrvaneKeyPair neither = makeKey(4, 0, 1024);
  CARD_DATA& record = open({neither});
  const struct {
    const char* name;
    std::vector<OrvaneKeyPair> keyPairs;
    std::optional<Bytes> signature;
    std::optional<Bytes> keyExchange;
  } cases[] = {
      {"key exchange, then signature",
       {keyExchange, signature},
       blobOf(signature, kSignatureBlob),
       blobOf(keyExchange, kKeyExchangeBlob)},
      {"the first of two", {signature, both}, blobOf(signature, kSignatureBlob), blobOf(both, kKeyExchangeBlob)},
      {"both, before others",
       {neither, both, signature, keyExchange},
       blobOf(both, kSignatureBlob),
       blobOf(both, kKeyExchangeBlob)},
      {"no key at all", {}, std::nullopt, std::nullopt},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    setKeys(record, 0, row.keyPairs);
    expectKeys(record, 0, 1, row.signature, row.keyExchange);
  }
}

// The bytes of a blob, as they lie in memory.
TEST_F(ContainerInfoTest, BlobBytes) {
  OrvaneKeyPair key = makeKey(1, 3, 2048);
  key.modulus[0] = 0xC5;
  key.modulus[255] = 0x01;
  CARD_DATA& record = open({key});
  const Answer answer = ask(record, 0);
  ASSERT_TRUE(answer.signature && answer.keyExchange);
  const Bytes header = {6,   2,    0,   0,    // PUBLICKEYBLOB, version 2
                        0,   0x24, 0,   0,    // CALG_RSA_SIGN
                        'R', 'S',  'A', '1',  //
                        0,   8,    0,   0,    // 2048 bits
                        1,   0,    1,   0};   // 65537
  ASSERT_EQ(answer.signature->size(), 276u);
  EXPECT_EQ(Bytes(answer.signature->begin(), answer.signature->begin() + 20), header);
  EXPECT_EQ(answer.signature->at(20), 0x01);
  EXPECT_EQ(answer.signature->at(275), 0xC5);
  Bytes keyExchange = *answer.signature;
  keyExchange[5] = 0xA4;
  EXPECT_EQ(answer.keyExchange, keyExchange);
}

TEST_F(ContainerInfoTest, ModulusLengths) {
  OrvaneKeyPair empty = makeKey(1, 1);
  empty.modulusLength = 0;
  OrvaneKeyPair largest = makeKey(2, 1);
  largest.modulusLength = 1024;
  OrvaneKeyPair odd = makeKey(3, 2);
  odd.modulusLength = 129;
  CARD_DATA& record = open({empty, largest, odd});
  expectKeys(record, 0, 3, blobOf(empty, kSignatureBlob), std::nullopt);
  expectKeys(record, 1, 3, blobOf(largest, kSignatureBlob), std::nullopt);
  expectKeys(record, 2, 3, std::nullopt, blobOf(odd, kKeyExchangeBlob));
}

// A record that states a longer modulus than it holds has no blob.
TEST_F(ContainerInfoTest, RefusesAModulusBeyondTheRecord) {
  const OrvaneKeyPair both = makeKey(1, 3);
  const Lines signatureFailed = {"D invalid param ", "E CardGetContainerInfo: sig blob failed, status=0x00000057"};
  const Lines keyExchangeFailed = {"D invalid param ", "E CardGetContainerInfo: keyex blob failed, status=0x00000057"};
  OrvaneKeyPair longSignature = makeKey(2, 1);
  OrvaneKeyPair longKeyExchange = makeKey(3, 2);
  OrvaneKeyPair longest = makeKey(4, 3);
  longSignature.modulusLength = 1025;
  longKeyExchange.modulusLength = 1025;
  longest.modulusLength = 0xFFFFFFFF;
  CARD_DATA& record = open({both});
  const struct {
    const char* name;
    std::vector<OrvaneKeyPair> keyPairs;
    Lines trace;
    std::optional<Bytes> signature;
  } cases[] = {
      {"signature", {longSignature}, signatureFailed, std::nullopt},
      {"signature, with a good key for the exchange behind it",
       {longSignature, makeKey(5, 2)},
       signatureFailed,
       std::nullopt},
      {"key exchange", {longKeyExchange}, keyExchangeFailed, std::nullopt},
      {"key exchange: the signature's blob stays with the caller",
       {makeKey(5, 1), longKeyExchange},
       inOrder(alloc(276), keyExchangeFailed),
       blobOf(makeKey(5, 1), kSignatureBlob)},
      {"the longest modulus", {longest}, signatureFailed, std::nullopt},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    setKeys(record, 0, row.keyPairs);
    const Answer answer = ask(record, 0);
    EXPECT_EQ(answer.outcome, (Outcome{87, concat(started(0, 1), row.trace)}));
    EXPECT_EQ(answer.signature, row.signature);
    EXPECT_EQ(answer.keyExchange, std::nullopt);
  }
}

TEST_F(ContainerInfoTest, NoMemory) {
  const OrvaneKeyPair both = makeKey(1, 3);
  CARD_DATA& record = open({both, makeKey(2, 2)});
  const Lines signatureFailed = {"D no memory", "E CardGetContainerInfo: sig blob failed, status=0x80100006"};
  const Lines keyExchangeFailed = {"D no memory", "E CardGetContainerInfo: keyex blob failed, status=0x80100006"};
  const struct {
    const char* name;
    unsigned index;
    unsigned successes;
    Lines trace;
    std::optional<Bytes> signature;
  } cases[] = {
      {"first blob", 0, 0, inOrder(refusedAlloc(276), signatureFailed), std::nullopt},
      {"second blob: the first stays with the caller", 0, 1, inOrder(alloc(276), refusedAlloc(276), keyExchangeFailed),
       blobOf(both, kSignatureBlob)},
      {"the only blob", 1, 0, inOrder(refusedAlloc(276), keyExchangeFailed), std::nullopt},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    failAllocationsAfter(row.successes);
    const Answer answer = ask(record, row.index);
    failAllocationsAfter(std::nullopt);
    EXPECT_EQ(answer.outcome, (Outcome{code(SCARD_E_NO_MEMORY), concat(started(row.index, 2), row.trace)}));
    EXPECT_EQ(answer.signature, row.signature);
    EXPECT_EQ(answer.keyExchange, std::nullopt);
  }
  record.pfnCspAlloc = nullptr;
  const Answer answer = ask(record, 0);
  EXPECT_EQ(answer.outcome, (Outcome{code(SCARD_E_NO_MEMORY), concat(started(0, 2), signatureFailed)}));
  EXPECT_EQ(answer.signature, std::nullopt);
  EXPECT_EQ(answer.keyExchange, std::nullopt);
}

}  // namespace
}  // namespace orvane::test
