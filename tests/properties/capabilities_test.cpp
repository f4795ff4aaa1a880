// CardQueryCapabilities, CardQueryFreeSpace and CardQueryKeySizes.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class QueryTest : public DriverTest {};

TEST_F(QueryTest, Capabilities) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  const std::string entry = "D CardQueryCapabilities :: LOG_FUNCTION_NAME = Entry";
  const Outcome invalid{87, {entry, "E CardQueryCapabilities: invalid parameter(s)"}};
  const Outcome success{0, {entry, "D CardQueryCapabilities: populated with RSA support, keygen disabled"}};
  const struct {
    const char* name;
    PCARD_DATA record;
    DWORD version;
    bool hasResult;
    Outcome outcome;
  } cases[] = {
      {"no record", nullptr, 1, true, invalid},     {"no result", &record, 1, false, invalid},
      {"neither", nullptr, 1, false, invalid},      {"version 1", &record, 1, true, success},
      {"any version", &record, 7, true, success},   {"poisoned", &record, kPoison32, true, success},
      {"no context", &noContext, 0, true, success},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    auto result = poisoned<CARD_CAPABILITIES>();
    result.dwVersion = row.version;
    const Bytes before = bytesOf(result);
    EXPECT_EQ(observe([&] { return record.pfnCardQueryCapabilities(row.record, row.hasResult ? &result : nullptr); }),
              row.outcome);
    EXPECT_EQ(bytesOf(result), row.outcome.status == 0 ? words({1, 1, 0}) : before);
  }
}

TEST_F(QueryTest, FreeSpace) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  const std::string entry = "D CardQueryFreeSpace :: LOG_FUNCTION_NAME = Entry";
  const Outcome invalid{87, {entry, "E CardQueryFreeSpace: invalid parameter(s)"}};
  const Outcome success{0, {entry, "D CardQueryFreeSpace: BytesAvailable=12288 MaxContainers=6 ContainersAvailable=0"}};
  const struct {
    const char* name;
    PCARD_DATA record;
    DWORD flags;
    DWORD version;
    bool hasResult;
    Outcome outcome;
  } cases[] = {
      {"no record", nullptr, 0, 1, true, invalid},
      {"no result, before no context", &noContext, 0, 1, false, invalid},
      {"no context", &noContext, 0, 1, true, {87, {entry, "E CardQueryFreeSpace: null provider context"}}},
      {"version 1", &record, 0, 1, true, success},
      {"any version, any flags", &record, 0xFFFFFFFF, 9, true, success},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    auto result = poisoned<CARD_FREE_SPACE_INFO>();
    result.dwVersion = row.version;
    const Bytes before = bytesOf(result);
    EXPECT_EQ(
        observe([&] { return record.pfnCardQueryFreeSpace(row.record, row.flags, row.hasResult ? &result : nullptr); }),
        row.outcome);
    EXPECT_EQ(bytesOf(result), row.outcome.status == 0 ? words({1, 12288, 0, 6}) : before);
  }
}

TEST_F(QueryTest, KeySizes) {
  CARD_DATA& record = open();
  CARD_DATA noContext = withoutContext(record);
  const std::string entry = "D CardQueryKeySizes :: LOG_FUNCTION_NAME = Entry";
  const Outcome invalid{87, {entry, "E CardQueryKeySizes: invalid parameter(s)"}};
  const auto success = [&](const std::string& keySpec) {
    return Outcome{0, {entry, "D CardQueryKeySizes: dwKeySpec=" + keySpec + " min=2048 default=2048 max=2048"}};
  };
  const struct {
    const char* name;
    PCARD_DATA record;
    DWORD keySpec;
    DWORD flags;
    DWORD version;
    bool hasResult;
    Outcome outcome;
  } cases[] = {
      {"no record", nullptr, 1, 0, 1, true, invalid},
      {"no result", &record, 1, 0, 1, false, invalid},
      {"key spec 0", &record, 0, 0, 1, true, success("0")},
      {"key exchange", &record, 1, 0, 1, true, success("1")},
      {"signature, any flags", &record, 2, 0xFFFFFFFF, 1, true, success("2")},
      {"the largest key spec, any version", &record, 0xFFFFFFFF, 0, 5, true, success("4294967295")},
      {"no context", &noContext, 2, 0, kPoison32, true, success("2")},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    auto result = poisoned<CARD_KEY_SIZES>();
    result.dwVersion = row.version;
    const Bytes before = bytesOf(result);
    EXPECT_EQ(observe([&] {
                return record.pfnCardQueryKeySizes(row.record, row.keySpec, row.flags,
                                                   row.hasResult ? &result : nullptr);
              }),
              row.outcome);
    EXPECT_EQ(bytesOf(result), row.outcome.status == 0 ? words({1, 2048, 2048, 2048, 2048}) : before);
  }
}

}  // namespace
}  // namespace orvane::test
