// CardGetContainerProperty and CardSetContainerProperty.
#include <algorithm>

#include "containers/key_blob.h"
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

Lines asked(unsigned index) {
  return {"D CardGetContainerProperty :: LOG_FUNCTION_NAME = Entry",
          "D CardGetContainerProperty bContainerIndex :: " + std::to_string(index)};
}

Lines refreshed(unsigned index, unsigned before, unsigned after) {
  return concat(asked(index), {"D CardGetContainerProperty container list size :: " + std::to_string(before),
                               "D Container count = " + std::to_string(after)});
}

Lines setting(DWORD flags = 0) {
  return {"D CardSetContainerProperty :: LOG_FUNCTION_NAME = Entry", "D dwflaogs :: " + std::to_string(flags)};
}

struct Question {
  const char* label = "";
  bool hasRecord = true;
  bool hasContext = true;
  BYTE index = 0;
  const wchar_t* name = L"PIN Identifier";
  bool hasBuffer = true;
  DWORD bufferSize = 40;
  bool hasLength = true;
  DWORD flags = 0;
  Outcome outcome = {};
  std::optional<DWORD> length = std::nullopt;  // none: untouched
  Bytes value = {};                            // the buffer's first bytes afterwards
};

class ContainerPropertyTest : public DriverTest {
 protected:
  void run(CARD_DATA& record, const Question& row) {
    SCOPED_TRACE(row.label);
    CARD_DATA noContext = withoutContext(record);
    PCARD_DATA argument = !row.hasRecord ? nullptr : row.hasContext ? &record : &noContext;
    Bytes buffer(row.bufferSize + 9, kPoison);
    DWORD length = kPoison32;
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetContainerProperty(argument, row.index, row.name,
                                                          row.hasBuffer ? buffer.data() + 1 : nullptr, row.bufferSize,
                                                          row.hasLength ? &length : nullptr, row.flags);
              }),
              row.outcome);
    EXPECT_EQ(length, row.length.value_or(kPoison32));
    Bytes wanted(buffer.size(), kPoison);
    std::copy(row.value.begin(), row.value.end(), wanted.begin() + 1);
    EXPECT_EQ(buffer, wanted);
  }

  // Asks for "Container Info" and compares the two blobs; none for a null pointer with length 0.
  void expectInfo(CARD_DATA& record, BYTE index, const Outcome& outcome, const std::optional<Bytes>& signature,
                  const std::optional<Bytes>& keyExchange) {
    Bytes buffer(49, kPoison);
    DWORD length = kPoison32;
    EXPECT_EQ(observe([&] {
                return record.pfnCardGetContainerProperty(&record, index, L"Container Info", buffer.data() + 1, 40,
                                                          &length, kPoison32);
              }),
              outcome);
    EXPECT_EQ(length, 40u);
    EXPECT_EQ(buffer.front(), kPoison);
    EXPECT_EQ(Bytes(buffer.begin() + 41, buffer.end()), Bytes(8, kPoison));
    CONTAINER_INFO info;
    std::memcpy(&info, buffer.data() + 1, sizeof(info));
    EXPECT_EQ(info.dwVersion, 1u);
    EXPECT_EQ(info.dwReserved, 0u);
    EXPECT_EQ(takeBlob(info.pbSigPublicKey, info.cbSigPublicKey), signature);
    EXPECT_EQ(takeBlob(info.pbKeyExPublicKey, info.cbKeyExPublicKey), keyExchange);
  }
};

