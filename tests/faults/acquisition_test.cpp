// What an acquisition meets: a failing token library, strange lists and key records, a failing resource manager.
#include <algorithm>
#include <climits>
#include <iterator>
#include <limits>
#include <numeric>

#include "harness/call_test.h"
#include "support/hex_text.h"

namespace orvane::test {
namespace {

const DWORD kInternalError = code(SCARD_F_INTERNAL_ERROR);
const DWORD kInvalidParameter = code(SCARD_E_INVALID_PARAMETER);

// Every length from 0 to `last`; on Windows, where the system under test is emulated, only the first and the last and
// some between them.
std::vector<std::size_t> lengthsUpTo(std::size_t last) {
#ifdef _WIN32
  const std::size_t some[] = {0, 1, 2, 3, 4, 5, 6, 33, last - 1, last};
  return std::vector<std::size_t>(std::begin(some), std::end(some));
#else
  std::vector<std::size_t> all(last + 1);
  std::iota(all.begin(), all.end(), std::size_t{0});
  return all;
#endif
}

class AcquisitionFaults : public CallTest {
 protected:
  // Acquires with the library's and the resource manager's prepared answers; a refusal leaves the record as it was, and
  // nothing else behind. The context, if any, is deleted.
  DWORD acquireOnce(SCARDHANDLE cardHandle) {
    forget();
    CARD_DATA record = newRecord();
    record.hScard = cardHandle;
    const CARD_DATA before = record;
    const DWORD status = acquire(record);
    if (status == 0) {
      EXPECT_EQ(record.pfnCardDeleteContext(&record), 0u);
    } else {
      EXPECT_EQ(std::memcmp(&record, &before, sizeof(record)), 0) << "the record was changed";
    }
    return status;
  }

  // The serial that the last acquisition resolved; none when it came to none.
  static std::string resolvedSerial(const Lines& log) {
    constexpr std::string_view kLine = "D resolved serial number :: ";
    for (const std::string& line : log) {
      if (line.starts_with(kLine)) return line.substr(kLine.size());
    }
    return "(none)";
  }
};

struct LibraryRow {
  const char* name;
  const char* function;
  bool isException;
  long long result;
  const char* output;
  DWORD status;
  const char* line;  // one that must be logged
};

constexpr char kCompleted[] = "D CardAcquireContext completed successfully";

TEST_F(AcquisitionFaults, OfTheLibrary) {
  const LibraryRow rows[] = {
      {"init fails", "orvane_init", false, -1, "", 0, kCompleted},
      {"init throws", "orvane_init", true, 0, "", kInternalError,
       "E CardAcquireContext: unhandled exception: orvane_init: exception in the token library"},
      {"the device list throws", "orvane_getConnectedDeviceList", true, 0, "", kInternalError,
       "E CardAcquireContext: unhandled exception: orvane_getConnectedDeviceList: exception in the token library"},
      {"no device", "orvane_getConnectedDeviceList", false, 0, "", code(SCARD_E_NO_SMARTCARD),
       "E No smart card connected"},
      {"a device without a serial", "orvane_getConnectedDeviceList", false, 0, "\n", 0, "D resolved serial number :: "},
      {"the device does not open", "orvane_initDevice", false, std::numeric_limits<int>::min(), "", 0,
       "E Init device failed for [0012AB]: -2147483648"},
      {"opening throws", "orvane_initDevice", true, 0, "", kInternalError,
       "E CardAcquireContext: unhandled exception: orvane_initDevice: exception in the token library"},
      {"clearing the handle throws", "orvane_clearExternalSmartcardHandle", true, 0, "", kInternalError,
       "E CardAcquireContext: unhandled exception: orvane_clearExternalSmartcardHandle: exception in the token "
       "library"},
      {"the key list throws", "orvane_getKeyPairList", true, 0, "", kInternalError,
       "E CardAcquireContext: unhandled exception: orvane_getKeyPairList: exception in the token library"},
      {"the key list is empty at first", "orvane_getKeyPairList", false, 0, "", 0,
       "D Key list empty for [0012AB], refreshing"},
  };
  for (const LibraryRow& row : rows) {
    SCOPED_TRACE(row.name);
    startAnew();
    const std::string output = row.output;
    answer(row.function,
           Answer{.result = row.result, .output = Bytes(output.begin(), output.end()), .isException = row.isException});
    EXPECT_EQ(acquireOnce(0), row.status);
    EXPECT_EQ(softtoken_queued(row.function), 0u) << "the function was not called";
    const Lines log = takeLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), row.line), 1);
    expectUsable();
  }
}

