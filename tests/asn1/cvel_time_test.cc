#include "asn1/cvel_time.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <utility>

#include "support/test_util.h"

namespace {

// The fields as YYYYMMDDhhmmssZ, or "state N" when the time is not valid.
std::string fieldsOf(const CvelTime& t) {
  if (!t.isValid()) return "state " + std::to_string(t.state());
  CvelString out;
  EXPECT_EQ(t.toText(out), kCvelOk);
  return out.c_str();
}

TEST(CvelTime, ParsesBothFormsAsWritten) {
  const std::pair<const char*, const char*> cases[] = {
      // Two-digit years: 00 to 49 are 20xx, 50 to 99 are 19xx; missing fields are zeros.
      {"240101120000Z", "20240101120000Z"}, {"500101000000Z", "19500101000000Z"},
      {"491231235959Z", "20491231235959Z"}, {"2401011200Z", "20240101120000Z"}, {"240", "20240000000000Z"},
      {"20240101120000.123Z", "20240101120000Z"}, {"20240101120000,5Z", "20240101120000Z"},
      {"20240101", "20202401010000Z"},  // fewer than 14 digits are a two-digit year, deliberately
      {"240101120000+0100", "20240101120000Z"}, {"20240101235959-0800", "20240101235959Z"},  // offsets ignored
      {"240101120000Zjunk", "20240101120000Z"},  // nothing behind the Z is looked at
      // 13 digits would make 15 with the century.
      {"2401011200001Z", "state 1"}, {"24A101120000Z", "state 1"}, {"24", "state 1"}, {"", "state 1"},
      {"2024010112000000Z", "state 1"}, {"240101120000.1.2Z", "state 1"}};
  for (const auto& [text, fields] : cases) {
    CvelTime t(1, 2, 3, 4, 5, 2006, 7, 8, 9, 10, 11);
    EXPECT_EQ(t.parse(text), fields[0] == 's' ? kCvelNone : kCvelOk) << text;
    EXPECT_EQ(fieldsOf(t), fields) << text;
    if (!t.isValid()) { EXPECT_EQ(t.year(), 0) << text; }  // the fields were cleared first
  }
  EXPECT_EQ(fieldsOf(CvelTime(5, 4, 3, 2, 1, 987, 0, 0, 0, 0, 0)), "09870102030405Z");
}

TEST(CvelTime, DecodesUtcGeneralizedASequenceAroundOneOrBareText) {
  const std::pair<const char*, const char*> cases[] = {
      // UTCTime, GeneralizedTime, SEQUENCE { UTCTime }, bare text; a SEQUENCE around no time (nothing is
      // parsed), a bad digit, another tag, a cut-off element.
      {"17 0D 32 34 30 31 30 31 31 32 30 30 30 30 5A", "20240101120000Z"},
      {"18 0F 32 30 34 39 31 32 33 31 32 33 35 39 35 39 5A", "20491231235959Z"},
      {"30 0F 17 0D 35 30 30 31 30 31 30 30 30 30 30 30 5A", "19500101000000Z"},
      {"32 34 30 31 30 31 31 32 30 30 30 30 5A", "20240101120000Z"}, {"30 03 02 01 05", "state 2"},
      {"17 04 32 34 41 31", "state 1"}, {"04 02 01 02", "state 1"}, {"17 0D 32 34", "state 1"}};
  for (const auto& [der, fields] : cases) {
    CvelString s = testutil::hexString(der);
    CvelTime t;
    EXPECT_EQ(t.decode(s, nullptr), fields[0] == 's' ? kCvelErrIncomplete : kCvelOk) << der;
    EXPECT_EQ(fieldsOf(t), fields) << der;
  }
}

TEST(CvelTime, CurrentTimeInBothForms) {
  // Compared with gmtime of the same second; calls that straddle a second are made again.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::time_t before = std::time(nullptr);
    CvelString utc, generalized;
    ASSERT_EQ(currentTime(utc, 3), kCvelOk);  // only bit 0 of the form counts
    ASSERT_EQ(currentTime(generalized, 0), kCvelOk);
    if (std::time(nullptr) != before) continue;
    std::tm now{};
    ASSERT_NE(gmtime_r(&before, &now), nullptr);
    char expected[32];
    ASSERT_NE(std::strftime(expected, sizeof expected, "%Y%m%d%H%M%SZ", &now), 0u);
    EXPECT_EQ(std::make_pair(std::string(utc.c_str()), std::string(generalized.c_str())),
              std::make_pair(std::string(expected + 2), std::string(expected)));
    return;
  }
  FAIL() << "the clock moved on during every attempt";
}

}  // namespace
