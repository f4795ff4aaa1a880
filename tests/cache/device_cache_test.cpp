// The records of tokens and the container lists, operation by operation.
#include "cache/device_cache.h"

#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "cache/container_list_cache.h"
#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class DeviceCacheTest : public ::testing::Test {
 protected:
  std::string password(const std::string& serial) const { return cache.getCachedPassword(serial).c_str(); }

  Mutex libraryMutex;
  DeviceCache cache{libraryMutex};
};

TEST_F(DeviceCacheTest, MissingRecordReadsAsNothingAndStaysMissing) {
  EXPECT_EQ(password("A1"), "");
  EXPECT_FALSE(cache.pinState("A1").isCached);
  EXPECT_FALSE(cache.pinState("A1").isValidatedLocal);
  EXPECT_FALSE(cache.isDeviceInitialized("A1"));
  EXPECT_EQ(cache.firmwareVersion("A1"), std::nullopt);
  EXPECT_EQ(cache.updateKeyCount("A1", 3), std::nullopt);
  EXPECT_FALSE(cache.pinState("A1").reconnectSeen);
  const Freshness freshness = cache.freshness("A1");
  EXPECT_EQ(freshness.pins, 1);
  EXPECT_EQ(freshness.containers, 0);
  EXPECT_EQ(freshness.files, 0);
  cache.clearValidatedPassword("A1");
  cache.detachContext("A1");
  cache.erase("A1");
  EXPECT_FALSE(cache.hasRecord("A1"));
}

// The operations that make a record; its counters then read as 0.
TEST_F(DeviceCacheTest, RecordsAreMadeWhenNeeded) {
  const struct {
    const char* serial;
    void (*run)(DeviceCache& cache, const std::string& serial);
    unsigned pins;
    unsigned containers;
    unsigned files;
  } rows[] = {
      {"store", [](DeviceCache& c, const std::string& s) { c.storeValidatedPassword(s, SecretText("1", 1)); }, 0, 0, 0},
      {"mark", [](DeviceCache& c, const std::string& s) { c.markDeviceInitialized(s); }, 0, 0, 0},
      {"attach", [](DeviceCache& c, const std::string& s) { c.attachContext(s); }, 0, 0, 0},
      {"info", [](DeviceCache& c, const std::string& s) { c.storeTokenInfo(s, TokenInfo{}); }, 0, 0, 0},
      {"first", [](DeviceCache& c, const std::string& s) { c.firstPinsBump(s); }, 1, 0, 0},
      {"pins", [](DeviceCache& c, const std::string& s) { c.bumpPinsFreshness(s); }, 1, 0, 0},
      {"containers", [](DeviceCache& c, const std::string& s) { c.bumpContainersFreshness(s); }, 0, 1, 0},
      {"files", [](DeviceCache& c, const std::string& s) { c.bumpFilesFreshness(s); }, 0, 0, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.serial);
    row.run(cache, row.serial);
    EXPECT_TRUE(cache.hasRecord(row.serial));
    const Freshness freshness = cache.freshness(row.serial);
    EXPECT_EQ(freshness.pins, row.pins);
    EXPECT_EQ(freshness.containers, row.containers);
    EXPECT_EQ(freshness.files, row.files);
    cache.erase(row.serial);
    EXPECT_FALSE(cache.hasRecord(row.serial));
  }
}

TEST_F(DeviceCacheTest, PasswordIsKeptUntilCleared) {
  cache.storeValidatedPassword("A1", SecretText("first pin", 9));
  cache.storeValidatedPassword("A2", SecretText("other", 5));
  EXPECT_EQ(password("A1"), "first pin");
  EXPECT_TRUE(cache.pinState("A1").isValidatedLocal);
  EXPECT_TRUE(cache.pinState("A1").isCached);
  cache.storeValidatedPassword("A1", SecretText("2nd", 3));
  EXPECT_EQ(password("A1"), "2nd");
  cache.clearValidatedPassword("A1");
  EXPECT_EQ(password("A1"), "");
  EXPECT_FALSE(cache.pinState("A1").isValidatedLocal);
  EXPECT_FALSE(cache.pinState("A1").isCached);
  EXPECT_TRUE(cache.hasRecord("A1"));
  EXPECT_EQ(password("A2"), "other");
  cache.erase("A2");
  EXPECT_EQ(password("A2"), "");
}

