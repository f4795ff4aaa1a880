// BuildRsaPublicKeyBlob.
#include "minidriver/containers/public_key_blob.h"

#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class PublicKeyBlobTest : public LinkedTest {};

TEST_F(PublicKeyBlobTest, RefusesAModulusThatItsRecordCannotHold) {
  const CARD_DATA record = newRecord();
  for (const DWORD modulusLength : {1025u, 0xFFFFFFECu, 0xFFFFFFFFu}) {
    SCOPED_TRACE(modulusLength);
    OrvaneKeyPair key = makeKey(1, 3);
    key.modulusLength = modulusLength;
    BYTE untouched = 0;
    PBYTE blob = &untouched;
    DWORD length = 4711;
    EXPECT_EQ(observe([&] { return BuildRsaPublicKeyBlob(record, key, KeySpecification::kSignature, blob, length); }),
              (Outcome{87, {"D invalid param "}}));
    EXPECT_EQ(blob, &untouched);
    EXPECT_EQ(length, 4711u);
  }
}

TEST_F(PublicKeyBlobTest, NoMemory) {
  CARD_DATA record = newRecord();
  const OrvaneKeyPair key = makeKey(1, 3);
  BYTE untouched = 0;
  PBYTE blob = &untouched;
  DWORD length = 4711;
  failAllocationsAfter(0);
  for (const bool hasAllocator : {true, false}) {
    SCOPED_TRACE(hasAllocator);
    if (!hasAllocator) record.pfnCspAlloc = nullptr;
    EXPECT_EQ(
        observe([&] { return BuildRsaPublicKeyBlob(record, key, KeySpecification::kKeyExchange, blob, length); }),
        (Outcome{code(SCARD_E_NO_MEMORY), inOrder(hasAllocator ? Lines{refusedAlloc(276)} : Lines{}, "D no memory")}));
    EXPECT_EQ(blob, &untouched);
    EXPECT_EQ(length, 4711u);
  }
  failAllocationsAfter(std::nullopt);
}

TEST_F(PublicKeyBlobTest, HeaderAndReversedModulus) {
  const CARD_DATA record = newRecord();
  OrvaneKeyPair key = makeKey(1, 3);
  for (std::size_t i = 0; i < sizeof(key.modulus); ++i) key.modulus[i] = static_cast<std::uint8_t>(i * 3 + 1);
  const struct {
    const char* label;
    DWORD modulusLength;
    KeySpecification keySpecification;
    Bytes header;
  } rows[] = {
      {"signature, 2048 bits", 256, KeySpecification::kSignature, {6,   2,   0, 0, 0, 0x24, 0, 0, 'R', 'S',
                                                                   'A', '1', 0, 8, 0, 0,    1, 0, 1,   0}},
      {"key exchange, 2048 bits", 256, KeySpecification::kKeyExchange, {6,   2,   0, 0, 0, 0xA4, 0, 0, 'R', 'S',
                                                                        'A', '1', 0, 8, 0, 0,    1, 0, 1,   0}},
      {"empty", 0, KeySpecification::kSignature, {6,   2,   0, 0, 0, 0x24, 0, 0, 'R', 'S',
                                                  'A', '1', 0, 0, 0, 0,    1, 0, 1,   0}},
      {"one byte", 1, KeySpecification::kKeyExchange, {6,   2,   0, 0, 0, 0xA4, 0, 0, 'R', 'S',
                                                       'A', '1', 8, 0, 0, 0,    1, 0, 1,   0}},
      {"the largest", 1024, KeySpecification::kSignature, {6,   2,   0, 0,  0, 0x24, 0, 0, 'R', 'S',
                                                           'A', '1', 0, 32, 0, 0,    1, 0, 1,   0}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    PBYTE blob = nullptr;
    DWORD length = 0;
    key.modulusLength = row.modulusLength;
    EXPECT_EQ(observe([&] { return BuildRsaPublicKeyBlob(record, key, row.keySpecification, blob, length); }),
              (Outcome{0, {alloc(20 + row.modulusLength)}}));
    Bytes expected = row.header;
    for (std::size_t i = row.modulusLength; i > 0; --i) expected.push_back(key.modulus[i - 1]);
    ASSERT_EQ(length, expected.size());
    EXPECT_EQ(takeBuffer(blob, length), expected);
  }
}

}  // namespace
}  // namespace orvane::test
