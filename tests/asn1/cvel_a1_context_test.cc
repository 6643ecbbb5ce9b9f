#include "asn1/cvel_a1_context.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

constexpr int32_t kEnd = CvelA1Context::kEnd;
constexpr int32_t kOverrun = CvelA1Context::kOverrun;
constexpr uint32_t kNoTag = CvelA1Context::kNoTag;

TEST(CvelA1Context, ReadsOneElementFromEveryHeaderForm) {
  // DER, lenient, result, tag, header length, content length, position afterwards.
  const std::tuple<std::string, bool, int32_t, uint32_t, uint32_t, uint32_t, uint32_t> cases[] = {
      {"30 05 02 01 05", false, kOverrun, kNoTag, 0, 0, 0},  // a failed read leaves the position for a retry
      {"30 05 02 01 05", true, 0x30, 0x30, 2, 5, 7},  {"04 FF 01 02", false, kOverrun, kNoTag, 0, 0, 0},
      {"04 81 01 AA", false, 4, 4, 3, 1, 4},          {"04 84 00 00 00 01 AA", false, 4, 4, 6, 1, 7},
      {"04 82 00 01 AA", false, 4, 4, 4, 1, 5},       {"04 81 05 AA", false, kOverrun, kNoTag, 0, 0, 0},
      {"30 82 FF FF 00", true, 0x30, 0x30, 4, 0xFFFF, 0x10003},  {"30 82 01", true, kOverrun, kNoTag, 0, 0, 0},
      {"04 85" + std::string(266, '1'), false, 4, 4, 2, 133, 135},  // 0x85 is a short length of 133 here
      {"30 03 02 01 05", false, 0x30, 0x30, 2, 3, 5}, {"9F 1F 01 00", false, 0x9F1F, 0x9F1F, 3, 1, 4},
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
  for (const auto& [der, lenient, result, tag, header, length, position] : cases) {
    SCOPED_TRACE(der + (lenient ? " (lenient)" : ""));
    const testutil::Bytes hex = testutil::hex(der);
    const testutil::Bytes bytes(hex.begin(), hex.end());  // exactly sized: AddressSanitizer sees any overread
    CvelString s;
    ASSERT_EQ(s.setView(bytes.data(), bytes.size()), kCvelOk);
    CvelA1Context c;
    c.setLenient(lenient);
    EXPECT_EQ(c.next(s), result);
    EXPECT_EQ(std::make_tuple(c.tag(), c.position()), std::make_tuple(tag, position));
    if (tag == kNoTag) continue;
    EXPECT_EQ(std::make_tuple(c.headerLength(), c.contentLength()), std::make_tuple(header, length));
    // Only an element that lies inside the string is copied, appended or viewed.
    const bool inside = position <= s.length();
    CvelString out;
    EXPECT_EQ(c.getElement(s, out) == kCvelOk, inside);
    EXPECT_EQ(out.assign(s, &c) == kCvelOk, inside);
    EXPECT_EQ(out.append(s, &c) == kCvelOk, inside);
    EXPECT_EQ(out.setView(s, &c) == kCvelOk, inside);
  }
}

TEST(CvelA1Context, LimitsHoldExceptForIndefiniteLengths) {
  CvelString s = testutil::hexString("02 01 01 02 01 02 02 01 03");
  CvelA1Context c;
  c.setLimit(6);
  ASSERT_EQ(c.next(s), 2);
  EXPECT_TRUE(c.moreFollows());
  ASSERT_EQ(c.next(s), 2);
  EXPECT_FALSE(c.moreFollows());
  EXPECT_EQ(c.next(s), kEnd);
  // An indefinite length takes the rest of the whole string, deliberately, not of the limit: inside a
  // SEQUENCE of four bytes it overruns unless read leniently.
  s = testutil::hexString("30 04 A0 80 05 00 01 02");
  c.setPosition(2);
  c.setLimit(6);
  EXPECT_EQ(c.next(s), kOverrun);
  c.setLenient(true);
  ASSERT_EQ(c.next(s), 0xA0);
  EXPECT_EQ(c.contentLength(), 4u);
}

TEST(CvelA1Context, ChildCursorSubtractsTheStaleHeaderLength) {
  CvelString s = testutil::hexString("30 06 02 01 07 02 01 08 04 00");
  CvelA1Context parent;
  ASSERT_EQ(parent.next(s), 0x30);
  CvelA1Context child;
  child.enterElementOf(parent);
  ASSERT_EQ(child.next(s), 2);
  ASSERT_EQ(child.next(s), 2);
  EXPECT_EQ(child.next(s), kEnd);  // the child stops at the end of the parent's element
  // A reused destination (header length 2) starts 2 bytes early: at the parent's own element.
  child.enterElementOf(parent);
  EXPECT_EQ(child.next(s), 0x30);
}

TEST(CvelA1Context, ChildrenAndViewsStayInsideTheString) {
  // DER, lenient; the parent's first element viewed whole and as content ("-" when refused); the first
  // child's tag and its whole element ("-" when none).
  const std::tuple<std::string, bool, std::string, std::string, int32_t, std::string> cases[] = {
      {"30 06 02 01 07 02 01 08", false, "3006020107020108", "020107020108", 2, "020107"},
      {"30 00", false, "3000", "", kEnd, "-"},                           // no child in an empty SEQUENCE
      {"30 03 02 05 07 00 00 00", false, "3003020507", "020507", kOverrun, "-"},  // child runs past its parent
      {"30 02 02 84", false, "30020284", "0284", kOverrun, "-"},        // child length octets cut off
      {"30 03 02 01", true, "-", "-", kOverrun, "-"},  // a lenient parent past the string: the child is cut
      {"30 05 02 81 02 AA BB", false, "3005028102AABB", "028102AABB", 2, "028102AABB"},  // long form, DER-lax
  };
  for (const auto& [der, lenient, element, content, childTag, childElement] : cases) {
    SCOPED_TRACE(der);
    const testutil::Bytes bytes = testutil::hex(der);
    CvelString s;
    ASSERT_EQ(s.setView(bytes.data(), bytes.size()), kCvelOk);
    CvelA1Context parent;
    parent.setLenient(lenient);
    ASSERT_EQ(parent.next(s), 0x30);
    CvelString view = testutil::hexString("FF");  // a refused view must not leave this behind
    EXPECT_EQ(parent.elementView(s, view) ? testutil::toHex(view) : "-" + testutil::toHex(view),
              element == "-" ? "-" : testutil::toHex(testutil::hex(element)));
    EXPECT_EQ(parent.contentView(s, view) ? testutil::toHex(view) : "-" + testutil::toHex(view), content);
    CvelA1Context child;
    ASSERT_EQ(parent.firstChild(s, child), childTag);
    if (childElement != "-") {
      ASSERT_TRUE(child.elementView(s, view));
      EXPECT_EQ(testutil::toHex(view), childElement);
    }
  }
}

}  // namespace
