// The signing time of `kolvari sign --time`: the two forms the help names, checked against the calendar.
#ifndef KOLVARI_TOOLS_CLI_SIGNING_TIME_H
#define KOLVARI_TOOLS_CLI_SIGNING_TIME_H

#include <string>

// Reads YYYYMMDDhhmmssZ, or YYMMDDhhmmssZ with the UTCTime rule for the century (YY below 50 is 20YY, else
// 19YY). Returns what is wrong ("month 13", "day 30 of February 2024"), or an empty text and the time in the
// long form in longForm.
std::string readSigningTime(const std::string& text, std::string& longForm);

#endif  // KOLVARI_TOOLS_CLI_SIGNING_TIME_H
