// The block that the library hands over with a plaintext is given back exactly once, by the C runtime that both share.
// Windows only, where the DLL's own calls of `free` can be watched; tests/pins/freed_plaintext_test.cpp has the rest.
#include <cstdlib>

#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class FreedBlock : public DriverTest {};

TEST_F(FreedBlock, IsGivenBackOnce) {
  const struct {
    const char* name;
    int result;
    int length;
    DWORD status;
    unsigned frees;
  } rows[] = {{"decrypted", 0, 3, 0, 1},
              {"an empty plaintext", 0, 0, 0, 1},
              {"longer than the ciphertext", 0, 257, code(SCARD_E_INSUFFICIENT_BUFFER), 1},
              {"a negative length", 0, -1, code(SCARD_E_INSUFFICIENT_BUFFER), 1},
              {"what a failing library leaves is not ours", 33, 3, code(SCARD_E_INVALID_PARAMETER), 0}};
  CARD_DATA& record = open();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    queueResult("orvane_decrypt", row.result, kSofttokenKeep, row.length, Bytes(300, 0x5C));
    Bytes block(256, 0x22);
    CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
    EXPECT_EQ(record.pfnCardRSADecrypt(&record, &info), row.status);
    const void* const handedOut = softtoken_last_plaintext();
    ASSERT_NE(handedOut, nullptr);
    EXPECT_EQ(machine::takeFrees(handedOut), row.frees);
    if (row.frees == 0) std::free(const_cast<void*>(handedOut));
    forget();
  }
}

}  // namespace
}  // namespace orvane::test
