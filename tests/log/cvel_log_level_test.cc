#include "log/cvel_log_level.h"

#include <gtest/gtest.h>

namespace {

TEST(CvelLogLevel, TokensAndBothForms) {
  const struct { const char* token; uint32_t bit; const char* bracket; const char* plain; } cases[] = {
      {"FATAL", 0x001, "[FATAL] ", "FATAL "}, {"ERROR", 0x002, "[ERROR] ", "ERROR "},
      {"WARN", 0x004, "[WARN]  ", "WARN "},   {"INFO", 0x008, "[INFO]  ", "INFO "},
      {"DEBUG", 0x010, "[DEBUG] ", "DEBUG "}, {"JAVA", 0x020, "[JAVA]  ", "JAVA "},
      // Configured as DDEBUG, printed as DDBG; DATA has its blank inside the bracket.
      {"DDEBUG", 0x040, "[DDBG]  ", "DDBG "}, {"TRACE", 0x080, "[TRACE] ", "TRACE "},
      {"DATA", 0x100, "[DATA ] ", "DATA  "},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(cvelLogLevelBit(c.token), c.bit) << c.token;
    EXPECT_STREQ(cvelLogLevelToken(c.bit), c.token);
    EXPECT_STREQ(cvelLogLevelText(c.bit, false), c.bracket) << c.token;
    EXPECT_STREQ(cvelLogLevelText(c.bit, true), c.plain) << c.token;
  }
  // Tokens are case-sensitive, ALL is no single level, and DDBG is only the printed form.
  for (const char* token : {"info", "ALL", "DDBG", "WARNING", ""}) EXPECT_EQ(cvelLogLevelBit(token), 0u) << token;
  for (uint32_t level : {0x0u, 0x3u, 0x200u, 0x1ffu}) {
    EXPECT_STREQ(cvelLogLevelText(level, false), "        ");
    EXPECT_STREQ(cvelLogLevelText(level, true), " ");
  }
}

}  // namespace