TEST_F(ContainerPropertyTest, GetRefusesArgumentsInOrder) {
  CARD_DATA& record = open({makeKey(1, 3), makeKey(2, 3), makeKey(3, 3)});
  const Outcome invalid{87, concat(asked(0), {"E CardGetContainerProperty: invalid parameter(s)"})};
  const Outcome noContext{87, concat(asked(9), {"E CardGetContainerProperty: provider context is NULL"})};
  const auto index = [](unsigned value) {
    return Outcome{code(SCARD_E_NO_KEY_CONTAINER),
                   concat(refreshed(value, 3, 3), {"E Invalid container index: " + std::to_string(value) + " max=3"})};
  };
  const Outcome unknown{code(SCARD_E_UNSUPPORTED_FEATURE),
                        concat(refreshed(0, 3, 3), {"D CardGetContainerProperty: unsupported property requested"})};
  const Question cases[] = {
      {.label = "no record", .hasRecord = false, .outcome = invalid},
      {.label = "no name, before no context", .hasContext = false, .name = nullptr, .outcome = invalid},
      {.label = "no length", .hasLength = false, .outcome = invalid},
      {.label = "no context, before the index", .hasContext = false, .index = 9, .outcome = noContext},
      {.label = "an index equal to the count", .index = 3, .outcome = index(3)},
      {.label = "the largest index, before the name", .index = 255, .name = L"no such name", .outcome = index(255)},
      {.label = "other name", .name = L"Associated ECDH Key", .outcome = unknown},
      {.label = "lower case", .name = L"container info", .outcome = unknown},
      {.label = "upper case", .name = L"PIN IDENTIFIER", .outcome = unknown},
      {.label = "one blank more", .name = L"PIN Identifier ", .outcome = unknown},
      {.label = "empty", .name = L"", .outcome = unknown},
      {.label = "a property of the card", .name = L"Card Identifier", .outcome = unknown},
  };
  for (const Question& row : cases) run(record, row);
}

TEST_F(ContainerPropertyTest, PinIdentifierIsAlwaysTheUser) {
  CARD_DATA& record = open({makeKey(1, 3), makeKey(2, 1)});
  const auto answered = [](unsigned index) {
    return Outcome{0, concat(refreshed(index, 2, 2), {"D CardGetContainerProperty: CCP_PIN_IDENTIFIER = ROLE_USER"})};
  };
  const Outcome tooSmall{
      122, concat(refreshed(0, 2, 2), {"D CardGetContainerProperty: buffer too small for PIN identifier"})};
  const Question cases[] = {
      {.label = "exact", .bufferSize = 4, .outcome = answered(0), .length = 4, .value = words({1})},
      {.label = "more room", .bufferSize = 5, .outcome = answered(0), .length = 4, .value = words({1})},
      {.label = "second container, any flags",
       .index = 1,
       .bufferSize = 4,
       .flags = 0xFFFFFFFF,
       .outcome = answered(1),
       .length = 4,
       .value = words({1})},
      {.label = "one byte short", .bufferSize = 3, .outcome = tooSmall, .length = 4},
      {.label = "no room", .bufferSize = 0, .outcome = tooSmall, .length = 4},
      {.label = "no buffer", .hasBuffer = false, .bufferSize = 0, .outcome = tooSmall, .length = 4},
      {.label = "no buffer but a size", .hasBuffer = false, .bufferSize = 4, .outcome = tooSmall, .length = 4},
  };
  for (const Question& row : cases) run(record, row);
}

TEST_F(ContainerPropertyTest, ContainerInfoNeedsItsSize) {
  CARD_DATA& record = open();
  const Outcome tooSmall{
      122, concat(refreshed(0, 1, 1), {"D CardGetContainerProperty: buffer too small for CONTAINER_INFO"})};
  const Question cases[] = {
      {.label = "one byte short", .bufferSize = 39, .outcome = tooSmall, .length = 40},
      {.label = "no room", .bufferSize = 0, .outcome = tooSmall, .length = 40},
      {.label = "no buffer", .hasBuffer = false, .bufferSize = 0, .outcome = tooSmall, .length = 40},
      {.label = "no buffer but a size", .hasBuffer = false, .bufferSize = 40, .outcome = tooSmall, .length = 40},
  };
  for (Question row : cases) {
    row.name = L"Container Info";
    run(record, row);
  }
}

TEST_F(ContainerPropertyTest, ContainerInfoHasTheKeysThatTheUsageCallsFor) {
  const OrvaneKeyPair signature = makeKey(1, 1, 1024);
  const OrvaneKeyPair keyExchange = makeKey(2, 2, 4096);
  const OrvaneKeyPair both = makeKey(3, 3, 2048);
  CARD_DATA& record = open({signature, keyExchange, both, makeKey(4, 0)});
  const auto finished = [](unsigned index, const Lines& lengths) {
    const std::string last = "D CardGetContainerProperty: returning CONTAINER_INFO for index " + std::to_string(index);
    return Outcome{0, concat(concat(refreshed(index, 4, 4), lengths), {last})};
  };
  const std::string signatureLength = "D CardGetContainerProperty: Sig public key length = ";
  const std::string keyExchangeLength = "D CardGetContainerProperty: KeyEx public key length = ";
  expectInfo(record, 0, finished(0, {alloc(148), signatureLength + "148"}), blobOf(signature, kSignatureBlob),
             std::nullopt);
  expectInfo(record, 1, finished(1, {alloc(532), keyExchangeLength + "532"}), std::nullopt,
             blobOf(keyExchange, kKeyExchangeBlob));
  expectInfo(record, 2, finished(2, {alloc(276), signatureLength + "276", alloc(276), keyExchangeLength + "276"}),
             blobOf(both, kSignatureBlob), blobOf(both, kKeyExchangeBlob));
  expectInfo(record, 3, finished(3, {}), std::nullopt, std::nullopt);
}

