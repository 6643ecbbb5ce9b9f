#include "log/cvel_log_system.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "base/scratch_dir.h"

namespace {

// What the sink hands to openlog and syslog, one entry per record; and how often it closes the log.
struct Sent { std::string ident; int options, facility, priority; std::string format; };
std::vector<Sent> sent;
int closes = 0;

void recordOpen(const char* ident, int options, int facility) { sent.push_back({ident, options, facility, -1, ""}); }
void recordSend(int priority, const char* format, ...) {
  sent.back().priority = priority;
  sent.back().format = format;
}
void recordClose() { ++closes; }
constexpr CvelSystemLogCalls kRecorder = {recordOpen, recordSend, recordClose};

TEST(CvelLogSystem, SendsOnlyTheFourSevereLevelsWithTheLevelAsSeverity) {
  CvelConfiguration configuration, noProcess;
  parseInto(configuration, "[Common]\nLogProcess = /usr/bin/app.bin\n");
  parseInto(noProcess, "[Common]\nLogLevel = ALL\n");
  CvelLogSystem(&noProcess, &kRecorder).log(0x1, "no ident, nothing sent\n");
  CvelLogSystem sink(&configuration, &kRecorder);
  for (uint32_t level = 1; level <= 0x200; level <<= 1) sink.log(level, "100% done\n");
  sink.log(0x3, "two bits\n");
  // Fatal, error, warning, information; information's 0x8 is the user facility's own bit.
  const int expected[] = {0x1 | 8, 0x2 | 8, 0x4 | 8, 0x8};
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(closes, 4);
  for (size_t i = 0; i < sent.size(); ++i) {  // the line is the format text, '%' and all
    EXPECT_EQ(std::tie(sent[i].ident, sent[i].options, sent[i].facility, sent[i].priority, sent[i].format),
              std::make_tuple("/usr/bin/app.bin", 9, 8, expected[i], "100% done\n")) << i;
  }
}

}  // namespace
