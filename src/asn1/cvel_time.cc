#include "asn1/cvel_time.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_der.h"

namespace {

constexpr uint32_t kFullDigits = 14;       // YYYYMMDDhhmmss
constexpr uint32_t kMinShortDigits = 3;    // fewest digits read as a two-digit-year form
constexpr uint32_t kMaxShortDigits = 13;
constexpr uint32_t kOffsetLength = 5;      // +hhmm
constexpr uint32_t kOffsetMinText = 6;
constexpr char kCenturyBreak = '5';        // two-digit years from 50 on are 19xx
constexpr uint32_t kTextBuffer = 32;
// The two forms DER writes a time in: YYMMDDhhmmssZ and YYYYMMDDhhmmssZ.
constexpr uint32_t kDerUtcLength = 13;
constexpr uint32_t kDerGeneralizedLength = 15;
// Characters behind the year in both: MMDDhhmmss and Z.
constexpr uint32_t kDerAfterYear = 11;
constexpr int32_t kCentury20 = 2000;
constexpr int32_t kCentury19 = 1900;

int32_t digitsValue(const char* p, int n) {
  int32_t v = 0;
  for (int i = 0; i < n; ++i) v = v * 10 + (p[i] - '0');
  return v;
}

bool allDigits(const char* p, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) {
    if (p[i] < '0' || p[i] > '9') return false;
  }
  return true;
}

// A time in one of the DER forms: digits, then Z as the last character.
bool isDerForm(const char* p, uint32_t n) {
  return (n == kDerUtcLength || n == kDerGeneralizedLength) && p[n - 1] == 'Z' && allDigits(p, n - 1);
}

}  // namespace

CvelTime::CvelTime(int32_t second, int32_t minute, int32_t hour, int32_t day, int32_t month, int32_t year,
                   int32_t extra1, int32_t extra2, int32_t extra3, int32_t extra4, int32_t extra5)
    : second_(second),
      minute_(minute),
      hour_(hour),
      day_(day),
      month_(month),
      year_(year),
      extra_{extra1, extra2, extra3, extra4, extra5},
      state_(kValid) {}

void CvelTime::clearFields() {
  second_ = minute_ = hour_ = day_ = month_ = year_ = 0;
  std::memset(extra_, 0, sizeof extra_);
}

void CvelTime::copyFrom(const CvelTime& other) {
  if (&other == this) return;
  second_ = other.second_;
  minute_ = other.minute_;
  hour_ = other.hour_;
  day_ = other.day_;
  month_ = other.month_;
  year_ = other.year_;
  std::memcpy(extra_, other.extra_, sizeof extra_);
  state_ = other.state_;
}

CvelResult CvelTime::parse(const CvelString& text) { return parse(text.data(), text.length()); }

CvelResult CvelTime::parse(const char* text) {
  if (text == nullptr) return kCvelErrBadParameter;
  return parse(text, static_cast<uint32_t>(std::strlen(text)));
}

CvelResult CvelTime::parse(const void* text, uint32_t n) {
  state_ = kParsing;
  clearFields();
  if (n == 0) return kCvelNone;
  if (text == nullptr) return kCvelErrBadParameter;
  const char* p = static_cast<const char*>(text);
  if (isDerForm(p, n)) {
    // Read in place: the same fields as the general reading below gives these texts.
    const uint32_t yearDigits = n - kDerAfterYear;
    setFields(yearDigits == 2 ? (p[0] < kCenturyBreak ? kCentury20 : kCentury19) + digitsValue(p, 2)
                              : digitsValue(p, 4),
              p + yearDigits);
    return kCvelOk;
  }
  // A time-zone offset is cut off and not applied: the fields are taken as written.
  if (n > kOffsetMinText && (p[n - kOffsetLength] == '+' || p[n - kOffsetLength] == '-')) n -= kOffsetLength;

  uint32_t mainLength = 0;
  bool inFraction = false;
  for (uint32_t i = 0; i < n; ++i) {
    char c = p[i];
    if (c >= '0' && c <= '9') {
      if (!inFraction) ++mainLength;
    } else if ((c == '.' || c == ',') && !inFraction) {
      inFraction = true;
    } else if (c == 'Z') {
      break;
    } else {
      return kCvelNone;
    }
  }

  char digits[kFullDigits + 1];
  if (mainLength >= kMinShortDigits && mainLength <= kMaxShortDigits) {
    // Two-digit year: the century goes in front, missing fields are filled with zeros.
    if (mainLength + 2 > kFullDigits) return kCvelNone;
    const char* century = p[0] < kCenturyBreak ? "20" : "19";
    std::memcpy(digits, century, 2);
    std::memcpy(digits + 2, p, mainLength);
    std::memset(digits + 2 + mainLength, '0', kFullDigits - 2 - mainLength);
  } else if (mainLength == kFullDigits) {
    std::memcpy(digits, p, kFullDigits);
  } else {
    return kCvelNone;
  }
  setFields(digitsValue(digits, 4), digits + 4);
  return kCvelOk;
}

