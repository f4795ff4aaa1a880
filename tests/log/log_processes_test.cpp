// Two processes that write to the same log at the same time. Native only, and not under the thread sanitizer, which a
// process made by fork while other threads run would confuse. (Under Wine an append is several steps, so that only a
// real Windows could show the same there.)
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "harness/linked_test.h"
#include "log/log.h"

namespace orvane::test {
namespace {

class LogProcesses : public LinkedTest {};

TEST_F(LogProcesses, LinesOfTwoProcessesStayWhole) {
  constexpr int kLines = 1000;
  const auto writeAs = [](const char* process) {
    for (int i = 0; i < kLines; ++i) logDebug(process, " line ", i, std::string(200, 'x'));
  };
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    writeAs("child");
    _exit(0);
  }
  writeAs("parent");
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  Lines lines = takeLog();
  Lines expected;
  for (const char* const process : {"child", "parent"}) {
    for (int i = 0; i < kLines; ++i) {
      expected.push_back(std::string("D ") + process + " line " + std::to_string(i) + std::string(200, 'x'));
    }
  }
  std::sort(lines.begin(), lines.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(lines, expected);
}

}  // namespace
}  // namespace orvane::test
