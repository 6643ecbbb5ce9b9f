#include "asn1/cvel_a1_context.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

CvelString bytesOf(const std::string& hexText) {
  CvelString s;
  testutil::assignHex(s, hexText);
  return s;
}

TEST(CvelA1Context, WalksASequenceAndItsChild) {
  CvelString s = bytesOf("30 03 02 01 05");
  CvelA1Context c;
  EXPECT_EQ(c.tag(), 0u);  // nothing read yet
  ASSERT_EQ(c.next(s), 0x30);
  EXPECT_EQ(c.contentOffset(), 2u);
  EXPECT_EQ(c.contentLength(), 3u);
  EXPECT_EQ(c.headerLength(), 2u);
  EXPECT_EQ(c.position(), 5u);
  EXPECT_EQ(c.limit(), 5u);  // a zero limit means the whole string
  EXPECT_FALSE(c.moreFollows());
  ASSERT_EQ(c.descend(s), 0x02);
  EXPECT_EQ(c.contentOffset(), 4u);
  EXPECT_EQ(c.contentLength(), 1u);
  EXPECT_EQ(c.next(s), CvelA1Context::kEnd);
  EXPECT_EQ(c.tag(), CvelA1Context::kNoTag);
}

TEST(CvelA1Context, OverrunIsReportedAndLenientReadsGoOn) {
  CvelString s = bytesOf("30 05 02 01 05");
  CvelA1Context c;
  EXPECT_EQ(c.next(s), CvelA1Context::kOverrun);
  EXPECT_EQ(c.position(), 0u);  // a failed read leaves the position, so the caller may retry
  EXPECT_EQ(c.tag(), CvelA1Context::kNoTag);
  c.setLenient(true);
  ASSERT_EQ(c.next(s), 0x30);
  EXPECT_EQ(c.position(), 7u);
  EXPECT_EQ(c.contentLength(), 5u);
  // The element does not fit its string: it is neither copied nor viewed.
  CvelString out;
  EXPECT_EQ(c.getContent(s, out), kCvelErrMalformed);
  EXPECT_EQ(c.getElement(s, out), kCvelErrMalformed);
  EXPECT_EQ(c.next(s), CvelA1Context::kEnd);
}

TEST(CvelA1Context, LengthForms) {
  struct Case {
    const char* der;
    uint32_t header;
    uint32_t length;
  };
  std::string eightyFive = "04 85";  // 0x85 is not a long form to this reader: it is a length of 133
  for (int i = 0; i < 133; ++i) eightyFive += " 11";
  const Case cases[] = {
      {"04 81 01 AA", 3, 1},          {"04 82 00 01 AA", 4, 1}, {"04 83 00 00 01 AA", 5, 1},
      {"04 84 00 00 00 01 AA", 6, 1}, {"04 00", 2, 0},          {eightyFive.c_str(), 2, 133},
  };
  for (const Case& k : cases) {
    CvelString s = bytesOf(k.der);
    CvelA1Context c;
    ASSERT_EQ(c.next(s), 0x04) << k.der;
    EXPECT_EQ(c.headerLength(), k.header) << k.der;
    EXPECT_EQ(c.contentLength(), k.length) << k.der;
    EXPECT_EQ(c.position(), s.length()) << k.der;
  }
  CvelString s = bytesOf("04 FF 01 02");
  CvelA1Context c;
  EXPECT_EQ(c.next(s), CvelA1Context::kOverrun);  // 0xFF claims 255 bytes
}

TEST(CvelA1Context, IndefiniteLengthTakesTheRestOfTheWholeString) {
  // SEQUENCE { [0] indefinite ... } followed by two more bytes: the inner element takes the remainder of the
  // string, not of its parent.
  CvelString s = bytesOf("30 04 A0 80 05 00 01 02");
  CvelA1Context top;
  ASSERT_EQ(top.next(s), 0x30);
  CvelA1Context child;
  child = top;
  child.setLenient(true);
  ASSERT_EQ(child.next(s), 0xA0);
  EXPECT_EQ(child.headerLength(), 2u);
  EXPECT_EQ(child.contentLength(), 8u - 2u - 2u);  // length of s - position - 2
  CvelA1Context strict;
  strict = top;
  EXPECT_EQ(strict.next(s), CvelA1Context::kOverrun);  // it overruns the parent's limit
}

