// The plaintext that the library hands over lies in its memory, which the minidriver frees: nothing of it is left there
// by then. The linker puts wrappers around the call that hands it over and around `free` (--wrap), so that the block
// can be looked at as it comes to `free`.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

#include "harness/driver_test.h"
#include "softtoken/token_calls.h"

namespace {

// The block that was handed over last, and what was in it, up to its size, when it was freed.
struct WatchedBlock {
  void* block = nullptr;
  std::size_t size = 0;
  unsigned frees = 0;
  std::array<unsigned char, 512> content{};
};
thread_local WatchedBlock watched;

}  // namespace

// Names that begin with two underscores are the linker's.
extern "C" {
void __real_free(void* block);
void __wrap_free(void* block);
bool __real_softtokenDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                             const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                             bool reserved, void* libraryContext, int* result) noexcept;
bool __wrap_softtokenDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                             const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                             bool reserved, void* libraryContext, int* result) noexcept;

void __wrap_free(void* block) {
  if (block != nullptr && block == watched.block) {
    ++watched.frees;
    std::copy_n(static_cast<const unsigned char*>(block), watched.size, watched.content.begin());
    watched.block = nullptr;
  }
  __real_free(block);
}

bool __wrap_softtokenDecrypt(const char* serial, const unsigned char* credentialId, const char* pin,
                             const unsigned char* input, int inputLength, unsigned char** output, int* outputLength,
                             bool reserved, void* libraryContext, int* result) noexcept {
  const bool completed = __real_softtokenDecrypt(serial, credentialId, pin, input, inputLength, output, outputLength,
                                                 reserved, libraryContext, result);
  watched.block = *output;
  return completed;
}
}

namespace orvane::test {
namespace {

class FreedPlaintext : public DriverTest {};

TEST_F(FreedPlaintext, IsOverwritten) {
  defineToken({.keys = {makeKey(1, 3)}});
  CARD_DATA record = newRecord();
  ASSERT_EQ(acquire(record), 0u);
  for (const std::size_t length : {1u, 4u, 48u, 255u, 256u}) {
    SCOPED_TRACE(length);
    const Bytes plaintext(length, 0x5C);
    queueResult("orvane_decrypt", 0, kSofttokenKeep, static_cast<int>(length), plaintext);
    Bytes block(256, 0x22);
    CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
    watched = {nullptr, length, 0, {}};
    watched.content.fill(kPoison);
    EXPECT_EQ(record.pfnCardRSADecrypt(&record, &info), 0u);
    EXPECT_EQ(watched.frees, 1u);
    Bytes wanted(watched.content.size(), kPoison);
    std::fill_n(wanted.begin(), length, std::uint8_t{0});
    EXPECT_EQ(Bytes(watched.content.begin(), watched.content.end()), wanted);
    EXPECT_EQ(Bytes(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length)), plaintext);
  }
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
}

}  // namespace
}  // namespace orvane::test
