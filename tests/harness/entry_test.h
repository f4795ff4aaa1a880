// What the tests of the single entry points share: one token, contexts on it, and a look at what a call did.
#ifndef ORVANE_TESTS_HARNESS_ENTRY_TEST_H
#define ORVANE_TESTS_HARNESS_ENTRY_TEST_H

#include <cstring>
#include <deque>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "harness/driver_test.h"
#include "minidriver/frame/provider_context.h"

namespace orvane::test {

// Everything that a call did but for its outputs.
struct Outcome {
  DWORD status = 0;
  Lines log;
  Lines calls;
  friend bool operator==(const Outcome&, const Outcome&) = default;
};
void PrintTo(const Outcome& outcome, std::ostream* stream);

// A prepared result of one library call: its return value, the attempts that it stores, if any.
struct Answer {
  long long result = 0;
  int attempts = kSofttokenKeep;
};

// The token of defineCard, its PINs, and two that it does not have at first.
inline constexpr char kSerial[] = "0012AB";
inline constexpr char kUserPin[] = "Tr7-user";
inline constexpr char kNewPin[] = "Nq4-fresh";
inline constexpr char kWrongPin[] = "Wv9-wrong";
inline constexpr char kSoPin[] = "Ko2-officer";
inline constexpr SCARDHANDLE kCardHandle = 0x2A;
// What a test puts wherever the minidriver might write.
inline constexpr unsigned char kPoison = 0xA5;
inline constexpr DWORD kPoison32 = 0xA5A5A5A5;

// The 16 bytes of makeKey's credentialId as call records show them.
inline std::string idOf(std::uint8_t id) { return guidOf(id); }

// Both, one after the other.
Lines concat(Lines first, const Lines& second);

// The calls of a bracketed library call with kCardHandle, and with handle 0.
Lines withHandle(const std::string& call);
Lines withoutHandle(const std::string& call);

template <typename Value>
Bytes bytesOf(const Value& value) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(&value);
  return Bytes(first, first + sizeof(value));
}

// A plain record with every byte poisoned, padding included.
template <typename Value>
Value poisoned() {
  Value value;
  std::memset(&value, kPoison, sizeof(value));
  return value;
}

// The 32-bit words as bytes, least significant first.
Bytes words(const std::vector<std::uint32_t>& values);

// The units of a text as bytes, without a terminating NUL unless the text has one.
Bytes wideBytes(std::wstring_view text);

// EntryTest is DriverTest with one token and with contexts that live as long as the test.
class EntryTest : public DriverTest {
 protected:
  void TearDown() override;

  // Defines the token kSerial, or another, with kUserPin, kSoPin, 3 tries each and firmware "2.1.0", and connects it.
  void defineCard(const std::vector<OrvaneKeyPair>& keys, const char* serial = kSerial);

  // A context on the first connected token, with kCardHandle set after the acquisition. Log and calls are forgotten.
  CARD_DATA& openContext();
  // defineCard, then openContext.
  CARD_DATA& open(const std::vector<OrvaneKeyPair>& keys = {makeKey(1, 3)});
  // Deletes all contexts, loads the minidriver anew and opens a context on a new token kSerial: nothing is left of what
  // the minidriver and the token knew.
  CARD_DATA& openFresh(const std::vector<OrvaneKeyPair>& keys = {makeKey(1, 3)});
  // Deletes all contexts and frees their records.
  void closeAll();

  // The context behind a record. Test program and minidriver are built together, so that both know its layout.
  static ProviderContext& inside(const CARD_DATA& record) {
    return *static_cast<ProviderContext*>(record.pvVendorSpecific);
  }
  // Gives a container of the record's context other keys; nobody else who shares its list sees that.
  static void setKeys(const CARD_DATA& record, std::size_t index, std::vector<OrvaneKeyPair> keyPairs) {
    ProviderContext& context = inside(record);
    auto changed = std::make_shared<ContainerList>(*context.containers);
    changed->at(index).keyPairs = std::move(keyPairs);
    context.containers = std::move(changed);
  }
  // A copy of the record that lost its context.
  static CARD_DATA withoutContext(const CARD_DATA& record);

  // Runs `call` and tells what it did.
  template <typename Call>
  Outcome observe(Call call) {
    forget();
    Outcome outcome;
    outcome.status = call();
    outcome.log = takeLog();
    outcome.calls = takeCalls();
    return outcome;
  }

  // Queues this result for the next call of the function; nothing without a value.
  void answer(const char* function, const std::optional<Answer>& prepared);

  // Each asserts success and forgets what was logged and called.
  void authenticate(CARD_DATA& record, PIN_ID pinId = ROLE_USER, const std::string& pin = kUserPin);
  // Drops the cached PIN, as a wrong one does, and leaves the context's flags.
  void dropCachedPin(CARD_DATA& record);
  void changeUserPin(CARD_DATA& record, const std::string& from, const std::string& to);
  void setSerial(CARD_DATA& record, const std::string& serial);
  // Makes the process know the token's firmware version, which it learns with its second look at the token's PIN.
  void learnFirmware(CARD_DATA& record, const char* firmware);

  // What the process and the context hold after a call, asked through the function table. Log and calls are forgotten.
  std::string cachedPin(CARD_DATA& record);
  PIN_SET authenticatedState(CARD_DATA& record);
  Bytes cardCf(CARD_DATA& record);

 private:
  std::deque<CARD_DATA> records_;
};

// PINs as entry points take them: not zero-terminated, in memory that ends with them.
class PinBytes {
 public:
  explicit PinBytes(const std::optional<std::string>& pin)
      : isNull_(!pin), bytes_(pin ? Bytes(pin->begin(), pin->end()) : Bytes()) {
    bytes_.reserve(1);
  }
  PBYTE data() { return isNull_ ? nullptr : bytes_.data(); }
  DWORD size() const { return static_cast<DWORD>(bytes_.size()); }

 private:
  bool isNull_;
  Bytes bytes_;
};

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_ENTRY_TEST_H