TEST(CvelA1Context, TagsOfSeveralOctets) {
  CvelString s = bytesOf("9F 1F 01 00");
  CvelA1Context c;
  ASSERT_EQ(c.next(s), 0x9F1F);
  EXPECT_EQ(c.headerLength(), 3u);
  EXPECT_EQ(c.contentLength(), 1u);
  // At most four identifier octets are gathered, and the run stops at an octet without the top bit.
  s = bytesOf("1F 81 82 83 01 00");
  CvelA1Context four;
  ASSERT_EQ(four.next(s), 0x1F818283);
  EXPECT_EQ(four.headerLength(), 5u);
  EXPECT_EQ(four.contentLength(), 1u);
  s = bytesOf("3F 7F 00");
  CvelA1Context two;
  ASSERT_EQ(two.next(s), 0x3F7F);
  EXPECT_EQ(two.contentLength(), 0u);
  // Four octets of FF read as the end of the range, and nothing moves.
  s = bytesOf("FF FF FF FF 00");
  CvelA1Context ff;
  EXPECT_EQ(ff.next(s), CvelA1Context::kEnd);
  EXPECT_EQ(ff.position(), 0u);
  // A four-octet tag of 0x80000000 and above comes back as a negative number; the cursor keeps it.
  s = bytesOf("FF FF FF FE 00");
  CvelA1Context fe;
  EXPECT_EQ(fe.next(s), static_cast<int32_t>(0xFFFFFFFE));
  EXPECT_EQ(fe.tag(), 0xFFFFFFFEu);
  EXPECT_EQ(fe.position(), 5u);
}

TEST(CvelA1Context, EndOfContentsReadsAsOneByteElements) {
  CvelString s = bytesOf("00 00");
  CvelA1Context c;
  ASSERT_EQ(c.next(s), 0);
  EXPECT_EQ(c.headerLength(), 1u);
  EXPECT_EQ(c.contentLength(), 0u);
  EXPECT_TRUE(c.moreFollows());
  ASSERT_EQ(c.next(s), 0);
  EXPECT_EQ(c.next(s), CvelA1Context::kEnd);
}

TEST(CvelA1Context, TruncatedHeadersAreOverrunsInsideTheString) {
  // Every read is bounded by the string: headers cut off anywhere, and lengths claiming more than is there.
  const char* truncated[] = {
      "30",                   // no length octet
      "30 81",                // long form without its octet
      "30 82 01",             // one of two octets
      "30 84 00 00 01",       // three of four
      "1F",                   // high tag without its next octet
      "1F 81",                // high tag run cut off
      "1F 81 82",             // ... and again
      "9F 1F",                // complete high tag, no length
      "04 84 FF FF FF FF 00", // a length of 4 GiB
      "04 84 FF FF FF FA 00", // one that wraps when added to the position in 32 bits
      "04 83 FF FF FF",
  };
  for (const char* hexText : truncated) {
    CvelString s = bytesOf(hexText);
    CvelA1Context c;
    EXPECT_EQ(c.next(s), CvelA1Context::kOverrun) << hexText;
    EXPECT_EQ(c.position(), 0u) << hexText;
    // Lenient reading may accept a length past the end, but never a header cut off by it.
    CvelA1Context lenient;
    lenient.setLenient(true);
    int32_t tag = lenient.next(s);
    if (tag >= 0) {
      EXPECT_GT(static_cast<uint64_t>(lenient.contentOffset()) + lenient.contentLength(), s.length()) << hexText;
      CvelString out;
      EXPECT_EQ(lenient.getContent(s, out), kCvelErrMalformed) << hexText;
      EXPECT_EQ(lenient.next(s), CvelA1Context::kEnd) << hexText;
    } else {
      EXPECT_EQ(tag, CvelA1Context::kOverrun) << hexText;
    }
  }
}

TEST(CvelA1Context, LimitsAndMoreFollows) {
  CvelString s = bytesOf("02 01 01 02 01 02 02 01 03");
  CvelA1Context c;
  c.setLimit(6);
  ASSERT_EQ(c.next(s), 2);
  EXPECT_TRUE(c.moreFollows());
  ASSERT_EQ(c.next(s), 2);
  EXPECT_FALSE(c.moreFollows());
  EXPECT_EQ(c.next(s), CvelA1Context::kEnd);
  // A limit beyond the string is brought back to its length.
  CvelA1Context wide;
  wide.setLimit(1000);
  ASSERT_EQ(wide.next(s), 2);
  EXPECT_EQ(wide.limit(), 9u);
  // An element that ends past a limit inside the string overruns it.
  CvelA1Context tight;
  tight.setLimit(2);
  EXPECT_EQ(tight.next(s), CvelA1Context::kOverrun);
}

