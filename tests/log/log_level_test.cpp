// Which lines the registry value "logLevel" lets through.
#include <string>

#include "harness/linked_test.h"
#include "harness/stack_bytes.h"
#include "log/log.h"

namespace orvane::test {
namespace {

using Type = LogLevelValue::Type;

LogLevelValue number(std::uint32_t value) { return {Type::kNumber, value, {}}; }

// A text with its NUL.
LogLevelValue text(const std::string& value) {
  Bytes bytes(value.begin(), value.end());
  bytes.push_back(0);
  return {Type::kText, 0, bytes};
}

LogLevelValue binary(const Bytes& bytes) { return {Type::kBinary, 0, bytes}; }

// These bytes, then zeros up to the size.
Bytes filled(Bytes bytes, std::size_t size) {
  bytes.resize(size);
  return bytes;
}

enum class Written { kNothing, kErrors, kBoth };

struct Row {
  const char* name;
  LogLevelValue value;
  Written written;
};

const Row kRows[] = {
    {"absent", {}, Written::kErrors},
    {"0", number(0), Written::kNothing},
    {"1", number(1), Written::kNothing},
    {"2", number(2), Written::kErrors},
    {"3", number(3), Written::kBoth},
    {"4", number(4), Written::kErrors},
    {"127", number(127), Written::kErrors},
    {"128 is negative", number(128), Written::kNothing},
    {"255 is negative", number(255), Written::kNothing},
    {"only the low byte counts: 256", number(0x100), Written::kNothing},
    {"only the low byte counts: 0x7FFFFF02", number(0x7FFFFF02), Written::kErrors},
    {"only the low byte counts: 0xFFFFFF03", number(0xFFFFFF03), Written::kBoth},
    {"the text 3", text("3"), Written::kErrors},
    {"the text 1", text("1"), Written::kErrors},
    {"the empty text", text(""), Written::kNothing},
    {"a text that begins with the character 3", text("\x03 and more"), Written::kBoth},
    {"a text that fills the buffer", text("\x03" + std::string(30, 'x')), Written::kBoth},
    {"a text that is too long is no value", text("\x03" + std::string(31, 'x')), Written::kErrors},
    {"a long text that would silence everything", text("\x01" + std::string(100, 'x')), Written::kErrors},
    {"present without data", binary({}), Written::kNothing},
    {"one byte 3", binary({3}), Written::kBoth},
    {"one byte 2", binary({2}), Written::kErrors},
    {"one byte 0", binary({0}), Written::kNothing},
    {"32 bytes", binary(filled({3}, 32)), Written::kBoth},
    {"33 bytes are too many", binary(filled({3}, 33)), Written::kErrors},
};

class LogLevelTest : public LinkedTest {
 protected:
  // One call that logs twice at DEBUG and once at ERROR.
  Lines linesOfACall() {
    const PFN_CARD_ACQUIRE_CONTEXT cardAcquireContext = acquireContextExport();
    EXPECT_EQ(cardAcquireContext(nullptr, 5), 87u);
    return takeLog();
  }
};

TEST_F(LogLevelTest, IsReadAnewForEachLine) {
  const Lines all = {"D CardAcquireContext :: LOG_FUNCTION_NAME = Entry", "D dwFlags=5",
                     "E CardAcquireContext: pCardData is NULL"};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    setLogLevel(row.value);
    Lines expected;
    if (row.written == Written::kBoth) expected = all;
    if (row.written == Written::kErrors) expected = {all.back()};
    EXPECT_EQ(linesOfACall(), expected);
  }
}

TEST_F(LogLevelTest, DecidesTheSameForInnerCalls) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    setLogLevel(row.value);
    EXPECT_EQ(isDebugLogged(), row.written == Written::kBoth);
    EXPECT_EQ(isErrorLogged(), row.written != Written::kNothing);
  }
}

// A value without data says nothing, so nothing that happens to lie in memory must decide.
TEST_F(LogLevelTest, OfAValueWithoutDataDoesNotDependOnWhatWasInMemory) {
  setLogLevel(binary({}));
  dirtyTheStack();
  EXPECT_FALSE(isDebugLogged());
  dirtyTheStack();
  EXPECT_FALSE(isErrorLogged());
}

// A message that is a string already is used up, whether it is written or not.
TEST_F(LogLevelTest, MessagesAreConsumed) {
  const struct {
    const char* name;
    LogLevelValue value;
    Lines log;
  } rows[] = {{"both", number(3), {"D to debug", "E to error", "D moved", "E moved, too"}},
              {"errors", number(2), {"E to error", "E moved, too"}},
              {"nothing", number(0), {}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    setLogLevel(row.value);
    std::string debug = "to debug";
    std::string error = "to error";
    logDebug(debug);
    logError(error);
    EXPECT_EQ(debug, "");
    EXPECT_EQ(error, "");
    logDebug(std::string("moved"));
    logError(std::string("moved, too"));
    EXPECT_EQ(takeLog(), row.log);
  }
}

}  // namespace
}  // namespace orvane::test
