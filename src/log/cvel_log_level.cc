#include "log/cvel_log_level.h"

namespace {

struct LevelForms {
  uint32_t bit;
  const char* token;
  const char* bracket;
  const char* plain;
};

// The detailed-debug level is configured as DDEBUG but printed DDBG, and the data level keeps its blank
// inside the bracket; existing log readers match these texts as they are.
constexpr LevelForms kLevels[kCvelLogLevelCount] = {
    {kCvelLogFatal, "FATAL", "[FATAL] ", "FATAL "},
    {kCvelLogError, "ERROR", "[ERROR] ", "ERROR "},
    {kCvelLogWarning, "WARN", "[WARN]  ", "WARN "},
    {kCvelLogInfo, "INFO", "[INFO]  ", "INFO "},
    {kCvelLogDebug, "DEBUG", "[DEBUG] ", "DEBUG "},
    {kCvelLogJava, "JAVA", "[JAVA]  ", "JAVA "},
    {kCvelLogDetailedDebug, "DDEBUG", "[DDBG]  ", "DDBG "},
    {kCvelLogTrace, "TRACE", "[TRACE] ", "TRACE "},
    {kCvelLogData, "DATA", "[DATA ] ", "DATA  "},
};

constexpr const char* kUnknownBracket = "        ";
constexpr const char* kUnknownPlain = " ";

const LevelForms* findLevel(uint32_t level) {
  for (const LevelForms& l : kLevels) {
    if (l.bit == level) return &l;
  }
  return nullptr;
}

}  // namespace

uint32_t cvelLogLevelBit(const std::string& token) {
  for (const LevelForms& l : kLevels) {
    if (token == l.token) return l.bit;
  }
  return 0;
}

const char* cvelLogLevelToken(uint32_t level) {
  const LevelForms* l = findLevel(level);
  return l == nullptr ? "" : l->token;
}

const char* cvelLogLevelText(uint32_t level, bool blank) {
  const LevelForms* l = findLevel(level);
  if (l == nullptr) return blank ? kUnknownPlain : kUnknownBracket;
  return blank ? l->plain : l->bracket;
}

std::vector<std::string> cvelLogSplitList(const std::string& value) {
  std::vector<std::string> pieces;
  size_t start = 0;
  while (true) {
    size_t comma = value.find(',', start);
    std::string piece = value.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    size_t first = piece.find_first_not_of(' ');
    size_t last = piece.find_last_not_of(' ');
    pieces.push_back(first == std::string::npos ? std::string() : piece.substr(first, last - first + 1));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return pieces;
}
