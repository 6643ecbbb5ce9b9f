#include "base/cvel_configuration.h"

#include <gtest/gtest.h>

#include "scratch_dir.h"

namespace {

CvelResult parseText(CvelConfiguration& config, const std::string& text, bool keep = false) {
  return config.parse(text.data(), text.size(), keep);
}

std::string valueOf(const CvelConfiguration& config, const char* section, const char* key) {
  std::string out;
  return config.getText(section, key, out) == kCvelOk ? out : "<missing>";
}

TEST(CvelConfiguration, CommentQuoteAndSectionRules) {
  const struct { const char *text, *section, *key, *expected; } cases[] = {
      {"[Common]\nFormat=\"Time,LogMsg\" # layout\n", "Common", "Format", "Time,LogMsg"},
      {"[S]\nKey=a#b\n", "S", "Key", "a"},
      {"[S]\nKey=\"a#b\"\n", "S", "Key", "a#b"},
      {"[S]\nKey = \"  spaced  \" tail\n", "S", "Key", "  spaced  "},
      {"[S]\n\"a=b#c\" = v\n", "S", "a=b#c", "v"},
      {"[S]\nKey===  v  \n", "S", "Key", "v"},
      {"[S]\nFlag # note\n", "S", "Flag", ""},
      {"Key=above\n[S]\n", "S", "Key", "<missing>"},
      {"[S]\nKey=\"open\n", "S", "Key", "<missing>"},  // a lone quote makes the line invalid
      {"[S]\n = v\n", "S", "", "<missing>"},
      {"[S]\n   # Key=v\n", "S", "", "<missing>"},
      {"[S]\n[]\n", "S", "[]", ""},  // not a section: a key line in the section before
      {"[  Name  ] trailing\nKey=v\n", "Name", "Key", "v"},
      {"[S]\r\n\tKey\t=\tv w\t\r\n", "S", "Key", "v w"},
      {"[s]\nKey=v\n", "S", "Key", "<missing>"},
  };
  for (const auto& c : cases) {
    CvelConfiguration config;
    EXPECT_EQ(parseText(config, c.text), kCvelOk) << c.text;
    EXPECT_EQ(valueOf(config, c.section, c.key), c.expected) << c.text;
  }
}

TEST(CvelConfiguration, ForbiddenBytesAndSizeLimit) {
  CvelConfiguration config;
  EXPECT_EQ(parseText(config, "[S]\nA=1\nB=caf\xE9\nC=3\n"), kCvelErrForbiddenByte);
  EXPECT_EQ(valueOf(config, "S", "A"), "1");  // what came before stays stored
  EXPECT_EQ(valueOf(config, "S", "C"), "<missing>");
  EXPECT_EQ(parseText(config, "[\xC4rger]\nGr\xFC\xDF=\xE4\xF6\xFC\xC4\xD6\xDC\xDF\n"), kCvelOk);
  // 26 and 126 pass, 25 and 127 do not; a forbidden byte in an ignored line does no harm.
  EXPECT_EQ(parseText(config, "[S]\nK=\x1A~\n"), kCvelOk);
  EXPECT_EQ(parseText(config, "[S]\nK=\x19\n"), kCvelErrForbiddenByte);
  EXPECT_EQ(parseText(config, "[S]\nK=\x7F\n"), kCvelErrForbiddenByte);
  EXPECT_EQ(parseText(config, "K=\x7F\n[S]\n# \x7F\n"), kCvelOk);

  const std::string head = "[S]\nK=v\n#";
  std::string text = head + std::string(CvelConfiguration::kMaxTextLength - head.size(), 'x');
  EXPECT_EQ(parseText(config, text), kCvelOk);
  EXPECT_EQ(valueOf(config, "S", "K"), "v");
  EXPECT_EQ(parseText(config, text + "x"), kCvelErrTooLong);
  EXPECT_EQ(config.parse(nullptr, 5), kCvelErrBadParameter);
  EXPECT_EQ(config.parse("x", 0), kCvelErrBadParameter);
}

// The lines handed to the visitor: headers and stored key lines only, each with the offset of its first byte
// (a CR LF line end is two line ends to the reader), and the refused line last: "offset:section/key=value" per
// line, a header as "offset:[section]".
TEST(CvelConfiguration, ParseLinesVisitsHeadersAndKeyLines) {
  const struct { const char* text; CvelResult result; const char* visits; } cases[] = {
      {"# c\n[S]\nK = v\n\nJ\n", kCvelOk, "4:[S] 8:S/K=v 15:S/J="},
      {"K=above\n[S]\r\nK=v\r\n", kCvelOk, "8:[S] 13:S/K=v"},
      {"[S]\n  = v\nX=\"open\nK=v\n", kCvelOk, "0:[S] 18:S/K=v"},
      {"[S]\nA=1\nB=caf\xe9\nC=3\n", kCvelErrForbiddenByte, "0:[S] 4:S/A=1 8:S/B=caf\xe9"},
      {"caf\xe9\n[S]\nA=1\n", kCvelOk, "5:[S] 9:S/A=1"},
  };
  for (const auto& c : cases) {
    CvelConfiguration config;
    std::string visits;
    const std::string text = c.text;
    EXPECT_EQ(config.parseLines(text.data(), text.size(),
                                [&](const CvelConfiguration::ReadLine& line) {
                                  if (!visits.empty()) visits += ' ';
                                  visits += std::to_string(line.offset) + ":";
                                  visits += line.header ? "[" + line.section + "]"
                                                        : line.section + "/" + line.key + "=" + line.value;
                                }),
              c.result)
        << c.text;
    EXPECT_EQ(visits, c.visits) << c.text;
  }
  // The same answers as parse, and what was stored before is dropped.
  CvelConfiguration config;
  ASSERT_EQ(parseText(config, "[Old]\nK=v\n"), kCvelOk);
  EXPECT_EQ(config.parseLines("[S]\nA=1\n", 8, [](const CvelConfiguration::ReadLine&) {}), kCvelOk);
  EXPECT_EQ(valueOf(config, "Old", "K"), "<missing>");
  EXPECT_EQ(valueOf(config, "S", "A"), "1");
  EXPECT_EQ(config.parseLines(nullptr, 0, [](const CvelConfiguration::ReadLine&) {}), kCvelErrBadParameter);
}

TEST(CvelConfiguration, LookupsListingKeepAndReadFile) {
  CvelConfiguration config;
  ASSERT_EQ(parseText(config, "[S]\nb=1\nB=2\na=3\nLOGLEVEL=upper\nloglevel=lower\n"), kCvelOk);
  std::vector<std::string> keys;
  ASSERT_EQ(config.listKeys("S", keys), kCvelOk);
  EXPECT_EQ(keys, (std::vector<std::string>{"B", "LOGLEVEL", "a", "b", "loglevel"}));
  std::string out = "stale";
  EXPECT_EQ(config.getText("S", "LogLevel", out), kCvelErrNotFound);
  EXPECT_EQ(out, "");
  ASSERT_EQ(config.getText("S", "LogLevel", out, true), kCvelOk);
  EXPECT_EQ(out, "upper");  // the first match in byte order
  EXPECT_TRUE(config.hasKey("S", "logLEVEL", true));
  EXPECT_FALSE(config.hasKey("S", "logLEVEL"));

  ASSERT_EQ(parseText(config, "[T]\nx=1\n", true), kCvelOk);  // keep adds
  EXPECT_EQ(valueOf(config, "S", "a"), "3");
  ASSERT_EQ(parseText(config, "[T]\ny=2\n"), kCvelOk);  // otherwise the new text replaces all
  EXPECT_EQ(valueOf(config, "T", "x"), "<missing>");

  ScratchDir dir;
  const std::string text("[S]\nK=v\n\0tail", 14);
  std::vector<unsigned char> bytes;
  ASSERT_EQ(CvelConfiguration::readFile(dir.write("c.cfgLog", text).c_str(), bytes), kCvelOk);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), text);  // every byte, past a zero too
  EXPECT_EQ(CvelConfiguration::readFile(dir.file("none").c_str(), bytes), kCvelErrMalformed);
}

}  // namespace