TEST_F(ContainerPropertyTest, ContainerInfoWithoutMemory) {
  const OrvaneKeyPair both = makeKey(1, 3);
  CARD_DATA& record = open({both});
  const auto failed = [](const Lines& lines) {
    return Outcome{code(SCARD_E_NO_MEMORY), concat(refreshed(0, 1, 1), lines)};
  };
  failAllocationsAfter(0);
  expectInfo(record, 0, failed({refusedAlloc(276), "D no memory", "D CardGetContainerProperty: sig blob failed"}),
             std::nullopt, std::nullopt);
  failAllocationsAfter(1);
  expectInfo(record, 0,
             failed({alloc(276), "D CardGetContainerProperty: Sig public key length = 276", refusedAlloc(276),
                     "D no memory", "D CardGetContainerProperty: keyex blob failed"}),
             blobOf(both, kSignatureBlob), std::nullopt);
  failAllocationsAfter(std::nullopt);
  record.pfnCspAlloc = nullptr;
  expectInfo(record, 0, failed({"D no memory", "D CardGetContainerProperty: sig blob failed"}), std::nullopt,
             std::nullopt);
}

// A record that states a longer modulus than it holds has no blob.
TEST_F(ContainerPropertyTest, ContainerInfoOfAModulusBeyondTheRecord) {
  const char* const signature = "D CardGetContainerProperty: sig blob failed";
  const char* const keyExchange = "D CardGetContainerProperty: keyex blob failed";
  const struct {
    int usage;
    std::uint32_t modulusLength;
    const char* line;
  } rows[] = {{1, 1025, signature}, {2, 1025, keyExchange}, {3, 1025, signature}, {3, 0xFFFFFFFF, signature}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.usage) + " " + std::to_string(row.modulusLength));
    OrvaneKeyPair key = makeKey(1, row.usage);
    key.modulusLength = row.modulusLength;
    CARD_DATA& record = openFresh({key});
    expectInfo(record, 0, {87, concat(refreshed(0, 1, 1), {"D invalid param ", row.line})}, std::nullopt, std::nullopt);
  }
}

TEST_F(ContainerPropertyTest, GetTakesOverTheLatestList) {
  CARD_DATA& older = open({makeKey(1, 3)});
  const OrvaneKeyPair second = makeKey(2, 1);
  ASSERT_EQ(softtoken_add_key(kSerial, &second), 1);
  openContext();
  Question row{
      .label = "the second key is known from now on",
      .index = 1,
      .bufferSize = 4,
      .outcome = {0, concat(refreshed(1, 1, 2), {"D CardGetContainerProperty: CCP_PIN_IDENTIFIER = ROLE_USER"})},
      .length = 4,
      .value = words({1})};
  EXPECT_EQ(inside(older).containerCount(), 1u);
  run(older, row);
  EXPECT_EQ(inside(older).containerCount(), 2u);

  ASSERT_EQ(softtoken_clear_keys(kSerial), 1);
  openContext();
  run(older, {.label = "an empty list is taken over, too",
              .outcome = {code(SCARD_E_NO_KEY_CONTAINER),
                          concat(refreshed(0, 2, 0), {"E Invalid container index: 0 max=0"})}});

  ASSERT_EQ(softtoken_add_key(kSerial, &second), 1);
  CARD_DATA& other = openContext();
  setSerial(other, "nobody");
  run(other,
      {.label = "a serial without a list keeps the context's",
       .bufferSize = 4,
       .outcome = {0, concat(refreshed(0, 1, 1), {"D CardGetContainerProperty: CCP_PIN_IDENTIFIER = ROLE_USER"})},
       .length = 4,
       .value = words({1})});
}

