// CvelTime: a UTC calendar time parsed from UTCTime or GeneralizedTime text, decoded from DER, and written
// back as GeneralizedTime text.
#ifndef KOLVARI_ASN1_CVEL_TIME_H
#define KOLVARI_ASN1_CVEL_TIME_H

#include <cstdint>
#include <vector>

#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelA1Context;

class CvelTime : public CvelNonCopyObject {
 public:
  enum State : int32_t { kValid = 0, kParsing = 1, kNeverSet = 2 };
  // Bit of currentTime's form that selects the two-digit-year (UTCTime) text.
  static constexpr uint32_t kFormUtcTime = 1;

  CvelTime() = default;
  CvelTime(int32_t second, int32_t minute, int32_t hour, int32_t day, int32_t month, int32_t year, int32_t extra1,
           int32_t extra2, int32_t extra3, int32_t extra4, int32_t extra5);
  // Whether the text parsed is kept in the object's state (see state()).
  explicit CvelTime(const CvelString& text) { static_cast<void>(parse(text)); }

  // Parses UTCTime or GeneralizedTime text: kCvelOk, 0 for malformed text, kCvelErrBadParameter for null.
  // Years 00-49 of a two-digit year are 2000-2049, 50-99 are 1950-1999. A +hhmm/-hhmm suffix is ignored.
  CvelResult parse(const CvelString& text);
  CvelResult parse(const char* text);
  CvelResult parse(const void* text, uint32_t n);

  // Reads the first element inside the context's current element through a child cursor (the caller's cursor
  // does not move), or the first element of s when context is null: a UTCTime or a GeneralizedTime, or a
  // SEQUENCE whose first element is one. Any other element makes the whole of s the text to parse, so that a
  // bare text time may stand in for DER. kCvelErrIncomplete when the text does not parse.
  CvelResult decode(const CvelString& s, const CvelA1Context* context);

  // Text YYYYMMDDhhmmssZ, whatever form was parsed.
  CvelResult toText(CvelString& out) const;
  CvelResult toText(std::vector<unsigned char>& out) const;
  // Copies every field.
  void copyFrom(const CvelTime& other);

  int32_t year() const { return year_; }
  int32_t month() const { return month_; }
  int32_t day() const { return day_; }
  int32_t hour() const { return hour_; }
  int32_t minute() const { return minute_; }
  int32_t second() const { return second_; }
  int32_t state() const { return state_; }
  bool isValid() const { return state_ == kValid; }
  void setState(int32_t value) { state_ = value; }

 private:
  void clearFields();
  // year as given, the other fields from "MMDDhhmmss" at monthOn; the time becomes valid.
  void setFields(int32_t year, const char* monthOn);

  int32_t second_ = 0;
  int32_t minute_ = 0;
  int32_t hour_ = 0;
  int32_t day_ = 0;
  int32_t month_ = 0;
  int32_t year_ = 0;
  int32_t extra_[5] = {0, 0, 0, 0, 0};
  int32_t state_ = kNeverSet;

  static_assert(sizeof(year_) == 4 && sizeof(extra_) == 5 * 4 && sizeof(state_) == 4,
                "time fields are signed 32-bit");
};

// The system clock as UTC text: with bit 0 of form set YYMMDDhhmmssZ (13 bytes), else YYYYMMDDhhmmssZ (15).
CvelResult currentTime(CvelString& out, uint32_t form);
CvelResult currentTime(std::vector<unsigned char>& out, uint32_t form);

#endif  // KOLVARI_ASN1_CVEL_TIME_H