TEST_F(DeviceCacheTest, KeyCountChangesOnlyWhileAContextIsAttached) {
  cache.markDeviceInitialized("A1");
  EXPECT_EQ(cache.updateKeyCount("A1", 1), std::nullopt) << "a new record has no context";
  cache.attachContext("A1");
  EXPECT_EQ(cache.updateKeyCount("A1", 3), 0u);
  EXPECT_EQ(cache.updateKeyCount("A1", 5), 3u);
  cache.detachContext("A1");
  EXPECT_EQ(cache.updateKeyCount("A1", 7), std::nullopt);
  cache.attachContext("A1");
  EXPECT_EQ(cache.updateKeyCount("A1", 7), 5u);
}

TEST_F(DeviceCacheTest, FirstPinsBumpIsRemembered) {
  cache.firstPinsBump("A1");
  EXPECT_TRUE(cache.pinState("A1").reconnectSeen);
  cache.bumpPinsFreshness("A2");
  EXPECT_FALSE(cache.pinState("A2").reconnectSeen);
}

TEST_F(DeviceCacheTest, SerialsAreComparedAsTheyAre) {
  cache.markDeviceInitialized("a1");
  EXPECT_TRUE(cache.isDeviceInitialized("a1"));
  EXPECT_FALSE(cache.isDeviceInitialized("A1"));
  EXPECT_FALSE(cache.isDeviceInitialized("a"));
  EXPECT_FALSE(cache.isDeviceInitialized("a11"));
}

TEST(ContainerLists, AreReplacedAsAWhole) {
  ContainerListCache lists;
  EXPECT_EQ(lists.find("A1"), nullptr);
  lists.erase("A1");
  lists.replace("A1", shared({}));
  ASSERT_NE(lists.find("A1"), nullptr) << "an empty list is a list";
  EXPECT_TRUE(lists.find("A1")->empty());
  lists.replace("A1", shared({containerEntryFor(makeKey(0x1A, 1)), containerEntryFor(makeKey(2, 2))}));
  const auto held = lists.find("A1");
  ASSERT_EQ(held->size(), 2u);
  EXPECT_TRUE(held->at(0).containerGuid == L"1A1A1A1A1A1A1A1A1A1A1A1A1A1A1A1A");
  ASSERT_EQ(held->at(0).keyPairs.size(), 1u);
  EXPECT_EQ(held->at(0).keyPairs[0].keyUsage, 1);
  lists.replace("A1", shared({containerEntryFor(makeKey(3, 3))}));
  EXPECT_EQ(lists.find("A1")->size(), 1u);
  EXPECT_EQ(held->size(), 2u) << "who found a list keeps it";
  lists.replace("A2", shared({}));
  lists.erase("A1");
  EXPECT_EQ(lists.find("A1"), nullptr);
  EXPECT_NE(lists.find("A2"), nullptr);
}

TEST(MutexTest, ReportsReentry) {
  Mutex mutex;
  try {
    lockTwice(mutex);
    ADD_FAILURE() << "the thread locked twice";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
  }
  const LockGuard free(mutex);
}

TEST(MutexTest, KnowsItsHolderHoweverItWasTaken) {
  Mutex mutex;
  void (Mutex::*const lock)() = &Mutex::lock;
  if (mutex.tryLock()) {
    EXPECT_THROW((mutex.*lock)(), std::system_error);
    mutex.unlock();
  } else {
    ADD_FAILURE() << "nobody holds it";
  }
}

TEST(MutexTest, IsTakenOnlyWhenFree) {
  Mutex mutex;
  const auto isTaken = [&] {
    if (!mutex.tryLock()) return false;
    mutex.unlock();
    return true;
  };
  EXPECT_TRUE(isTaken());
  EXPECT_TRUE(isTaken()) << "it was given back";
  const LockGuard held(mutex);
  EXPECT_FALSE(isTaken()) << "by the holder itself";
  bool isTakenElsewhere = true;
  std::thread([&] { isTakenElsewhere = isTaken(); }).join();
  EXPECT_FALSE(isTakenElsewhere);
}

}  // namespace
}  // namespace orvane::test
