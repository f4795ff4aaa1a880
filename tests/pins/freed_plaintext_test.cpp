// The plaintext that the library hands over lies in its memory, which the minidriver frees: nothing of it is left there
// by then. The linker puts wrappers around the call that hands it over and around `free` (--wrap), so that the block
// can be looked at as it comes to `free`.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>

#include "harness/driver_test.h"
#include "softtoken/token_calls.h"

namespace {

// The block that was handed over last, and what was in it, up to its size, when it was freed.
struct WatchedBlock {
  void* block = nullptr;
  std::size_t size = 0;
  unsigned frees = 0;
  std::array<unsigned char, 512> content{};
  // The size of the log when it was freed.
  std::uintmax_t logSize = 0;
};
thread_local WatchedBlock watched;
// The log's path, while a block is watched.
thread_local const std::string* watchedLog = nullptr;

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
    if (watchedLog != nullptr) watched.logSize = std::filesystem::file_size(*watchedLog);
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

class FreedPlaintext : public DriverTest {
 protected:
  static void watch(std::size_t size) {
    watched = {};
    watched.size = size;
    watched.content.fill(kPoison);
  }
};

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
    watch(length);
    EXPECT_EQ(record.pfnCardRSADecrypt(&record, &info), 0u);
    EXPECT_EQ(watched.frees, 1u);
    Bytes wanted(watched.content.size(), kPoison);
    std::fill_n(wanted.begin(), length, std::uint8_t{0});
    EXPECT_EQ(Bytes(watched.content.begin(), watched.content.end()), wanted);
    EXPECT_EQ(Bytes(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length)), plaintext);
  }
  EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
}

// Before the line that reports success, of which nothing is written yet.
TEST_F(FreedPlaintext, GoesBeforeTheLineThatReportsSuccess) {
  CARD_DATA& record = open();
  queueResult("orvane_decrypt", 0, kSofttokenKeep, 3, {1, 2, 3});
  Bytes block(256, 0x22);
  CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
  const std::string path = logFile();
  watch(3);
  watchedLog = &path;
  EXPECT_EQ(record.pfnCardRSADecrypt(&record, &info), 0u);
  watchedLog = nullptr;
  EXPECT_EQ(watched.frees, 1u);
  constexpr std::string_view kLast =
      "15/11::10:03:25:123-> ->DEBUG ::=>CardRSADecrypt: decryption successful, length=3\n";
  EXPECT_EQ(watched.logSize + kLast.size(), std::filesystem::file_size(path));
  EXPECT_EQ(takeLog().back(), "D CardRSADecrypt: decryption successful, length=3");
  forget();
}

// A plaintext that is longer than the ciphertext cannot be: it is given back all the same.
TEST_F(FreedPlaintext, GoesWhenItIsTooLong) {
  CARD_DATA& record = open();
  for (const int length : {257, -1}) {
    SCOPED_TRACE(length);
    queueResult("orvane_decrypt", 0, kSofttokenKeep, length, Bytes(300, 0x5C));
    Bytes block(256, 0x22);
    CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
    watch(300);
    EXPECT_EQ(record.pfnCardRSADecrypt(&record, &info), code(SCARD_E_INSUFFICIENT_BUFFER));
    EXPECT_EQ(watched.frees, 1u);
    // How much of it may be written to is not known.
    EXPECT_EQ(Bytes(watched.content.begin(), watched.content.begin() + 300), Bytes(300, 0x5C));
    EXPECT_EQ(block, Bytes(256, 0x22));
    forget();
  }
}

// What a failing library's output points to need not be a block of its memory.
TEST_F(FreedPlaintext, IsNotFreedWhenTheLibraryFails) {
  CARD_DATA& record = open();
  queueResult("orvane_decrypt", 33, kSofttokenKeep, 3, Bytes(300, 0x5C));
  Bytes block(256, 0x22);
  CARD_RSA_DECRYPT_INFO info = decryptionOf(block);
  watch(300);
  EXPECT_EQ(record.pfnCardRSADecrypt(&record, &info), code(SCARD_E_INVALID_PARAMETER));
  EXPECT_EQ(watched.frees, 0u);
  ASSERT_NE(watched.block, nullptr);
  const auto* const bytes = static_cast<const std::uint8_t*>(watched.block);
  EXPECT_EQ(Bytes(bytes, bytes + 300), Bytes(300, 0x5C));
  EXPECT_EQ(block, Bytes(256, 0x22));
  std::free(watched.block);
  forget();
}

}  // namespace
}  // namespace orvane::test
