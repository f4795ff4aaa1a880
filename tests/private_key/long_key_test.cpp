// A key that is longer than its algorithm code says is signed with in a buffer of the minidriver's own. The library
// that says it wrote more than it did must not make bytes of that buffer, which nobody wrote, go to the caller.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class LongKey : public DriverTest {};

TEST_F(LongKey, GivesNoByteThatTheLibraryDidNotWrite) {
  OrvaneKeyPair key = makeKey(1, 3, 4096);
  key.algorithm = 2;
  CARD_DATA& record = open({key});
  authenticate(record);
  for (const int written : {0, 1, 255, 256}) {
    SCOPED_TRACE(written);
    // What a call before may have left below: the bytes of a whole signature.
    signWithPreparedAnswer(record);
    queueResult("orvane_signHash", 0, kSofttokenKeep, 256, Bytes(static_cast<std::size_t>(written), 0x5A));
    Bytes hash(32, 0x11);
    CARD_SIGNING_INFO info = signingOf(hash);
    EXPECT_EQ(record.pfnCardSignData(&record, &info), 0u);
    ASSERT_EQ(info.cbSignedData, 256u);
    Bytes expected(256, 0);
    std::fill(expected.end() - written, expected.end(), std::uint8_t{0x5A});
    EXPECT_EQ(takeBuffer(info.pbSignedData, 256), expected);
    forget();
  }
}

}  // namespace
}  // namespace orvane::test
