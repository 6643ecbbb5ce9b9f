#include "cli/signing_time.h"

namespace {

constexpr size_t kLongForm = 15;   // YYYYMMDDhhmmssZ
constexpr size_t kShortForm = 13;  // YYMMDDhhmmssZ
constexpr int kCenturyPivot = 50;  // UTCTime: YY below it is 20YY, else 19YY
constexpr int kMonths = 12;
constexpr int kHours = 24;
constexpr int kMinutes = 60;
constexpr int kSeconds = 60;
constexpr const char* kMonthNames[kMonths] = {"January", "February", "March",     "April",   "May",      "June",
                                              "July",    "August",   "September", "October", "November", "December"};

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysIn(int month, int year) {
  constexpr int kDays[kMonths] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// The two digits at text[at] as a number.
int twoDigits(const std::string& text, size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); }

}  // namespace

std::string readSigningTime(const std::string& text, std::string& longForm) {
  const bool shape = (text.size() == kLongForm || text.size() == kShortForm) && text.back() == 'Z';
  bool digits = shape;
  for (size_t i = 0; digits && i + 1 < text.size(); ++i) digits = text[i] >= '0' && text[i] <= '9';
  if (!digits) return "not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ";
  std::string full = text;
  if (text.size() == kShortForm) full = (twoDigits(text, 0) < kCenturyPivot ? "20" : "19") + text;
  const int year = twoDigits(full, 0) * 100 + twoDigits(full, 2);
  const int month = twoDigits(full, 4);
  const int day = twoDigits(full, 6);
  const int hour = twoDigits(full, 8);
  const int minute = twoDigits(full, 10);
  const int second = twoDigits(full, 12);
  if (month < 1 || month > kMonths) return "month " + std::to_string(month);
  if (day < 1 || day > daysIn(month, year)) {
    return "day " + std::to_string(day) + " of " + kMonthNames[month - 1] + " " + std::to_string(year);
  }
  if (hour >= kHours) return "hour " + std::to_string(hour);
  if (minute >= kMinutes) return "minute " + std::to_string(minute);
  if (second >= kSeconds) return "second " + std::to_string(second);
  longForm = full;
  return std::string();
}
