// What `kolvari log-check` says of the text of a logging configuration file beyond what the logger makes of
// it: the line at which the reader refuses the file, and the keys, level tokens and field names that the
// logger passes over without a word. One pass over the text, whatever its size.
#ifndef KOLVARI_TOOLS_LOG_CONFIG_CHECK_H
#define KOLVARI_TOOLS_LOG_CONFIG_CHECK_H

#include <cstddef>
#include <string>
#include <vector>

// A remark on one line; lines count from 1.
struct LogConfigNote {
  size_t line = 0;
  std::string text;
};

struct LogConfigReading {
  size_t refusedLine = 0;   // 0 when the reader refuses no line (or the text as a whole, by its size)
  std::string refusedText;  // that line, bytes outside printable ASCII spelled \xNN
  std::vector<LogConfigNote> notes;
};

LogConfigReading readLogConfiguration(const std::vector<unsigned char>& text);

#endif  // KOLVARI_TOOLS_LOG_CONFIG_CHECK_H
