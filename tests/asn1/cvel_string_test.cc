#include "asn1/cvel_string.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "support/test_util.h"

namespace {

std::string text(const CvelString& s) { return std::string(s.c_str(), s.length()); }

CvelString owned(const std::string& t) {
  CvelString s;
  EXPECT_EQ(s.assign(t.c_str()), kCvelOk);
  return s;
}

TEST(CvelString, CompareKeepsItsAsymmetry) {
  // A longer string is less than an empty operand, deliberately; a prefix is less; otherwise memcmp decides.
  const std::tuple<const char*, std::string, int> cases[] = {{"abc", "", -1}, {"", "abc", -1}, {"ab", "abc", -1},
                                                             {"abd", "abc", 1}, {"abc", "ab", 1}, {"", "", 0}};
  for (const auto& [self, other, sign] : cases) {
    const int r = owned(self).compare(other.data(), static_cast<uint32_t>(other.size()));
    EXPECT_EQ((r > 0) - (r < 0), sign) << self << " vs " << other;
  }
  EXPECT_EQ(owned("ABC").compareNoCase("abc", 3), 0);
}

TEST(CvelString, AllocateAndAppendGrowExactly) {
  CvelString s = owned("abcde" + std::string(94, 'q'));
  const unsigned char* block = s.data();
  ASSERT_EQ(s.allocate(5), kCvelOk);  // the larger block and its bytes are kept, its capacity set down to six
  EXPECT_EQ(s.data(), block);
  EXPECT_EQ(s.capacity(), 6u);
  EXPECT_EQ(text(s), "abcde");
  // Appending into spare room returns the in-place result, deliberately; into a full block the success code.
  s = owned("0123456789");
  s.truncate(4);
  EXPECT_EQ(s.append("abc", 3), kCvelAppendedInPlace);
  EXPECT_EQ(s.append("defg", 4), kCvelOk);
  EXPECT_EQ(s.capacity(), 12u);
  EXPECT_EQ(s.append(s.data(), s.length()), kCvelOk);  // the old block is read before it is freed
  EXPECT_EQ(text(s), "0123abcdefg0123abcdefg");
  ASSERT_EQ(s.allocate(0), kCvelOk);  // an empty string that still owns a block reports no data
  EXPECT_EQ(s.data(), nullptr);
}

TEST(CvelString, ViewsNeverWriteOrFreeWhatTheyShow) {
  CvelString owner = owned("0123456789");
  CvelString v;
  ASSERT_EQ(v.setView(owner, 2, 3), kCvelOk);
  v.truncate(1);  // a view is never shortened in place
  ASSERT_EQ(v.appendChar('!'), kCvelOk);  // it becomes an owned copy first, of exactly the size needed
  EXPECT_EQ(text(v), "234!");
  EXPECT_EQ(v.capacity(), 5u);
  EXPECT_EQ(v.setView(owner, 8, 3), kCvelErrMalformed);  // a part outside the source
  ASSERT_EQ(v.setView(owner, 2, 2), kCvelOk);
  ASSERT_EQ(owner.assign(v), kCvelOk);  // assign copies, also from a view of its own bytes
  v.release();  // AddressSanitizer reports any free or reuse of the owner's bytes
  EXPECT_EQ(text(owner), "23");
}

TEST(CvelString, SearchAndEditStayInsideTheContent) {
  CvelString s;
  ASSERT_EQ(s.assign("abc\0ABCabc", 10), kCvelOk);
  EXPECT_EQ(s.find("abc", 1), -1);  // the text search stops at a zero byte, the byte search does not
  EXPECT_EQ(s.find("ABC", 3, -5, false), 4);
  EXPECT_EQ(s.find("ABC", 3, 5, true), 7);
  EXPECT_EQ(s.find("abcABCabcABC", 12, 0, false), -1);  // more bytes than the string holds
  EXPECT_FALSE(owned("x.pem").endsWithNoCase("a much longer text.PEM"));
  CvelString edit = owned("mixed case");
  CvelString part = owned("keep");
  EXPECT_EQ(edit.subString(part, 10), kCvelOk);  // from at the end: dest is left alone
  EXPECT_EQ(text(part), "keep");
  ASSERT_EQ(edit.subString(part, 6, 100), kCvelOk);  // the count is clipped
  EXPECT_EQ(text(part), "case");
  ASSERT_EQ(s.fromNumber(7, 3), kCvelOk);
  EXPECT_EQ(s.fromNumber(12345, 4), kCvelErrNoMemory);  // too narrow: refused, not cut
  EXPECT_EQ(text(s), "007");
}

TEST(CvelString, Base64DecodesEveryLastGroupAndEditsItsSource) {
  // "TWFu" is the classic encoding of "Man"; the shorter groups follow from the alphabet.
  const char* cases[][2] = {{"TWFu", "Man"}, {"TWE=", "Ma"}, {"TQ==", "M"},
                            {"TWE", "Ma"},   {"TQ", "M"},    {"TW\r\nFu\nTW\rFu\r\n", "ManMan"}};
  for (const auto& c : cases) {
    CvelString source = owned(c[0]);
    CvelString out;
    out.base64Decode(source);
    EXPECT_EQ(text(out), c[1]) << c[0];
    EXPECT_EQ(text(source).find_first_of("\r\n"), std::string::npos) << c[0];
  }
}

}  // namespace
