#include "asn1/cvel_a1_stream_cursor.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

CvelString bytesOf(const std::string& hexText) {
  CvelString s;
  testutil::assignHex(s, hexText);
  return s;
}

TEST(CvelA1StreamCursor, WalksASequenceAndItsChild) {
  CvelString s = bytesOf("30 03 02 01 05");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_EQ(c.tag(), 0x30u);
  EXPECT_EQ(c.headerLength(), 2u);
  EXPECT_EQ(c.contentOffset(), 2u);
  EXPECT_EQ(c.contentLength(), 3u);
  EXPECT_EQ(c.position(), 5u);
  EXPECT_FALSE(c.moreFollows());
  ASSERT_EQ(c.descend(in), kCvelOk);
  EXPECT_EQ(c.tag(), 2u);
  EXPECT_EQ(c.contentOffset(), 4u);
  EXPECT_EQ(c.next(in), kCvelErrEndOfData);
  EXPECT_EQ(c.tag(), CvelA1StreamCursor::kNoTag);
}

TEST(CvelA1StreamCursor, DescendFromTheStartUsesTheHeaderLength) {
  // Reading the element, then putting the position back to the start: descend steps over the header.
  CvelString s = bytesOf("31 06 04 01 AA 04 01 BB");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  ASSERT_EQ(c.next(in), kCvelOk);
  c.setPosition(c.start());
  ASSERT_EQ(c.descend(in), kCvelOk);
  EXPECT_EQ(c.tag(), 4u);
  EXPECT_EQ(c.contentOffset(), 4u);
  ASSERT_EQ(c.next(in), kCvelOk);
  CvelString out;
  ASSERT_EQ(c.getContent(in, out), kCvelOk);
  EXPECT_EQ(toHex(out), "BB");
  ASSERT_EQ(c.getElement(in, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0401BB");
}

TEST(CvelA1StreamCursor, EndOfContentsSingleByteAndShortForms) {
  std::string hexText = "00 00 FF 04 85";
  for (int i = 0; i < 133; ++i) hexText += " 22";
  CvelString s = bytesOf(hexText);
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_EQ(c.tag(), 0u);
  EXPECT_EQ(c.headerLength(), 2u);
  EXPECT_EQ(c.contentLength(), 0u);
  EXPECT_TRUE(c.moreFollows());
  ASSERT_EQ(c.next(in), kCvelOk);  // 0xFF: one byte, no length octet
  EXPECT_EQ(c.tag(), 0xFFu);
  EXPECT_EQ(c.headerLength(), 1u);
  ASSERT_EQ(c.next(in), kCvelOk);  // 0x85 is a length of 133 here too
  EXPECT_EQ(c.contentLength(), 133u);
  EXPECT_EQ(c.next(in), kCvelErrEndOfData);
  // An end-of-contents octet must be followed by a zero.
  CvelString bad = bytesOf("00 01");
  CvelA1InputString badIn(bad, 0, 0xFFFFFFFF);
  CvelA1StreamCursor b;
  EXPECT_EQ(b.next(badIn), kCvelErrMalformed);
  // High tag numbers are not gathered: 9F is the tag and 1F the length.
  CvelString high = bytesOf("9F 1F 01 00");
  CvelA1InputString highIn(high, 0, 0xFFFFFFFF);
  CvelA1StreamCursor h;
  h.setLenient(true);
  ASSERT_EQ(h.next(highIn), kCvelOk);
  EXPECT_EQ(h.tag(), 0x9Fu);
  EXPECT_EQ(h.contentLength(), 0x1Fu);
}

TEST(CvelA1StreamCursor, IndefiniteLengthRunsToTheLimit) {
  CvelString s = bytesOf("30 80 02 01 05 00 00 AA");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  c.setLimit(7);
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_TRUE(c.indefinite());
  EXPECT_EQ(c.contentLength(), 5u);  // limit - position - 2
  EXPECT_EQ(c.position(), 7u);
  ASSERT_EQ(c.descend(in), kCvelOk);
  EXPECT_FALSE(c.indefinite());
  EXPECT_EQ(c.tag(), 2u);
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_EQ(c.tag(), 0u);
  EXPECT_EQ(c.headerLength(), 2u);
}

TEST(CvelA1StreamCursor, MalformedAndTruncatedInput) {
  const char* malformed[] = {
      "30",                    // no length octet
      "30 82 01",              // length octets missing
      "30 84 00 00",           // ... two of four
      "04 84 FF FF FF FF 00",  // 4 GiB claimed
      "04 84 FF FF FF FA 00",  // a length that wraps in 32 bits
      "30 05 02 01 05",        // content past the end
      "00",                    // end-of-contents cut off
  };
  for (const char* hexText : malformed) {
    CvelString s = bytesOf(hexText);
    CvelA1InputString in(s, 0, 0xFFFFFFFF);
    CvelA1StreamCursor c;
    EXPECT_EQ(c.next(in), kCvelErrMalformed) << hexText;
    EXPECT_EQ(c.position(), 0u) << hexText;
  }
  CvelString empty;
  CvelA1InputString none(empty, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  EXPECT_EQ(c.next(none), kCvelErrEndOfData);
}

TEST(CvelA1StreamCursor, LenientElementsAreCopiedOnlyAsFarAsTheSourceGoes) {
  CvelString s = bytesOf("04 84 FF FF FF FF 01 02 03");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  c.setLenient(true);
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_EQ(c.contentLength(), 0xFFFFFFFFu);
  CvelString out;
  ASSERT_EQ(c.getContent(in, out), kCvelOk);
  EXPECT_EQ(toHex(out), "010203");
  ASSERT_EQ(c.getElement(in, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0484FFFFFFFF010203");
  EXPECT_EQ(c.next(in), kCvelErrEndOfData);
  // A cursor moved past the source cannot take content from there.
  CvelA1StreamCursor far;
  far.setPosition(2);
  far.setLenient(true);
  CvelString tiny = bytesOf("05 00 04 05");
  CvelA1InputString tinyIn(tiny, 0, 0xFFFFFFFF);
  ASSERT_EQ(far.next(tinyIn), kCvelOk);
  EXPECT_EQ(far.contentOffset(), 4u);
  ASSERT_EQ(far.getContent(tinyIn, out), kCvelOk);
  EXPECT_TRUE(out.isEmpty());
}

TEST(CvelA1StreamCursor, ResetStartsAtTheSourcePosition) {
  CvelString s = bytesOf("05 00 02 01 09");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  ASSERT_EQ(in.seek(2, CvelA1Input::kFromStart), kCvelOk);
  CvelA1StreamCursor c;
  ASSERT_EQ(c.reset(in), kCvelOk);
  EXPECT_EQ(c.start(), 2u);
  EXPECT_EQ(c.position(), 2u);
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_EQ(c.tag(), 2u);
  // At the end of the source there is no position to take.
  ASSERT_EQ(in.seek(0, CvelA1Input::kFromEnd), kCvelOk);
  EXPECT_EQ(c.reset(in), kCvelErrMalformed);
}

TEST(CvelA1StreamCursor, AgreesWithTheMemoryCursorOnARealMessage) {
  // Both cursors walk the top two levels of a real CMS message and must see the same elements.
  testutil::Bytes file = testutil::readFile(testutil::dataPath("asn1crypto/cms-signed.der"));
  ASSERT_FALSE(file.empty());
  CvelString der;
  ASSERT_EQ(der.setView(file.data(), file.size()), kCvelOk);
  CvelA1InputString in(der, 0, der.length());
  CvelA1StreamCursor stream;
  CvelA1Context memory;
  ASSERT_EQ(stream.next(in), kCvelOk);
  ASSERT_EQ(memory.next(der), 0x30);
  ASSERT_EQ(stream.descend(in), kCvelOk);
  ASSERT_GE(memory.descend(der), 0);
  int seen = 0;
  while (true) {
    EXPECT_EQ(stream.tag(), memory.tag());
    EXPECT_EQ(stream.contentOffset(), memory.contentOffset());
    EXPECT_EQ(stream.contentLength(), memory.contentLength());
    ++seen;
    CvelResult r = stream.next(in);
    int32_t t = memory.next(der);
    if (r != kCvelOk) {
      EXPECT_EQ(t, CvelA1Context::kEnd);
      break;
    }
  }
  EXPECT_EQ(seen, 2);  // contentType and [0] content
}

}  // namespace
