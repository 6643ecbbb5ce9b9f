// The exit statuses of every kolvari command.
#ifndef KOLVARI_TOOLS_CLI_EXIT_STATUS_H
#define KOLVARI_TOOLS_CLI_EXIT_STATUS_H

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;  // the work failed (unreadable file, malformed DER, library error)
inline constexpr int kExitUsage = 2;    // bad command line, or input that is not what the command reads

#endif  // KOLVARI_TOOLS_CLI_EXIT_STATUS_H