TEST(CvelA1Context, ChildCursorFromOperatorAssign) {
  CvelString s = bytesOf("30 06 02 01 07 02 01 08 04 00");
  CvelA1Context parent;
  ASSERT_EQ(parent.next(s), 0x30);
  CvelA1Context child;
  child = parent;
  EXPECT_EQ(child.start(), 2u);
  EXPECT_EQ(child.position(), 2u);
  EXPECT_EQ(child.limit(), 8u);
  EXPECT_EQ(child.tag(), 0x30u);
  EXPECT_EQ(child.contentOffset(), 2u);
  ASSERT_EQ(child.next(s), 2);
  ASSERT_EQ(child.next(s), 2);
  EXPECT_EQ(child.next(s), CvelA1Context::kEnd);  // the child stops at the end of the parent's element
  // The usual pattern: copy, descend, next until negative.
  CvelA1Context walk;
  walk = parent;
  int count = 0;
  for (int32_t t = walk.descend(s); t >= 0; t = walk.next(s)) ++count;
  EXPECT_EQ(count, 2);
  // A reused destination subtracts its previous header length from the start it computes.
  CvelA1Context reused;
  ASSERT_EQ(reused.next(s), 0x30);  // header length 2
  ASSERT_EQ(reused.next(s), 0x04);  // header length 2, content offset 10
  reused = parent;
  EXPECT_EQ(reused.start(), 0u);  // 2 - 2
  EXPECT_EQ(reused.position(), 0u);
  EXPECT_EQ(reused.next(s), 0x30);  // it reads the parent's own element again, not its first child
  // The parent never moved.
  EXPECT_EQ(parent.position(), 8u);
  // Assigned to itself, a cursor covers its current element from its first byte.
  CvelA1Context& alias = parent;
  parent = alias;
  EXPECT_EQ(parent.start(), 0u);
  EXPECT_EQ(parent.limit(), 8u);
  EXPECT_EQ(parent.next(s), 0x30);
}

TEST(CvelA1Context, StaleHeaderLargerThanTheOffsetStaysInsideTheString) {
  CvelString s = bytesOf("04 82 00 02 05 00 30 03 02 01 05");
  CvelA1Context stale;
  ASSERT_EQ(stale.next(s), 0x04);  // header length 4
  CvelA1Context parent;
  parent.setPosition(6);
  ASSERT_EQ(parent.next(s), 0x30);  // content offset 8
  stale = parent;  // start = 8 - 4
  EXPECT_EQ(stale.start(), 4u);
  ASSERT_EQ(stale.next(s), 0x05);  // reads whatever lies there, inside the string
  CvelA1Context deep;
  ASSERT_EQ(deep.next(s), 0x04);
  CvelA1Context small;
  ASSERT_EQ(small.next(bytesOf("30 00")), 0x30);  // content offset 2
  deep = small;  // 2 - 4 wraps: the start lies past every string
  CvelString t = bytesOf("30 00");
  EXPECT_EQ(deep.next(t), CvelA1Context::kEnd);
}

TEST(CvelA1Context, CopiesOfElementAndContent) {
  CvelString s = bytesOf("31 05 04 03 41 42 43");
  CvelA1Context c;
  ASSERT_EQ(c.next(s), 0x31);
  ASSERT_EQ(c.descend(s), 0x04);
  CvelString out;
  ASSERT_EQ(c.getElement(s, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0403414243");
  ASSERT_EQ(c.getContent(s, out), kCvelOk);
  EXPECT_EQ(toHex(out), "414243");
  EXPECT_EQ(c.elementOffset(), 2u);
  EXPECT_EQ(c.elementLength(), 5u);
  CvelString empty = bytesOf("05 00");
  CvelA1Context n;
  ASSERT_EQ(n.next(empty), 5);
  ASSERT_EQ(n.getContent(empty, out), kCvelOk);
  EXPECT_TRUE(out.isEmpty());
  ASSERT_EQ(n.getElement(empty, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0500");
}

TEST(CvelA1Context, EveryPrefixOfARealCertificateIsReadSafely) {
  testutil::Bytes file = testutil::readFile(testutil::dataPath("asn1crypto/test-ec-der.crt"));
  ASSERT_FALSE(file.empty());
  for (size_t cut = 0; cut < file.size(); cut += 7) {
    CvelString s;
    ASSERT_EQ(s.assign(file.data(), static_cast<uint32_t>(cut)), kCvelOk);
    CvelA1Context c;
    int32_t t = c.next(s);
    if (cut == 0) {
      EXPECT_EQ(t, CvelA1Context::kEnd);
    } else {
      EXPECT_EQ(t, CvelA1Context::kOverrun) << cut;  // the certificate claims more than the prefix holds
    }
  }
}

}  // namespace