void CvelTime::setFields(int32_t year, const char* monthOn) {
  year_ = year;
  month_ = digitsValue(monthOn, 2);
  day_ = digitsValue(monthOn + 2, 2);
  hour_ = digitsValue(monthOn + 4, 2);
  minute_ = digitsValue(monthOn + 6, 2);
  second_ = digitsValue(monthOn + 8, 2);
  state_ = kValid;
}

CvelResult CvelTime::decode(const CvelString& s, const CvelA1Context* context) {
  CvelA1Context cursor;
  if (context != nullptr) cursor.enterElementOf(*context);
  int32_t tag = cursor.next(s);
  CvelString content;
  if (tag == kTagSequence) {
    CvelA1Context inner;
    inner.enterElementOf(cursor);
    int32_t innerTag = inner.next(s);
    if (innerTag != kTagUtcTime && innerTag != kTagGeneralizedTime) return kCvelErrIncomplete;
    if (content.setView(s, &inner) != kCvelOk) return kCvelErrMalformed;
  } else if (tag == kTagUtcTime || tag == kTagGeneralizedTime) {
    if (content.setView(s, &cursor) != kCvelOk) return kCvelErrMalformed;
  } else {
    // Not DER: the caller may have handed over the bare text of a time.
    if (content.setView(s, nullptr) != kCvelOk) return kCvelErrMalformed;
  }
  return parse(content) == kCvelOk ? kCvelOk : kCvelErrIncomplete;
}

CvelResult CvelTime::toText(CvelString& out) const {
  char text[kTextBuffer];
  int n = std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02dZ", year_, month_, day_, hour_, minute_, second_);
  if (n < 0 || static_cast<size_t>(n) >= sizeof text) return kCvelErrMalformed;
  return out.assign(text, static_cast<uint32_t>(n));
}

CvelResult CvelTime::toText(std::vector<unsigned char>& out) const {
  CvelString text;
  CvelResult r = toText(text);
  if (r != kCvelOk) return r;
  out.assign(text.data(), text.data() + text.length());
  return kCvelOk;
}

CvelResult currentTime(std::vector<unsigned char>& out, uint32_t form) {
  CvelString text;
  CvelResult r = currentTime(text, form);
  if (r != kCvelOk) return r;
  out.assign(text.data(), text.data() + text.length());
  return kCvelOk;
}

CvelResult currentTime(CvelString& out, uint32_t form) {
  std::time_t now = std::time(nullptr);
  std::tm utc{};
  if (gmtime_r(&now, &utc) == nullptr) return kCvelErrMalformed;
  char text[kTextBuffer];
  int year = utc.tm_year + 1900;
  int n = (form & CvelTime::kFormUtcTime) != 0
              ? std::snprintf(text, sizeof text, "%02i%02i%02i%02i%02i%02iZ", year % 100, utc.tm_mon + 1, utc.tm_mday,
                              utc.tm_hour, utc.tm_min, utc.tm_sec)
              : std::snprintf(text, sizeof text, "%04i%02i%02i%02i%02i%02iZ", year, utc.tm_mon + 1, utc.tm_mday,
                              utc.tm_hour, utc.tm_min, utc.tm_sec);
  if (n < 0 || static_cast<size_t>(n) >= sizeof text) return kCvelErrMalformed;
  return out.assign(text, static_cast<uint32_t>(n));
}
