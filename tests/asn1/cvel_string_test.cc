#include "asn1/cvel_string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "asn1/cvel_a1_context.h"
#include "support/test_util.h"

namespace {

using testutil::hex;
using testutil::toHex;

std::string text(const CvelString& s) { return s.isEmpty() ? std::string() : std::string(s.c_str(), s.length()); }

void assignText(CvelString& s, const char* t) { ASSERT_EQ(s.assign(t), kCvelOk); }

int sign(int v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

TEST(CvelString, CompareKeepsItsAsymmetry) {
  CvelString abc;
  assignText(abc, "abc");
  CvelString empty;
  // A longer string is less than an empty operand, and an empty string is less than a longer operand.
  EXPECT_EQ(abc.compare("", 0), -1);
  EXPECT_EQ(empty.compare("abc", 3), -1);
  // A prefix is less; equal bytes compare equal.
  CvelString ab;
  assignText(ab, "ab");
  EXPECT_EQ(ab.compare("abc", 3), -1);
  EXPECT_EQ(abc.compare("abc", 3), 0);
  EXPECT_EQ(empty.compare("", 0), 0);
  // The longer side wins when the shared part is equal.
  EXPECT_EQ(abc.compare("ab", 2), 1);
  // Differing bytes decide by their order, whatever the lengths.
  CvelString abd;
  assignText(abd, "abd");
  EXPECT_GT(abd.compare("abc", 3), 0);
  EXPECT_LT(abc.compare("abd", 3), 0);
  EXPECT_LT(abc.compare("b", 1), 0);
  EXPECT_GT(abd.compare("abcz", 4), 0);
  // The case-insensitive form lower-cases both sides first.
  CvelString upper;
  assignText(upper, "ABC");
  EXPECT_EQ(upper.compareNoCase("abc", 3), 0);
  EXPECT_EQ(sign(upper.compareNoCase("abD", 3)), -1);
  EXPECT_EQ(upper.compareNoCase("", 0), -1);
}

TEST(CvelString, EqualsComparesLengthAndBytes) {
  CvelString a;
  CvelString b;
  EXPECT_TRUE(a.equals(b));
  assignText(a, "xy");
  EXPECT_FALSE(a.equals(b));
  assignText(b, "xy");
  EXPECT_TRUE(a.equals(b));
  EXPECT_FALSE(a.equals("xz", 2));
  EXPECT_FALSE(a.equals("xy", 1));
}

TEST(CvelString, AllocateReusesALargerBlockAndShrinksTheCapacity) {
  CvelString s;
  std::string hundred(99, 'q');
  for (int i = 0; i < 5; ++i) hundred[static_cast<size_t>(i)] = static_cast<char>('a' + i);
  ASSERT_EQ(s.assign(hundred.c_str()), kCvelOk);
  ASSERT_EQ(s.capacity(), 100u);
  const unsigned char* block = s.data();
  ASSERT_EQ(s.allocate(5), kCvelOk);
  EXPECT_EQ(s.data(), block);
  EXPECT_EQ(s.capacity(), 6u);
  EXPECT_EQ(text(s), "abcde");
  EXPECT_EQ(s.data()[5], 0);
  // The capacity now says six: asking for six bytes takes a new block and drops the content.
  ASSERT_EQ(s.allocate(6), kCvelOk);
  EXPECT_EQ(s.length(), 6u);
  EXPECT_EQ(s.capacity(), 7u);
}

TEST(CvelString, EmptyStringWithABlockReportsNoData) {
  CvelString s;
  ASSERT_EQ(s.allocate(0), kCvelOk);
  EXPECT_EQ(s.capacity(), 1u);
  EXPECT_EQ(s.data(), nullptr);
  EXPECT_TRUE(s.isEmpty());
  EXPECT_STREQ(s.c_str(), "");
  EXPECT_EQ(s.at(0), nullptr);
}

TEST(CvelString, AppendReturnsTheInPlaceResultWhenTheBlockHasRoom) {
  CvelString s;
  assignText(s, "0123456789");
  s.truncate(4);
  ASSERT_EQ(s.length(), 4u);
  ASSERT_EQ(s.capacity(), 11u);
  const unsigned char* block = s.data();
  EXPECT_EQ(s.append("abc", 3), kCvelAppendedInPlace);
  EXPECT_EQ(s.data(), block);
  EXPECT_EQ(text(s), "0123abc");
  EXPECT_EQ(s.data()[7], 0);
  // Four more bytes reach the capacity: a fresh block of exactly the new size, and the success code.
  EXPECT_EQ(s.append("defg", 4), kCvelOk);
  EXPECT_NE(s.data(), block);
  EXPECT_EQ(text(s), "0123abcdefg");
  EXPECT_EQ(s.capacity(), 12u);
  EXPECT_EQ(s.append(nullptr, 1), kCvelErrNullData);
  // Appending the string to itself reads the old block before it is freed.
  EXPECT_EQ(s.append(s.data(), s.length()), kCvelOk);
  EXPECT_EQ(text(s), "0123abcdefg0123abcdefg");
}

TEST(CvelString, VoidReturningAppendsGrowExactlyAndOwnViews) {
  CvelString owner;
  assignText(owner, "view");
  CvelString v;
  ASSERT_EQ(v.setView(owner, 0, 4), kCvelOk);
  ASSERT_TRUE(v.isView());
  v.appendChar('!');
  EXPECT_FALSE(v.isView());
  EXPECT_EQ(text(v), "view!");
  EXPECT_EQ(v.capacity(), 6u);
  EXPECT_EQ(text(owner), "view");  // the viewed bytes were never written
  v.append(" and");
  v.append(owner);
  EXPECT_EQ(text(v), "view! andview");
  EXPECT_EQ(v.capacity(), v.length() + 1);
  v.append(v);
  EXPECT_EQ(text(v), "view! andviewview! andview");
  CvelString empty;
  v.append(empty);
  v.append("");
  v.append(static_cast<const char*>(nullptr));
  EXPECT_EQ(v.length(), 26u);
}

TEST(CvelString, ViewsNeverOwnWhatTheyShow) {
  CvelString owner;
  assignText(owner, "0123456789");
  {
    CvelString v;
    ASSERT_EQ(v.setView(owner, 2, 3), kCvelOk);
    EXPECT_EQ(v.capacity(), CvelString::kViewCapacity);
    EXPECT_EQ(v.data(), owner.data() + 2);
    EXPECT_EQ(text(v), std::string("234"));
    v.truncate(1);  // a view is never shortened in place
    EXPECT_EQ(v.length(), 3u);
    // allocate forgets the view first and takes a block of its own.
    ASSERT_EQ(v.allocate(2), kCvelOk);
    EXPECT_NE(v.data(), owner.data() + 2);
    EXPECT_EQ(v.capacity(), 3u);
  }  // the destructor frees only v's own block; AddressSanitizer reports any free of the owner's bytes
  CvelString v2;
  ASSERT_EQ(v2.setView(owner, nullptr), kCvelOk);
  EXPECT_EQ(v2.length(), 10u);
  v2.release();
  EXPECT_EQ(text(owner), "0123456789");
  // A part outside the source is refused and leaves an empty string.
  EXPECT_EQ(v2.setView(owner, 8, 3), kCvelErrMalformed);
  EXPECT_TRUE(v2.isEmpty());
  // An empty part is a view of nothing.
  ASSERT_EQ(v2.setView(owner, 10, 0), kCvelOk);
  EXPECT_TRUE(v2.isView());
  EXPECT_EQ(v2.data(), nullptr);
}

TEST(CvelString, AssignCopiesViewsAndZeroFills) {
  CvelString owner;
  assignText(owner, "abcdef");
  CvelString v;
  ASSERT_EQ(v.setView(owner, 1, 3), kCvelOk);
  CvelString copy;
  ASSERT_EQ(copy.assign(v), kCvelOk);
  EXPECT_FALSE(copy.isView());
  EXPECT_EQ(text(copy), "bcd");
  // A view of the string's own bytes survives being assigned to it.
  CvelString self;
  ASSERT_EQ(self.setView(owner, 2, 2), kCvelOk);
  ASSERT_EQ(owner.assign(self), kCvelOk);
  EXPECT_EQ(text(owner), "cd");
  ASSERT_EQ(owner.assign(owner.data() + 1, 1), kCvelOk);
  EXPECT_EQ(text(owner), "d");
  ASSERT_EQ(copy.assign(nullptr, 3), kCvelOk);
  EXPECT_EQ(toHex(copy), "000000");
  ASSERT_EQ(copy.assign(static_cast<const char*>(nullptr)), kCvelOk);
  EXPECT_EQ(copy.capacity(), 0u);
  // moveFrom takes the fields and leaves the source empty.
  CvelString moved;
  moved.moveFrom(owner);
  EXPECT_EQ(text(moved), "d");
  EXPECT_EQ(owner.capacity(), 0u);
}

TEST(CvelString, ElementContentIsCopiedViewedAndAppendedWithinTheSource) {
  CvelString der;
  testutil::assignHex(der, "30 06 04 01 AA 04 01 BB");
  CvelA1Context c;
  ASSERT_EQ(c.next(der), 0x30);
  ASSERT_EQ(c.descend(der), 0x04);
  CvelString out;
  ASSERT_EQ(out.assign(der, &c), kCvelOk);
  EXPECT_EQ(toHex(out), "AA");
  ASSERT_EQ(c.next(der), 0x04);
  ASSERT_EQ(out.append(der, &c), kCvelOk);
  EXPECT_EQ(toHex(out), "AABB");
  CvelString v;
  ASSERT_EQ(v.setView(der, &c), kCvelOk);
  EXPECT_EQ(v.data(), der.data() + 7);
  ASSERT_EQ(out.assign(der, nullptr), kCvelOk);
  EXPECT_EQ(out.length(), 8u);

  // An element read leniently past the end of its string is never copied or viewed.
  CvelString cut;
  testutil::assignHex(cut, "04 05 01 02");
  CvelA1Context lenient;
  lenient.setLenient(true);
  ASSERT_EQ(lenient.next(cut), 0x04);
  EXPECT_EQ(out.assign(cut, &lenient), kCvelErrMalformed);
  EXPECT_EQ(out.append(cut, &lenient), kCvelErrMalformed);
  EXPECT_EQ(v.setView(cut, &lenient), kCvelErrMalformed);
  EXPECT_TRUE(v.isEmpty());
}

TEST(CvelString, TruncateOnlyShortensOwnedBuffers) {
  CvelString s;
  assignText(s, "hello");
  s.truncate(5);
  s.truncate(6);  // not below the capacity: nothing happens
  EXPECT_EQ(text(s), "hello");
  s.truncate(2);
  EXPECT_EQ(text(s), "he");
  EXPECT_EQ(s.data()[2], 0);
  CvelString empty;
  empty.truncate(0);
  EXPECT_EQ(empty.capacity(), 0u);
}

TEST(CvelString, CaseInsensitivePrefixAndSuffix) {
  CvelString s;
  assignText(s, "Certificate.PEM");
  EXPECT_TRUE(s.startsWithNoCase("cert"));
  EXPECT_TRUE(s.endsWithNoCase(".pem"));
  EXPECT_FALSE(s.startsWithNoCase("cat"));
  EXPECT_FALSE(s.endsWithNoCase(".der"));
  EXPECT_FALSE(s.endsWithNoCase("a much longer text than the string"));
  EXPECT_FALSE(s.startsWithNoCase("a much longer text than the string"));
  EXPECT_FALSE(s.startsWithNoCase(""));
  EXPECT_FALSE(s.startsWithNoCase(nullptr));
  CvelString empty;
  EXPECT_FALSE(empty.startsWithNoCase("a"));
  EXPECT_FALSE(empty.endsWithNoCase("a"));
}

TEST(CvelString, FindSearchesTextBytesAndTheLastCharacter) {
  CvelString s;
  assignText(s, "abcABCabc");
  EXPECT_EQ(s.find("abc", 0), 0);
  EXPECT_EQ(s.find("abc", 1), 6);
  EXPECT_EQ(s.find("xyz", 0), -1);
  EXPECT_EQ(s.find("abc", 9), -1);
  EXPECT_EQ(s.find(static_cast<const char*>(nullptr), 0), -1);
  EXPECT_EQ(s.find("ABC", 3, 0, false), 3);
  EXPECT_EQ(s.find("ABC", 3, 4, true), 6);
  EXPECT_EQ(s.find("ABC", 3, -5, true), 0);
  EXPECT_EQ(s.find("abc", 3, 7, false), -1);  // from + n past the end
  EXPECT_EQ(s.find("abc", 0, 0, false), -1);
  EXPECT_EQ(s.findLast('a'), 6);
  EXPECT_EQ(s.findLast('z'), -1);
  CvelString empty;
  EXPECT_EQ(empty.findLast('a'), -1);
  // The text search, like a search in zero-terminated text, stops at a zero byte.
  CvelString zero;
  ASSERT_EQ(zero.assign("ab\0cd", 5), kCvelOk);
  EXPECT_EQ(zero.find("cd", 0), -1);
  EXPECT_EQ(zero.find("cd", 2, 0, false), 3);
}

TEST(CvelString, InPlaceEditing) {
  CvelString s;
  assignText(s, "MiXeD Case \t\r\n ");
  s.trimRight();
  EXPECT_EQ(text(s), "MiXeD Case");
  s.toLower();
  EXPECT_EQ(text(s), "mixed case");
  CvelString part;
  s.subString(part, 6, 100);
  EXPECT_EQ(text(part), "case");
  s.subString(part, 0, 5);
  EXPECT_EQ(text(part), "mixed");
  s.subString(part, 50, 2);
  EXPECT_TRUE(part.isEmpty());
  assignText(part, "keep");
  s.subString(part, 10);  // from at the end: dest is left alone
  EXPECT_EQ(text(part), "keep");
  s.subString(part, 6);
  EXPECT_EQ(text(part), "case");
  // A view is never trimmed.
  CvelString owner;
  assignText(owner, "x  ");
  CvelString v;
  ASSERT_EQ(v.setView(owner, nullptr), kCvelOk);
  v.trimRight();
  EXPECT_EQ(v.length(), 3u);
}

TEST(CvelString, FromNumberPadsOrRefusesANarrowWidth) {
  CvelString s;
  ASSERT_EQ(s.fromNumber(4711, 0), kCvelOk);
  EXPECT_EQ(text(s), "4711");
  ASSERT_EQ(s.fromNumber(7, 3), kCvelOk);
  EXPECT_EQ(text(s), "007");
  ASSERT_EQ(s.fromNumber(0, 0), kCvelOk);
  EXPECT_EQ(text(s), "0");
  ASSERT_EQ(s.fromNumber(4294967295u, 0), kCvelOk);
  EXPECT_EQ(text(s), "4294967295");
  EXPECT_EQ(s.fromNumber(12345, 4), kCvelErrNoMemory);
  EXPECT_EQ(text(s), "4294967295");
}

TEST(CvelString, Base64DecodesEveryLastGroupSize) {
  struct Case {
    const char* in;
    const char* out;
  };
  // Expected bytes follow from the alphabet: "TWFu" is the classic encoding of "Man".
  const Case cases[] = {{"TWFu", "Man"}, {"TWE=", "Ma"}, {"TQ==", "M"}, {"TWE", "Ma"},
                        {"TQ", "M"},     {"TWFuTWFu", "ManMan"}, {"TWFuTQ==", "ManM"}};
  for (const Case& c : cases) {
    CvelString source;
    assignText(source, c.in);
    CvelString out;
    out.base64Decode(source);
    EXPECT_EQ(text(out), c.out) << c.in;
  }
}

TEST(CvelString, Base64RemovesLineBreaksFromItsSource) {
  CvelString source;
  assignText(source, "TW\r\nFu\nTW\rFu\r\n");
  CvelString out;
  out.base64Decode(source);
  EXPECT_EQ(text(out), "ManMan");
  EXPECT_EQ(text(source), "TWFuTWFu");
  // The body of a real PEM certificate decodes to the DER of the same certificate.
  testutil::Bytes pem = testutil::readFile(testutil::dataPath("asn1crypto/test.crt"));
  testutil::Bytes der = testutil::readFile(testutil::dataPath("asn1crypto/test-der.crt"));
  ASSERT_FALSE(pem.empty());
  std::string body(pem.begin(), pem.end());
  const std::string begin = "-----BEGIN CERTIFICATE-----";
  body = body.substr(body.find(begin) + begin.size());
  body = body.substr(0, body.find("-----END"));
  CvelString pemText;
  ASSERT_EQ(pemText.assign(body.c_str()), kCvelOk);
  out.base64Decode(pemText);
  EXPECT_EQ(testutil::toBytes(out), der);
  // Nothing to decode leaves the output alone.
  CvelString none;
  out.base64Decode(none);
  EXPECT_EQ(out.length(), der.size());
}

TEST(CvelString, ToHexAndAt) {
  CvelString s;
  testutil::assignHex(s, "00 7F 80 FF");
  EXPECT_EQ(s.toHex(), "007F80FF");
  ASSERT_NE(s.at(3), nullptr);
  EXPECT_EQ(*s.at(3), 0xFF);
  EXPECT_EQ(s.at(4), nullptr);
}

}  // namespace
