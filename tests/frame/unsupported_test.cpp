// The entry points of what the card does not offer: a line, a status, and nothing else whatever the arguments.
#include <type_traits>

#include "harness/driver_test.h"
#include "harness/unsupported_calls.h"

namespace orvane::test {
namespace {

enum class Pattern {
  kNull,      // null pointers and zeros
  kPoisoned,  // pointers to poisoned memory, poisoned numbers
  kNowhere    // pointers that cannot be read or written
};

// Makes arguments of every type.
class Arguments {
 public:
  explicit Arguments(Pattern pattern) : pattern_(pattern), memory_(8192, kPoison) {}

  template <typename... Types>
  DWORD pass(DWORD(WINAPI* entryPoint)(Types...)) {
    return entryPoint(make<Types>()...);
  }

  bool isUntouched() const { return memory_ == Bytes(memory_.size(), kPoison); }

 private:
  template <typename Type>
  Type make() {
    if constexpr (std::is_pointer_v<Type>) {
      void* pointer = nullptr;
      if (pattern_ == Pattern::kPoisoned) pointer = memory_.data() + 4096;
      if (pattern_ == Pattern::kNowhere) pointer = reinterpret_cast<void*>(std::uintptr_t{16});
      return static_cast<Type>(pointer);
    } else if constexpr (std::is_enum_v<Type>) {
      return static_cast<Type>(pattern_ == Pattern::kNull ? 0 : 1);
    } else {
      return static_cast<Type>(pattern_ == Pattern::kNull ? 0 : 0xA5A5A5A5A5A5A5A5);
    }
  }

  Pattern pattern_;
  Bytes memory_;
};

struct UnsupportedEntry {
  const char* name;
  DWORD (*call)(const CARD_DATA& table, Arguments& arguments);
};

template <auto kSlot>
DWORD callSlot(const CARD_DATA& table, Arguments& arguments) {
  return arguments.pass(table.*kSlot);
}

#define ORVANE_TESTS_UNSUPPORTED_ENTRY(name) {#name, callSlot<&CARD_DATA::pfn##name>},
constexpr UnsupportedEntry kEntries[] = {ORVANE_TESTS_FOR_EACH_UNSUPPORTED(ORVANE_TESTS_UNSUPPORTED_ENTRY)};
#undef ORVANE_TESTS_UNSUPPORTED_ENTRY
static_assert(std::size(kEntries) == 24);

class UnsupportedTest : public DriverTest {
 protected:
  void expectRefused(const UnsupportedEntry& row, const CARD_DATA& table, Pattern pattern, const Lines& log) {
    SCOPED_TRACE(row.name);
    Arguments arguments(pattern);
    EXPECT_EQ(observe([&] { return row.call(table, arguments); }), (Outcome{code(SCARD_E_UNSUPPORTED_FEATURE), log}));
    EXPECT_TRUE(arguments.isUntouched());
  }
};

TEST_F(UnsupportedTest, RefuseWhateverTheArguments) {
  CARD_DATA& record = open();
  for (const UnsupportedEntry& row : kEntries) {
    const Lines log = {std::string("D ") + row.name + " :: LOG_FUNCTION_NAME = Entry"};
    expectRefused(row, record, Pattern::kNull, log);
    expectRefused(row, record, Pattern::kPoisoned, log);
    expectRefused(row, record, Pattern::kNowhere, log);
  }
}

TEST_F(UnsupportedTest, LogOnlyAtDebug) {
  CARD_DATA& record = open();
  setLogLevel({.type = LogLevelValue::Type::kNumber, .number = 2, .bytes = {}});
  for (const UnsupportedEntry& row : kEntries) expectRefused(row, record, Pattern::kNull, {});
}

TEST_F(UnsupportedTest, WritingRefusesTheFilesThatCanBeRead) {
  CARD_DATA& record = open();
  Bytes contents(16, 0x11);
  for (const char* const name : {"cardid", "cardcf", "cmapfile", "msroots", "ksc0", "kxc0"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(observe([&] {
                return record.pfnCardWriteFile(&record, nullptr, const_cast<LPSTR>(name), 0, contents.data(), 16);
              }),
              (Outcome{code(SCARD_E_UNSUPPORTED_FEATURE), {"D CardWriteFile :: LOG_FUNCTION_NAME = Entry"}}));
  }
  EXPECT_EQ(contents, Bytes(16, 0x11));
}

TEST_F(UnsupportedTest, UnblockingRefusesEveryUser) {
  CARD_DATA& record = open();
  authenticate(record);
  PinBytes officer{std::string(kSoPin)};
  PinBytes fresh{std::string(kNewPin)};
  for (const wchar_t* const user : {L"user", L"admin", L"anonymous", L""}) {
    EXPECT_EQ(observe([&] {
                return record.pfnCardUnblockPin(&record, const_cast<LPWSTR>(user), officer.data(), officer.size(),
                                                fresh.data(), fresh.size(), 3, CARD_AUTHENTICATE_PIN_PIN);
              }),
              (Outcome{code(SCARD_E_UNSUPPORTED_FEATURE), {"D CardUnblockPin :: LOG_FUNCTION_NAME = Entry"}}));
  }
  EXPECT_EQ(cachedPin(record), kUserPin);
  EXPECT_EQ(authenticatedState(record), 1u);
}

}  // namespace
}  // namespace orvane::test
