#include "asn1/cvel_time.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "asn1/cvel_a1_context.h"
#include "support/test_util.h"

namespace {

struct Fields {
  int32_t year, month, day, hour, minute, second;
};

void expectFields(const CvelTime& t, const Fields& f, const std::string& what) {
  EXPECT_TRUE(t.isValid()) << what;
  EXPECT_EQ(t.year(), f.year) << what;
  EXPECT_EQ(t.month(), f.month) << what;
  EXPECT_EQ(t.day(), f.day) << what;
  EXPECT_EQ(t.hour(), f.hour) << what;
  EXPECT_EQ(t.minute(), f.minute) << what;
  EXPECT_EQ(t.second(), f.second) << what;
}

// Bytes of text; the DER element of a time is its tag, a short length and the characters.
CvelString textOf(const std::string& t) {
  CvelString s;
  EXPECT_EQ(s.assign(t.c_str()), kCvelOk);
  return s;
}

CvelString timeElement(uint8_t tag, const std::string& t) {
  std::string der;
  der.push_back(static_cast<char>(tag));
  der.push_back(static_cast<char>(t.size()));
  der += t;
  CvelString s;
  EXPECT_EQ(s.assign(der.data(), static_cast<uint32_t>(der.size())), kCvelOk);
  return s;
}

TEST(CvelTime, TwoDigitYearsSplitAtFifty) {
  struct Case {
    const char* text;
    Fields f;
  };
  const Case cases[] = {
      {"240101120000Z", {2024, 1, 1, 12, 0, 0}},
      {"500101000000Z", {1950, 1, 1, 0, 0, 0}},
      {"491231235959Z", {2049, 12, 31, 23, 59, 59}},
      {"991231235959Z", {1999, 12, 31, 23, 59, 59}},
      {"000229000000Z", {2000, 2, 29, 0, 0, 0}},
      {"2401011200Z", {2024, 1, 1, 12, 0, 0}},   // no seconds
      {"240101Z", {2024, 1, 1, 0, 0, 0}},        // missing fields are zeros
      {"240", {2024, 0, 0, 0, 0, 0}},            // three digits are still a two-digit year
      {"240101120000", {2024, 1, 1, 12, 0, 0}},  // no Z
  };
  for (const Case& c : cases) {
    CvelTime t;
    ASSERT_EQ(t.parse(c.text), kCvelOk) << c.text;
    expectFields(t, c.f, c.text);
  }
}

TEST(CvelTime, FourDigitYearsNeedAllFourteenDigits) {
  struct Case {
    const char* text;
    Fields f;
  };
  const Case cases[] = {
      {"20240101120000Z", {2024, 1, 1, 12, 0, 0}},
      {"20240101120000.123Z", {2024, 1, 1, 12, 0, 0}},
      {"20240101120000,5Z", {2024, 1, 1, 12, 0, 0}},
      {"99991231235959Z", {9999, 12, 31, 23, 59, 59}},
      // Fewer digits are a two-digit year: 20 24 01 01 read as 2020, month 24, day 1, hour 1.
      {"20240101", {2020, 24, 1, 1, 0, 0}},
      {"202401011200Z", {2020, 24, 1, 1, 12, 0}},
  };
  for (const Case& c : cases) {
    CvelTime t;
    ASSERT_EQ(t.parse(c.text), kCvelOk) << c.text;
    expectFields(t, c.f, c.text);
  }
}

TEST(CvelTime, OffsetsAreCutOffAndNotApplied) {
  CvelTime t;
  ASSERT_EQ(t.parse("240101120000+0100"), kCvelOk);
  expectFields(t, {2024, 1, 1, 12, 0, 0}, "+0100");
  ASSERT_EQ(t.parse("20240101235959-0800"), kCvelOk);
  expectFields(t, {2024, 1, 1, 23, 59, 59}, "-0800");
  // Six characters or fewer never carry an offset: the sign is then a bad character.
  EXPECT_EQ(t.parse("2+0100"), 0u);
}

TEST(CvelTime, MalformedTextsFailAndLeaveStateOne) {
  const char* malformed[] = {
      "2401011200001Z",     // 13 digits would make 15 with the century
      "24A101120000Z",      // a letter
      "24",                 // too short
      "2024010112000000Z",  // 16 digits
      "240101 120000Z",     // white space
      "240101120000.1.2Z",  // a second separator
  };
  for (const char* text : malformed) {
    CvelTime t(1, 2, 3, 4, 5, 2006, 7, 8, 9, 10, 11);
    EXPECT_EQ(t.parse(text), 0u) << text;
    EXPECT_EQ(t.state(), CvelTime::kParsing) << text;
    EXPECT_EQ(t.year(), 0) << text;  // the fields were cleared first
  }
  CvelTime t;
  EXPECT_EQ(t.state(), CvelTime::kNeverSet);
  EXPECT_EQ(t.parse(""), 0u);
  EXPECT_EQ(t.parse(static_cast<const char*>(nullptr)), kCvelErrBadParameter);
  // Characters behind the Z are not looked at.
  ASSERT_EQ(t.parse("240101120000Zjunk"), kCvelOk);
  EXPECT_EQ(t.hour(), 12);
  CvelTime fromText(textOf("491231235959Z"));
  EXPECT_TRUE(fromText.isValid());
  CvelTime bad(textOf("x"));
  EXPECT_EQ(bad.state(), CvelTime::kParsing);
}

TEST(CvelTime, TextIsAlwaysTheFourDigitForm) {
  CvelTime t;
  ASSERT_EQ(t.parse("240101120000Z"), kCvelOk);
  CvelString out;
  ASSERT_EQ(t.toText(out), kCvelOk);
  EXPECT_EQ(std::string(out.c_str()), "20240101120000Z");
  std::vector<unsigned char> bytes;
  ASSERT_EQ(t.toText(bytes), kCvelOk);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "20240101120000Z");
  CvelTime full(5, 4, 3, 2, 1, 987, 0, 0, 0, 0, 0);
  ASSERT_EQ(full.toText(out), kCvelOk);
  EXPECT_EQ(std::string(out.c_str()), "09870102030405Z");
  CvelTime copy;
  copy.copyFrom(full);
  EXPECT_EQ(copy.year(), 987);
  EXPECT_TRUE(copy.isValid());
}

