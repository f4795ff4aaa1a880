// The bytes of CONTAINER_INFO that no key fills, and which list of containers a query answers from.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class ContainerRecord : public DriverTest {
 protected:
  // CONTAINER_INFO as its 40 bytes, with this version and blobs of this size where there is a pointer.
  static Bytes recordOf(DWORD version, const CONTAINER_INFO& returned) {
    Bytes bytes(40, 0);
    const auto put = [&](std::size_t offset, const auto& value) { std::memcpy(&bytes[offset], &value, sizeof(value)); };
    put(0, version);
    put(8, returned.cbSigPublicKey);
    put(16, returned.pbSigPublicKey);
    put(24, returned.cbKeyExPublicKey);
    put(32, returned.pbKeyExPublicKey);
    return bytes;
  }

  void release(const CONTAINER_INFO& info) {
    for (void* const blob : {info.pbSigPublicKey, info.pbKeyExPublicKey}) {
      if (blob != nullptr) freeBuffer(blob);
    }
  }
};

// The padding behind each of the two sizes is zero as well: nothing of our stack, or of what the caller had there.
TEST_F(ContainerRecord, HasNoByteThatNobodyWrote) {
  for (const int usage : {0, 1, 2, 3}) {
    SCOPED_TRACE(usage);
    CARD_DATA& record = openFresh({makeKey(1, usage)});
    auto info = poisoned<CONTAINER_INFO>();
    info.dwVersion = 77;
    EXPECT_EQ(record.pfnCardGetContainerInfo(&record, 0, 0, &info), 0u);
    EXPECT_EQ(bytesOf(info), recordOf(77, info));
    release(info);

    auto property = poisoned<CONTAINER_INFO>();
    DWORD length = kPoison32;
    EXPECT_EQ(record.pfnCardGetContainerProperty(&record, 0, CCP_CONTAINER_INFO, reinterpret_cast<PBYTE>(&property),
                                                 sizeof(property), &length, 0),
              0u);
    EXPECT_EQ(length, 40u);
    EXPECT_EQ(bytesOf(property), recordOf(1, property));
    release(property);
    forget();
  }
}

// A container that lost its keys: version 1, zeros, and no line behind the count. With two keys, each usage takes the
// first key that fits.
TEST_F(ContainerRecord, OfTheProperty) {
  const struct {
    const char* name;
    std::vector<OrvaneKeyPair> keys;
    std::size_t signatureSize;  // of the blob, 0 for none
    std::size_t keyExchangeSize;
    Lines log;  // behind the count
  } rows[] = {
      {"no keys", {}, 0, 0, {}},
      {"two that share the usages",
       {makeKey(1, 2, 4096), makeKey(2, 1, 3072)},
       404,
       532,
       {"D CardGetContainerProperty: Sig public key length = 404",
        "D CardGetContainerProperty: KeyEx public key length = 532",
        "D CardGetContainerProperty: returning CONTAINER_INFO for index 0"}},
      {"two for everything",
       {makeKey(1, 3, 3072), makeKey(2, 3, 4096)},
       404,
       404,
       {"D CardGetContainerProperty: Sig public key length = 404",
        "D CardGetContainerProperty: KeyEx public key length = 404",
        "D CardGetContainerProperty: returning CONTAINER_INFO for index 0"}},
      {"two, none for signatures",
       {makeKey(1, 0, 3072), makeKey(2, 2, 2048)},
       0,
       276,
       {"D CardGetContainerProperty: KeyEx public key length = 276",
        "D CardGetContainerProperty: returning CONTAINER_INFO for index 0"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    CARD_DATA& record = openFresh();
    // The process-wide list would be taken over, so the context gets another serial, for which there is none.
    setSerial(record, kOtherSerial);
    setKeys(record, 0, row.keys);
    auto info = poisoned<CONTAINER_INFO>();
    DWORD length = kPoison32;
    forget();
    EXPECT_EQ(record.pfnCardGetContainerProperty(&record, 0, CCP_CONTAINER_INFO, reinterpret_cast<PBYTE>(&info),
                                                 sizeof(info), &length, 0),
              0u);
    EXPECT_EQ(takeLog(), concat({"D CardGetContainerProperty :: LOG_FUNCTION_NAME = Entry",
                                 "D CardGetContainerProperty bContainerIndex :: 0",
                                 "D CardGetContainerProperty container list size :: 1", "D Container count = 1"},
                                row.log));
    EXPECT_EQ(length, 40u);
    EXPECT_EQ(bytesOf(info), recordOf(1, info));
    EXPECT_EQ(info.cbSigPublicKey, row.signatureSize);
    EXPECT_EQ(info.cbKeyExPublicKey, row.keyExchangeSize);
    release(info);
  }
}

// Another context has learnt about a second key by now. CardGetContainerInfo goes on with its own context's list; the
// property takes the new one over, and then so does CardGetContainerInfo.
TEST_F(ContainerRecord, IsOfTheContextsOwnList) {
  CARD_DATA& older = open({makeKey(1, 1, 2048)});
  softtoken_clear_keys(kSerial);
  for (const OrvaneKeyPair& key : {makeKey(3, 1, 4096), makeKey(1, 1, 2048)}) softtoken_add_key(kSerial, &key);
  openContext();

  auto info = poisoned<CONTAINER_INFO>();
  EXPECT_EQ(older.pfnCardGetContainerInfo(&older, 0, 0, &info), 0u);
  EXPECT_EQ(info.cbSigPublicKey, 276u) << "the key that the context knows";
  release(info);
  auto untouched = poisoned<CONTAINER_INFO>();
  EXPECT_EQ(older.pfnCardGetContainerInfo(&older, 1, 0, &untouched), code(SCARD_E_NO_KEY_CONTAINER));
  EXPECT_EQ(bytesOf(untouched), Bytes(40, kPoison));

  auto property = poisoned<CONTAINER_INFO>();
  DWORD length = 0;
  EXPECT_EQ(older.pfnCardGetContainerProperty(&older, 0, CCP_CONTAINER_INFO, reinterpret_cast<PBYTE>(&property),
                                              sizeof(property), &length, 0),
            0u);
  EXPECT_EQ(property.cbSigPublicKey, 532u) << "the new list's first key";
  release(property);
  auto again = poisoned<CONTAINER_INFO>();
  EXPECT_EQ(older.pfnCardGetContainerInfo(&older, 0, 0, &again), 0u);
  EXPECT_EQ(again.cbSigPublicKey, 532u);
  release(again);
  forget();
}

}  // namespace
}  // namespace orvane::test
