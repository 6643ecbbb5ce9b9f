// The sections and keys of the logging configuration file.
#ifndef KOLVARI_LOG_CVEL_LOG_KEYS_H
#define KOLVARI_LOG_CVEL_LOG_KEYS_H

inline constexpr const char* kLogSectionIgnore = "Ignore";
inline constexpr const char* kLogSectionCommon = "Common";
inline constexpr const char* kLogSectionLogger = "Logger";
inline constexpr const char* kLogSectionFile = "File";

// [Ignore]
inline constexpr const char* kLogKeyIgnoreAll = "ALL";
// [Common]
inline constexpr const char* kLogKeyLogLevel = "LogLevel";
inline constexpr const char* kLogKeyFormat = "Format";
inline constexpr const char* kLogKeyMode = "Mode";
inline constexpr const char* kLogKeyLogModule = "LogModule";
inline constexpr const char* kLogKeyLogProcess = "LogProcess";
inline constexpr const char* kLogKeyDataDir = "DataDir";
// [Logger]
inline constexpr const char* kLogKeyConsole = "Console";
inline constexpr const char* kLogKeyFile = "File";
inline constexpr const char* kLogKeySystem = "System";
// [File]
inline constexpr const char* kLogKeyOverwrite = "Overwrite";
inline constexpr const char* kLogKeyBackUp = "BackUp";
inline constexpr const char* kLogKeyMaxFileSize = "MaxFileSize";

// Values with a meaning of their own.
inline constexpr const char* kLogModeBlank = "Blank";
inline constexpr const char* kLogLevelAllToken = "ALL";
// The configuration file is the library's (or the executable's) path with this appended.
inline constexpr const char* kLogConfigSuffix = ".cfgLog";

#endif  // KOLVARI_LOG_CVEL_LOG_KEYS_H
