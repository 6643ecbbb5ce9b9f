#include "log_config_check.h"

#include <cstdio>
#include <initializer_list>

#include "base/cvel_configuration.h"
#include "log/cvel_log_format.h"
#include "log/cvel_log_keys.h"
#include "log/cvel_log_level.h"

namespace {

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7f;

bool oneOf(const std::string& text, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (text == name) return true;
  }
  return false;
}

bool knownSection(const std::string& section) {
  return oneOf(section, {kLogSectionIgnore, kLogSectionCommon, kLogSectionLogger, kLogSectionFile});
}

// The keys the logger reads in a section; [Ignore] takes any key (a path suffix).
bool knownKey(const std::string& section, const std::string& key) {
  if (section == kLogSectionCommon) {
    return oneOf(key, {kLogKeyLogLevel, kLogKeyFormat, kLogKeyMode, kLogKeyLogModule, kLogKeyLogProcess,
                       kLogKeyDataDir});
  }
  if (section == kLogSectionLogger) return oneOf(key, {kLogKeyConsole, kLogKeyFile, kLogKeySystem});
  if (section == kLogSectionFile) return oneOf(key, {kLogKeyOverwrite, kLogKeyBackUp, kLogKeyMaxFileSize});
  return true;
}

// Empty pieces ("ERROR,,INFO", a trailing comma) match nothing and say nothing either.
void noteUnknownLevels(const std::string& value, size_t line, std::vector<LogConfigNote>& notes) {
  for (const std::string& token : cvelLogSplitList(value)) {
    if (token.empty() || token == kLogLevelAllToken || cvelLogLevelBit(token) != 0) continue;
    notes.push_back({line, "unknown level '" + token + "'"});
  }
}

void noteUnknownFields(const std::string& value, size_t line, std::vector<LogConfigNote>& notes) {
  for (const std::string& name : cvelLogSplitList(value)) {
    LogField field;
    if (name.empty() || cvelLogFieldFromName(name, field)) continue;
    notes.push_back({line, "unknown field '" + name + "'"});
  }
}

void noteCommonValue(const CvelConfiguration::ReadLine& read, size_t line, std::vector<LogConfigNote>& notes) {
  if (read.key == kLogKeyLogLevel) noteUnknownLevels(read.value, line, notes);
  if (read.key == kLogKeyFormat) noteUnknownFields(read.value, line, notes);
  if (read.key == kLogKeyMode && read.value != kLogModeBlank) {
    notes.push_back({line, "unknown mode '" + read.value + "' (" + kLogModeBlank + " or none)"});
  }
  if (read.key == kLogKeyLogModule || read.key == kLogKeyLogProcess) {
    notes.push_back({line, "'" + read.key + "' is set by the logger: this value is replaced"});
  }
}

void noteLine(const CvelConfiguration::ReadLine& read, size_t line, std::vector<LogConfigNote>& notes) {
  if (read.header) {
    if (!knownSection(read.section)) notes.push_back({line, "unknown section '[" + read.section + "]'"});
    return;
  }
  // The keys of an unknown section are covered by the note on its header.
  if (!knownSection(read.section)) return;
  if (!knownKey(read.section, read.key)) {
    notes.push_back({line, "unknown key '" + read.key + "' in [" + read.section + "]"});
  } else if (read.section == kLogSectionCommon) {
    noteCommonValue(read, line, notes);
  }
}

std::string spelledLine(const std::vector<unsigned char>& text, size_t start) {
  std::string out;
  for (size_t i = start; i < text.size() && text[i] != '\n'; ++i) {
    char escaped[8];
    bool plain = text[i] >= kFirstPrintable && text[i] < kDelete;
    std::snprintf(escaped, sizeof escaped, plain ? "%c" : "\\x%02X", text[i]);
    out += escaped;
  }
  return out;
}

}  // namespace

LogConfigReading readLogConfiguration(const std::vector<unsigned char>& text) {
  LogConfigReading reading;
  // Line numbers as an editor shows them: line feeds counted up to each line's start, once over the text.
  size_t counted = 0;
  size_t line = 1;
  size_t lastLine = 0;
  size_t lastOffset = 0;
  size_t notesBeforeLast = 0;
  CvelConfiguration configuration;
  CvelResult result = configuration.parseLines(text.data(), text.size(), [&](const CvelConfiguration::ReadLine& read) {
    for (; counted < read.offset && counted < text.size(); ++counted) {
      if (text[counted] == '\n') ++line;
    }
    lastLine = line;
    lastOffset = read.offset;
    notesBeforeLast = reading.notes.size();
    noteLine(read, line, reading.notes);
  });
  if (result == kCvelErrForbiddenByte && lastLine > 0) {
    // The refused line stores nothing, so what it names is not remarked on.
    reading.notes.resize(notesBeforeLast);
    reading.refusedLine = lastLine;
    reading.refusedText = spelledLine(text, lastOffset);
  }
  return reading;
}