TEST_F(AcquisitionFaults, WithManyAndLongSerials) {
  std::string many;
  for (int i = 0; i < 300; ++i) many += "SERIAL" + std::to_string(i) + "\n";
  const std::string rows[] = {many, std::string(5000, 'x') + "\n"};
  for (const std::string& list : rows) {
    SCOPED_TRACE(list.size());
    startAnew();
    queueResult("orvane_getConnectedDeviceList", 0, kSofttokenKeep, kSofttokenKeep, Bytes(list.begin(), list.end()));
    EXPECT_EQ(acquireOnce(0), 0u);
    EXPECT_EQ(resolvedSerial(takeLog()), list.substr(0, list.find('\n')));
    expectUsable();
  }
}

// A key record that does not make sense, and what the calls that use it answer.
struct KeyRow {
  const char* name;
  std::uint32_t modulusLength;
  std::uint32_t algorithm;
  std::int32_t usage;
  std::uint16_t mapBits;  // size in the container map, for the usages that state one
  DWORD infoStatus;
  DWORD signedLength;  // size-only answer
  bool hasUse = true;  // for signatures and for decryption
};

TEST_F(AcquisitionFaults, WithStrangeKeys) {
  const KeyRow rows[] = {
      {"as it should be", 256, 2, 3, 2048, 0, 256},
      {"no modulus", 0, 2, 3, 0, 0, 256},
      {"a full modulus", 1024, 2, 3, 8192, 0, 256},
      {"a modulus longer than the record", 1025, 2, 3, 8200, ERROR_INVALID_PARAMETER, 256},
      {"the longest modulus", 0xFFFFFFFF, 2, 3, 0xFFF8, ERROR_INVALID_PARAMETER, 256},
      {"algorithm 0", 256, 0, 3, 2048, 0, 256},
      {"algorithm 99", 256, 99, 3, 2048, 0, 256},
      {"algorithm 4 for a short modulus", 128, 4, 3, 1024, 0, 512},
      {"the largest algorithm", 256, 0xFFFFFFFF, 3, 2048, 0, 256},
      {"usage 0", 256, 2, 0, 0, 0, 256, false},
      {"usage 99", 256, 2, 99, 0, 0, 256, false},
      {"usage -1", 256, 2, -1, 0, 0, 256, false},
  };
  for (const KeyRow& row : rows) {
    SCOPED_TRACE(row.name);
    OrvaneKeyPair key = makeKey(1, row.usage);
    key.modulusLength = row.modulusLength;
    key.algorithm = row.algorithm;
    CARD_DATA& record = openFresh({key});

    char mapName[] = "cmapfile";
    PBYTE data = nullptr;
    DWORD size = 0;
    EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, mapName, 0, &data, &size), 0u);
    ASSERT_EQ(size, sizeof(CONTAINER_MAP_RECORD));
    const Bytes map = takeBuffer(data, size);
    CONTAINER_MAP_RECORD mapRecord{};
    std::memcpy(&mapRecord, map.data(), sizeof(mapRecord));
    EXPECT_EQ(mapRecord.wSigKeySizeBits, row.mapBits);
    EXPECT_EQ(mapRecord.wKeyExchangeKeySizeBits, row.mapBits);

    CONTAINER_INFO info{};
    EXPECT_EQ(record.pfnCardGetContainerInfo(&record, 0, 0, &info), row.infoStatus);
    EXPECT_EQ(info.pbSigPublicKey != nullptr, row.infoStatus == 0 && row.hasUse);
    EXPECT_EQ(info.pbKeyExPublicKey != nullptr, row.infoStatus == 0 && row.hasUse);
    if (info.pbSigPublicKey != nullptr) takeBuffer(info.pbSigPublicKey, row.modulusLength + 20);
    if (info.pbKeyExPublicKey != nullptr) takeBuffer(info.pbKeyExPublicKey, row.modulusLength + 20);

    Bytes hash(32, 0x11);
    CARD_SIGNING_INFO signing = signingOf(hash, CARD_BUFFER_SIZE_ONLY);
    EXPECT_EQ(record.pfnCardSignData(&record, &signing), 0u);
    EXPECT_EQ(signing.cbSignedData, row.signedLength);
    takeBuffer(signing.pbSignedData, row.signedLength);

    Bytes block(256, 0x22);
    CARD_RSA_DECRYPT_INFO decrypting = decryptionOf(block, AT_SIGNATURE);
    queueResult("orvane_decrypt", 0, kSofttokenKeep, 3, {1, 2, 3});
    EXPECT_EQ(record.pfnCardRSADecrypt(&record, &decrypting), row.hasUse ? 0 : code(SCARD_E_NO_KEY_CONTAINER));
  }
}

