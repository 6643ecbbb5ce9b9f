// Log levels: one bit each of a 32-bit mask, with the token that configures them and the two forms in which
// a record line shows them.
#ifndef KOLVARI_LOG_CVEL_LOG_LEVEL_H
#define KOLVARI_LOG_CVEL_LOG_LEVEL_H

#include <cstdint>
#include <string>
#include <vector>

inline constexpr uint32_t kCvelLogFatal = 0x001;
inline constexpr uint32_t kCvelLogError = 0x002;
inline constexpr uint32_t kCvelLogWarning = 0x004;
inline constexpr uint32_t kCvelLogInfo = 0x008;
inline constexpr uint32_t kCvelLogDebug = 0x010;
inline constexpr uint32_t kCvelLogJava = 0x020;
inline constexpr uint32_t kCvelLogDetailedDebug = 0x040;
inline constexpr uint32_t kCvelLogTrace = 0x080;
inline constexpr uint32_t kCvelLogData = 0x100;
// What the token "ALL" stands for: the nine levels above.
inline constexpr uint32_t kCvelLogAll = 0x1ff;
inline constexpr uint32_t kCvelLogLevelCount = 9;

// The bit that a configuration token selects ("FATAL", ..., "DATA"; case-sensitive); 0 for any other text.
// "ALL" is not a level of its own and gives 0 here too.
uint32_t cvelLogLevelBit(const std::string& token);
// The configuration token of a single level bit; empty for any other value.
const char* cvelLogLevelToken(uint32_t level);
// The form a record line shows: "[WARN]  " and its kind (all eight wide), or in blank mode "WARN ".
const char* cvelLogLevelText(uint32_t level, bool blank);
// The level bit of index i (0 to 8), fatal first.
inline constexpr uint32_t cvelLogLevelAt(uint32_t i) { return 1u << i; }

// The pieces of a comma-separated configuration value ("Format", "LogLevel"), each trimmed of blanks at
// both ends; empty pieces are kept (they match nothing).
std::vector<std::string> cvelLogSplitList(const std::string& value);

#endif  // KOLVARI_LOG_CVEL_LOG_LEVEL_H