TEST_F(ContainerPropertyTest, SetAcceptsAndForgetsThePinIdentifier) {
  CARD_DATA& record = open({makeKey(1, 3), makeKey(2, 3), makeKey(3, 3)});
  CARD_DATA noContext = withoutContext(record);
  const std::string index = "E CardSetContainerProperty: invalid container index ";
  const std::string small = "E CardSetContainerProperty: buffer too small for PIN identifier";
  const std::string other = "D CardSetContainerProperty: unsupported property = ";
  const std::string stored = "D CardSetContainerProperty: set PIN identifier for container ";
  const struct {
    const char* label;
    PCARD_DATA record;
    BYTE index;
    const wchar_t* name;
    bool hasData;
    DWORD size;
    DWORD flags;
    DWORD status;
    std::string line;
  } cases[] = {
      {"no record", nullptr, 0, L"PIN Identifier", true, 4, 0, 87, "E CardSetContainerProperty: invalid parameter(s)"},
      {"no name, before no context", &noContext, 0, nullptr, true, 4, 1, 87,
       "E CardSetContainerProperty: invalid parameter(s)"},
      {"no data", &record, 0, L"PIN Identifier", false, 4, 0, 87, "E CardSetContainerProperty: invalid parameter(s)"},
      {"no context, before the index", &noContext, 9, L"PIN Identifier", true, 4, 0, 87,
       "E CardSetContainerProperty: provider context is NULL"},
      {"an index equal to the count, before the name", &record, 3, L"other", true, 4, 0, code(SCARD_E_NO_KEY_CONTAINER),
       index + "3"},
      {"the largest index", &record, 255, L"PIN Identifier", true, 4, 0, code(SCARD_E_NO_KEY_CONTAINER), index + "255"},
      {"other name, before the size", &record, 0, L"Container Info", true, 0, 0, code(SCARD_E_UNSUPPORTED_FEATURE),
       other + "Container Info"},
      {"lower case", &record, 0, L"pin identifier", true, 4, 0, code(SCARD_E_UNSUPPORTED_FEATURE),
       other + "pin identifier"},
      {"empty name", &record, 0, L"", true, 4, 0, code(SCARD_E_UNSUPPORTED_FEATURE), other},
      {"units by their low bytes", &record, 0, L"\u0141\u0142", true, 4, 0, code(SCARD_E_UNSUPPORTED_FEATURE),
       other + "AB"},
      {"one byte short", &record, 0, L"PIN Identifier", true, 3, 0, 122, small},
      {"no size", &record, 0, L"PIN Identifier", true, 0, 0, 122, small},
      {"exact", &record, 0, L"PIN Identifier", true, 4, 0, 0, stored + "0 = 67305985"},
      {"more, any flags", &record, 2, L"PIN Identifier", true, 5, 0xFFFFFFFF, 0, stored + "2 = 67305985"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.label);
    // One byte off any alignment.
    Bytes data = {kPoison, 1, 2, 3, 4, 5};
    EXPECT_EQ(observe([&] {
                return record.pfnCardSetContainerProperty(row.record, row.index, row.name,
                                                          row.hasData ? data.data() + 1 : nullptr, row.size, row.flags);
              }),
              (Outcome{row.status, concat(setting(row.flags), {row.line})}));
    EXPECT_EQ(data, (Bytes{kPoison, 1, 2, 3, 4, 5}));
  }

  Bytes two = words({2});
  ASSERT_EQ(record.pfnCardSetContainerProperty(&record, 0, L"PIN Identifier", two.data(), 4, 0), 0u);
  run(record,
      {.label = "still the user",
       .bufferSize = 4,
       .outcome = {0, concat(refreshed(0, 3, 3), {"D CardGetContainerProperty: CCP_PIN_IDENTIFIER = ROLE_USER"})},
       .length = 4,
       .value = words({1})});
}

TEST_F(ContainerPropertyTest, SetDoesNotTakeOverTheLatestList) {
  CARD_DATA& older = open({makeKey(1, 3)});
  const OrvaneKeyPair second = makeKey(2, 1);
  ASSERT_EQ(softtoken_add_key(kSerial, &second), 1);
  openContext();
  Bytes two = words({2});
  EXPECT_EQ(observe([&] { return older.pfnCardSetContainerProperty(&older, 1, L"PIN Identifier", two.data(), 4, 0); }),
            (Outcome{code(SCARD_E_NO_KEY_CONTAINER),
                     concat(setting(), {"E CardSetContainerProperty: invalid container index 1"})}));
}

}  // namespace
}  // namespace orvane::test
