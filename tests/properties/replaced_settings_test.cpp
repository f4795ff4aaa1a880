// CardSetProperty over values that are there already: a new value replaces the old one wholly, a refused one leaves it.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

class ReplacedSettings : public DriverTest {
 protected:
  static DWORD set(CARD_DATA& record, const wchar_t* name, Bytes data) {
    return record.pfnCardSetProperty(&record, name, data.data(), static_cast<DWORD>(data.size()), 0);
  }

  // All settings as one text.
  static std::string settingsOf(const CARD_DATA& record) {
    const ProviderContext& context = inside(record);
    std::string text = context.serialNumber + "|" + context.pinContextString + "|";
    for (const std::uint8_t byte : bytesOf(context.pinInfo)) text += std::to_string(byte) + ",";
    return text + "|" + std::to_string(reinterpret_cast<std::uintptr_t>(context.parentWindow)) + "|" +
           std::to_string(context.pinStrengthVerify) + "|" + std::to_string(context.cacheMode) + "|" +
           std::to_string(context.supportsX509Enrollment);
  }
};

TEST_F(ReplacedSettings, AreReplacedNotMerged) {
  const struct {
    const wchar_t* name;
    Bytes first;
    Bytes second;
  } rows[] = {
      {CP_CARD_CACHE_MODE, words({0xFFFFFFFF}), words({2})},
      {CP_SUPPORTS_WIN_X509_ENROLLMENT, words({1}), words({0})},
      {CP_CARD_GUID, Bytes(16, 1), Bytes(16, 2)},
      {CP_CARD_SERIAL_NO, wideBytes(L"A longer serial than the next"), wideBytes(L"B2")},
      {CP_CARD_SERIAL_NO, wideBytes(L"A1"), Bytes()},
      {CP_CARD_PIN_INFO, Bytes(36, 0xFF), Bytes(36, 0x01)},
      {CP_PARENT_WINDOW, Bytes(8, 0x7F), Bytes{1, 0, 0, 0, 0, 0, 0, 0}},
      {CP_PIN_CONTEXT_STRING, wideBytes(L"A longer text than the next"), wideBytes(L"short")},
      {CP_PIN_CONTEXT_STRING, wideBytes(L"something"), Bytes()},
      {CP_CARD_PIN_STRENGTH_VERIFY, words({7}), words({0})},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.name, row.name + std::wstring_view(row.name).size()));
    CARD_DATA& replaced = openFresh();
    EXPECT_EQ(set(replaced, row.name, row.first), 0u);
    EXPECT_EQ(set(replaced, row.name, row.second), 0u);
    const std::string after = settingsOf(replaced);
    CARD_DATA& fresh = openFresh();
    EXPECT_EQ(set(fresh, row.name, row.second), 0u);
    EXPECT_EQ(after, settingsOf(fresh));
    forget();
  }
}

TEST_F(ReplacedSettings, StayWhenARefusedValueComes) {
  const struct {
    const wchar_t* name;
    Bytes good;
    std::size_t tooShort;
  } rows[] = {{CP_CARD_CACHE_MODE, words({3}), 3},
              {CP_CARD_PIN_INFO, Bytes(36, 0x22), 35},
              {CP_PARENT_WINDOW, Bytes(8, 0x11), 7},
              {CP_CARD_PIN_STRENGTH_VERIFY, words({1}), 3}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.name, row.name + std::wstring_view(row.name).size()));
    CARD_DATA& record = openFresh();
    EXPECT_EQ(set(record, row.name, row.good), 0u);
    const std::string before = settingsOf(record);
    EXPECT_EQ(set(record, row.name, Bytes(row.tooShort, 0xEE)), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(record.pfnCardSetProperty(&record, row.name, nullptr, 64, 0), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(settingsOf(record), before);
    forget();
  }
}

}  // namespace
}  // namespace orvane::test
