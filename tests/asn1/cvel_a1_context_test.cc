#include "asn1/cvel_a1_context.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

constexpr int32_t kEnd = CvelA1Context::kEnd;
constexpr int32_t kOverrun = CvelA1Context::kOverrun;
constexpr uint32_t kNoTag = CvelA1Context::kNoTag;

CvelString bytesOf(const std::string& hexText) {
  CvelString s;
  testutil::assignHex(s, hexText);
  return s;
}

TEST(CvelA1Context, ReadsOneElementFromEveryHeaderForm) {
  struct Case {
    std::string der;
    bool lenient;
    int32_t result;
    uint32_t tag, header, length, position;
  };
  const Case cases[] = {
      {"30 03 02 01 05", false, 0x30, 0x30, 2, 3, 5},
      {"30 05 02 01 05", false, kOverrun, kNoTag, 0, 0, 0},  // a failed read leaves the position for a retry
      {"30 05 02 01 05", true, 0x30, 0x30, 2, 5, 7},
      {"04 81 01 AA", false, 4, 4, 3, 1, 4},          {"04 82 00 01 AA", false, 4, 4, 4, 1, 5},
      {"04 83 00 00 01 AA", false, 4, 4, 5, 1, 6},    {"04 84 00 00 00 01 AA", false, 4, 4, 6, 1, 7},
      {"04 85" + std::string(266, '1'), false, 4, 4, 2, 133, 135},  // 0x85 is a short length of 133 here
      {"04 FF 01 02", false, kOverrun, kNoTag, 0, 0, 0},
      {"9F 1F 01 00", false, 0x9F1F, 0x9F1F, 3, 1, 4}, {"3F 7F 00", false, 0x3F7F, 0x3F7F, 3, 0, 3},
      {"1F 81 82 83 01 00", false, 0x1F818283, 0x1F818283, 5, 1, 6},  // at most four identifier octets
      {"FF FF FF FF 00", false, kEnd, kNoTag, 0, 0, 0},             // reads as the end of the range
      {"FF FF FF FE 00", false, kOverrun, 0xFFFFFFFE, 5, 0, 5},     // a real tag that looks like an overrun
      {"00 00", false, 0, 0, 1, 0, 1},                               // end-of-contents: two one-byte elements
      // Headers cut off by the end of the string are overruns, also when read leniently; lengths far past
      // the end (here wrapping in 32 bits when added to the position) are overruns unless read leniently.
      {"30", false, kOverrun, kNoTag, 0, 0, 0},      {"30 81", true, kOverrun, kNoTag, 0, 0, 0},
      {"30 84 00 00 01", true, kOverrun, kNoTag, 0, 0, 0}, {"1F 81 82", true, kOverrun, kNoTag, 0, 0, 0},
      {"9F 1F", true, kOverrun, kNoTag, 0, 0, 0},    {"04 84 FF FF FF FA 00", false, kOverrun, kNoTag, 0, 0, 0},
      {"04 84 FF FF FF FA 00", true, 4, 4, 6, 0xFFFFFFFA, 0xFFFFFFFF}};
  for (const Case& k : cases) {
    SCOPED_TRACE(k.der + (k.lenient ? " (lenient)" : ""));
    CvelString s = bytesOf(k.der);
    CvelA1Context c;
    c.setLenient(k.lenient);
    EXPECT_EQ(c.next(s), k.result);
    EXPECT_EQ(c.tag(), k.tag);
    EXPECT_EQ(c.position(), k.position);
    if (k.tag == kNoTag) continue;
    EXPECT_EQ(c.headerLength(), k.header);
    EXPECT_EQ(c.contentLength(), k.length);
    CvelString out;  // only an element that lies inside the string is copied
    EXPECT_EQ(c.getElement(s, out) == kCvelOk, k.position <= s.length());
  }
}

TEST(CvelA1Context, LimitsHoldExceptForIndefiniteLengths) {
  CvelString s = bytesOf("02 01 01 02 01 02 02 01 03");
  CvelA1Context c;
  c.setLimit(6);
  ASSERT_EQ(c.next(s), 2);
  EXPECT_TRUE(c.moreFollows());
  ASSERT_EQ(c.next(s), 2);
  EXPECT_FALSE(c.moreFollows());
  EXPECT_EQ(c.next(s), kEnd);
  // An indefinite length takes the rest of the whole string, deliberately, not of the limit: inside a
  // SEQUENCE of four bytes it overruns unless read leniently.
  s = bytesOf("30 04 A0 80 05 00 01 02");
  c.setPosition(2);
  c.setLimit(6);
  EXPECT_EQ(c.next(s), kOverrun);
  c.setLenient(true);
  ASSERT_EQ(c.next(s), 0xA0);
  EXPECT_EQ(c.contentLength(), 4u);
}

TEST(CvelA1Context, ChildCursorSubtractsTheStaleHeaderLength) {
  CvelString s = bytesOf("30 06 02 01 07 02 01 08 04 00");
  CvelA1Context parent;
  ASSERT_EQ(parent.next(s), 0x30);
  CvelA1Context child;
  child = parent;
  ASSERT_EQ(child.next(s), 2);
  ASSERT_EQ(child.next(s), 2);
  EXPECT_EQ(child.next(s), kEnd);  // the child stops at the end of the parent's element
  // A reused destination (header length 2) starts 2 bytes early: at the parent's own element.
  child = parent;
  EXPECT_EQ(child.next(s), 0x30);
  EXPECT_EQ(parent.position(), 8u);  // the parent never moved
  // A stale header longer than the content offset wraps the start past every string: nothing is read.
  CvelA1Context deep;
  ASSERT_EQ(deep.next(bytesOf("04 82 00 00")), 0x04);  // header length 4
  CvelString small = bytesOf("30 00");
  CvelA1Context smallParent;
  ASSERT_EQ(smallParent.next(small), 0x30);
  deep = smallParent;
  EXPECT_EQ(deep.next(small), kEnd);
}

}  // namespace