// The token library writes a signature as long as the key, whatever the key's algorithm code promises.
TEST_F(AcquisitionFaults, WithKeysLongerThanTheirAlgorithm) {
  struct Row {
    const char* name;
    std::uint32_t modulusLength;
    std::uint32_t algorithm;
    std::size_t bufferSize;
    DWORD status;
    DWORD signedLength;
    const char* lastLine;
  };
  const Row rows[] = {
      {"4096 bits as 2048", 512, 2, 256, kInvalidParameter, 0, "E CardSignData: invalid signature length 512"},
      {"4096 bits of an unknown algorithm", 512, 99, 256, kInvalidParameter, 0,
       "E CardSignData: invalid signature length 512"},
      {"as many bytes as a record holds", 1024, 4, 512, kInvalidParameter, 0,
       "E CardSignData: invalid signature length 1024"},
      {"as long as promised", 512, 4, 512, 0, 512, "D CardSignData: success, signature length=512"},
      {"shorter than promised", 128, 2, 256, 0, 128, "D CardSignData: success, signature length=128"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    OrvaneKeyPair key = makeKey(1, 1);
    key.modulusLength = row.modulusLength;
    key.algorithm = row.algorithm;
    CARD_DATA& record = openFresh({key});
    authenticate(record);
    Bytes hash(32, 0x11);
    CARD_SIGNING_INFO info = signingOf(hash);
    EXPECT_EQ(record.pfnCardSignData(&record, &info), row.status);
    EXPECT_EQ(takeLog().back(), row.lastLine);
    EXPECT_EQ(info.cbSignedData, row.signedLength);
    Bytes expected(row.bufferSize);
    for (std::size_t i = 0; i < row.signedLength; ++i) expected[i] = static_cast<std::uint8_t>(row.signedLength - i);
    // Nothing was written beyond the buffer's end, either: its margin is looked at when it is freed.
    EXPECT_EQ(takeBuffer(info.pbSignedData, row.bufferSize), expected);
  }
}

TEST_F(AcquisitionFaults, WithThreeHundredKeys) {
  std::vector<OrvaneKeyPair> keys;
  for (unsigned i = 0; i < 300; ++i) keys.push_back(makeKey(static_cast<std::uint8_t>(i), 3));
  CARD_DATA& record = open(keys);
  char directory[] = "mscp";
  LPSTR names = nullptr;
  DWORD size = 0;
  EXPECT_EQ(record.pfnCardEnumFiles(&record, directory, &names, &size, 0), 0u);
  std::string expected = std::string("cardcf") + '\0' + "cmapfile" + '\0';
  for (int i = 0; i < 300; ++i) {
    expected += "ksc" + std::to_string(i) + '\0' + "kxc" + std::to_string(i) + '\0';
  }
  expected += '\0';
  const Bytes listed = takeBuffer(names, expected.size());
  EXPECT_EQ(std::string(listed.begin(), listed.end()), expected);
  char mapName[] = "cmapfile";
  PBYTE data = nullptr;
  EXPECT_EQ(record.pfnCardReadFile(&record, nullptr, mapName, 0, &data, &size), 0u);
  takeBuffer(data, 300 * sizeof(CONTAINER_MAP_RECORD));
  CONTAINER_INFO info{};
  EXPECT_EQ(record.pfnCardGetContainerInfo(&record, 255, 0, &info), 0u);
  takeBuffer(info.pbSigPublicKey, 276);
  takeBuffer(info.pbKeyExPublicKey, 276);
}

TEST_F(AcquisitionFaults, OfTheResourceManager) {
  for (const LONG result :
       {LONG{SCARD_E_INVALID_HANDLE}, LONG{SCARD_W_REMOVED_CARD}, LONG{-1}, LONG{1}, LONG{INT_MAX}}) {
    SCOPED_TRACE(result);
    startAnew();
    resourceManager.statusResult = result;
    const Outcome outcome = observe([&] { return acquireOnce(kCardHandle); });
    EXPECT_EQ(outcome.status, 0u);
    Bytes digits(4);
    for (std::size_t i = 0; i < 4; ++i) digits[i] = static_cast<std::uint8_t>(code(result) >> (24 - 8 * i));
    EXPECT_EQ(linesWith("E ", outcome.trace),
              Lines{"E SCardStatusA failed: 0x" + hexText<std::string>(digits.data(), 4) + ", defaulting to index 0"});
    EXPECT_EQ(resolvedSerial(outcome.trace), kSerial);
    EXPECT_EQ(linesWith("SCardTransmit ", outcome.trace), Lines{});

    for (const char* const reader : {"OrvaneDSC 0", "Reader 0"}) {
      startAnew();
      resourceManager.readerName = reader;
      resourceManager.transmitResult = result;
      resourceManager.reply = {'X', 'Y', 'Z', 0x90, 0x00};
      const Outcome refused = observe([&] { return acquireOnce(kCardHandle); });
      EXPECT_EQ(refused.status, 0u);
      EXPECT_EQ(resolvedSerial(refused.trace), kSerial);
      EXPECT_EQ(linesWith("SCardTransmit ", refused.trace).size(), 1u);
    }
  }
}

TEST_F(AcquisitionFaults, WithReaderNamesOfEveryLength) {
  startAnew();
  for (const std::size_t length : lengthsUpTo(511)) {
    SCOPED_TRACE(length);
    resourceManager = ResourceManager{};
    resourceManager.transmitResult = SCARD_E_INVALID_HANDLE;
    // No blank: the first token is taken.
    resourceManager.readerName = std::string(length, 'r');
    EXPECT_EQ(acquireOnce(kCardHandle), 0u);
    Lines log = takeLog();
    EXPECT_EQ(resolvedSerial(log), kSerial);
    EXPECT_EQ(std::count(log.begin(), log.end(), "D Reader name for hScard: " + resourceManager.readerName), 1);
    if (length < 5) continue;
    // The third piece is the serial, however long.
    resourceManager.readerName = "a b " + std::string(length - 5, 's') + "7";
    EXPECT_EQ(acquireOnce(kCardHandle), 0u);
    log = takeLog();
    EXPECT_EQ(resolvedSerial(log), std::string(length - 5, 's') + "7");
  }
  expectUsable();
}

struct NameRow {
  const char* name;
  DWORD status;
  const char* serial;
};

TEST_F(AcquisitionFaults, WithStrangeReaderNames) {
  const NameRow rows[] = {
      {" ", 0, kSerial},
      {"  ", 0, kSerial},
      {"                ", 0, kSerial},
      {"a 2147483647", 0, kSerial},
      {"a 2147483648", kInternalError, "(none)"},
      {"a 00000000000000000000000000000000", 0, kSerial},
      {"a 99999999999999999999999999999999", kInternalError, "(none)"},
      {"a -1", 0, kSerial},
      {"a b c", 0, kSerial},
      {"a  7", 0, "7"},
      {"\x01\xFF\x80 \xFE 9\xFF", 0, "9\xFF"},
  };
  for (const NameRow& row : rows) {
    SCOPED_TRACE(row.name);
    startAnew();
    resourceManager.readerName = row.name;
    resourceManager.transmitResult = SCARD_E_INVALID_HANDLE;
    EXPECT_EQ(acquireOnce(kCardHandle), row.status);
    EXPECT_EQ(resolvedSerial(takeLog()), row.serial);
    expectUsable();
  }
}

TEST_F(AcquisitionFaults, WithRepliesOfEveryLength) {
  struct Row {
    const char* reader;
    std::uint8_t status[2];
    std::size_t shortest;  // reply that counts; 0: none does
  };
  const Row rows[] = {
      {"OrvaneDSC", {0x90, 0x00}, 3}, {"OrvaneDSC", {0x90, 0x01}, 0}, {"OrvaneDSC", {0x6A, 0x82}, 0},
      {"Reader", {0x90, 0x00}, 3},    {"Reader", {0x6A, 0x82}, 3},
  };
  startAnew();
  for (const Row& row : rows) {
    for (const std::size_t length : lengthsUpTo(64)) {
      SCOPED_TRACE(std::string(row.reader) + " " + std::to_string(row.status[1]) + " " + std::to_string(length));
      resourceManager = ResourceManager{};
      resourceManager.readerName = row.reader;
      resourceManager.reply = Bytes(length, 'S');
      if (length >= 1) resourceManager.reply[length - 1] = row.status[1];
      if (length >= 2) resourceManager.reply[length - 2] = row.status[0];
      EXPECT_EQ(acquireOnce(kCardHandle), 0u);
      const bool counts = row.shortest != 0 && length >= row.shortest;
      EXPECT_EQ(resolvedSerial(takeLog()), counts ? std::string(length - 2, 'S') : kSerial);
    }
  }
  expectUsable();
}

}  // namespace
}  // namespace orvane::test
