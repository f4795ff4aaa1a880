// What the process keeps beside its caches: the monitor's last event, and the number of key slots in use.
#include "cache/process_state.h"

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class LastEvent : public LinkedTest {
 protected:
  // One poll that finds these tokens; what the process holds as "connected" and "removed" afterwards.
  std::pair<bool, bool> poll(const std::string& serials) {
    queueResult("orvane_getConnectedDeviceList", 0, kSofttokenKeep, kSofttokenKeep,
                Bytes(serials.begin(), serials.end()));
    DeviceMonitor::pollDevices(known_);
    return {processState().deviceConnected, processState().deviceRemoved};
  }

  DeviceMonitor::KnownDevices known_;
};

TEST_F(LastEvent, IsWhatTheMonitorSawLast) {
  using Event = std::pair<bool, bool>;
  const Event none{false, false};
  const Event connected{true, false};
  const Event removed{false, true};
  const struct {
    const char* name;
    const char* serials;
    Event event;
  } polls[] = {
      {"nothing has happened", "", none},
      {"one appears", "A\n", connected},
      {"it stays", "A\n", connected},
      {"it goes", "", removed},
      {"it stays away", "", removed},
      {"it is back", "A\n", connected},
      {"another one appears", "A\nB\n", connected},
      {"one of two goes", "A\n", removed},
      {"one goes and one comes: appearances are handled last", "B\n", connected},
  };
  for (const auto& step : polls) {
    SCOPED_TRACE(step.name);
    EXPECT_EQ(poll(step.serials), step.event);
  }
}

class KeySlots : public LinkedTest {};

// Every key takes a sixth of the room; that "available" names the used ones is what callers know.
TEST_F(KeySlots, TakeTheirShareOfTheRoom) {
  bind();
  const struct {
    std::uint32_t used;
    const char* number;
    DWORD bytes;
    const char* bytesText;
  } rows[] = {{0, "0", 12288, "12288"}, {1, "1", 10240, "10240"}, {5, "5", 2048, "2048"}, {6, "6", 0, "0"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.number);
    processState().keySlotsUsed = row.used;
    CARD_FREE_SPACE_INFO info{9, 9, 9, 9};
    EXPECT_EQ(CardQueryFreeSpace(&bound_, 0, &info), 0u);
    EXPECT_EQ(takeLog(), (Lines{"D CardQueryFreeSpace :: LOG_FUNCTION_NAME = Entry",
                                std::string("D CardQueryFreeSpace: BytesAvailable=") + row.bytesText +
                                    " MaxContainers=6 ContainersAvailable=" + row.number}));
    const auto expectInfo = [&] {
      EXPECT_EQ(info.dwVersion, 1u);
      EXPECT_EQ(info.dwBytesAvailable, row.bytes);
      EXPECT_EQ(info.dwKeyContainersAvailable, row.used);
      EXPECT_EQ(info.dwMaxKeyContainers, 6u);
    };
    expectInfo();
    info = {9, 9, 9, 9};
    DWORD length = 0;
    EXPECT_EQ(CardGetProperty(&bound_, CP_CARD_FREE_SPACE, reinterpret_cast<PBYTE>(&info), sizeof(info), &length, 0),
              0u);
    EXPECT_EQ(takeLog().back(), std::string("D CP_CARD_FREE_SPACE: key slots = ") + row.number);
    EXPECT_EQ(length, 16u);
    expectInfo();
  }
}

}  // namespace
}  // namespace orvane::test