TEST(CvelTime, DecodeTakesUtcGeneralizedOrASequenceAroundOne) {
  CvelTime t;
  ASSERT_EQ(t.decode(timeElement(0x17, "240101120000Z"), nullptr), kCvelOk);
  expectFields(t, {2024, 1, 1, 12, 0, 0}, "UTCTime");
  ASSERT_EQ(t.decode(timeElement(0x18, "20491231235959Z"), nullptr), kCvelOk);
  expectFields(t, {2049, 12, 31, 23, 59, 59}, "GeneralizedTime");
  CvelString seq;
  testutil::assignHex(seq, "30 0F 17 0D 35 30 30 31 30 31 30 30 30 30 30 30 5A");  // SEQUENCE { "500101000000Z" }
  ASSERT_EQ(t.decode(seq, nullptr), kCvelOk);
  expectFields(t, {1950, 1, 1, 0, 0, 0}, "SEQUENCE");
  testutil::assignHex(seq, "30 03 02 01 05");
  EXPECT_EQ(t.decode(seq, nullptr), kCvelErrIncomplete);
  // Any other element: the whole string is the text.
  ASSERT_EQ(t.decode(textOf("240101120000Z"), nullptr), kCvelOk);
  EXPECT_EQ(t.year(), 2024);
  EXPECT_EQ(t.decode(timeElement(0x17, "2401"), nullptr), kCvelOk);
  EXPECT_EQ(t.decode(timeElement(0x17, "24A1"), nullptr), kCvelErrIncomplete);
  testutil::assignHex(seq, "04 02 01 02");
  EXPECT_EQ(t.decode(seq, nullptr), kCvelErrIncomplete);
  // A time element cut off by the end of the string is malformed text.
  testutil::assignHex(seq, "17 0D 32 34");
  EXPECT_EQ(t.decode(seq, nullptr), kCvelErrIncomplete);
}

TEST(CvelTime, ValidityOfARealCertificate) {
  // openssl x509 -startdate/-enddate: May 6 14:37:16 2015 GMT and May 3 14:37:16 2025 GMT.
  testutil::Bytes file = testutil::readFile(testutil::dataPath("asn1crypto/test-der.crt"));
  ASSERT_FALSE(file.empty());
  CvelString der;
  ASSERT_EQ(der.setView(file.data(), file.size()), kCvelOk);
  CvelA1Context c;
  ASSERT_EQ(c.next(der), 0x30);
  ASSERT_EQ(c.descend(der), 0x30);
  ASSERT_EQ(c.descend(der), 0xA0);  // version
  ASSERT_EQ(c.next(der), 0x02);     // serialNumber
  ASSERT_EQ(c.next(der), 0x30);     // signature
  ASSERT_EQ(c.next(der), 0x30);     // issuer
  ASSERT_EQ(c.next(der), 0x30);     // validity
  const uint32_t position = c.position();
  CvelTime notBefore;
  ASSERT_EQ(notBefore.decode(der, &c), kCvelOk);  // the first element inside the context's element
  expectFields(notBefore, {2015, 5, 6, 14, 37, 16}, "notBefore");
  EXPECT_EQ(c.position(), position);  // the caller's cursor did not move
  // The second time: its element copied and decoded on its own.
  ASSERT_EQ(c.descend(der), 0x17);
  ASSERT_EQ(c.next(der), 0x17);
  CvelString element;
  ASSERT_EQ(c.getElement(der, element), kCvelOk);
  CvelTime notAfter;
  ASSERT_EQ(notAfter.decode(element, nullptr), kCvelOk);
  expectFields(notAfter, {2025, 5, 3, 14, 37, 16}, "notAfter");
}

TEST(CvelTime, CurrentTimeInBothForms) {
  CvelString utc;
  ASSERT_EQ(currentTime(utc, 1), kCvelOk);
  ASSERT_EQ(utc.length(), 13u);
  EXPECT_EQ(utc.c_str()[12], 'Z');
  CvelString generalized;
  ASSERT_EQ(currentTime(generalized, 0), kCvelOk);
  ASSERT_EQ(generalized.length(), 15u);
  EXPECT_EQ(generalized.c_str()[14], 'Z');
  for (uint32_t i = 0; i < 14; ++i) EXPECT_TRUE(std::isdigit(generalized.c_str()[i])) << i;
  // Both parse back, and a year read from either form is the same unless the clock turned a year meanwhile.
  CvelTime a(utc);
  CvelTime b(generalized);
  EXPECT_TRUE(a.isValid());
  EXPECT_TRUE(b.isValid());
  EXPECT_GE(b.year(), 2024);
  std::vector<unsigned char> bytes;
  ASSERT_EQ(currentTime(bytes, 3), kCvelOk);  // only bit 0 counts
  EXPECT_EQ(bytes.size(), 13u);
}

}  // namespace
