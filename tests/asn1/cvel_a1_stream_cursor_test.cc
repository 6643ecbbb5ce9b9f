#include "asn1/cvel_a1_stream_cursor.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

TEST(CvelA1StreamCursor, ReadsOneElementOrRefusesIt) {
  constexpr CvelResult kBad = kCvelErrMalformed;
  constexpr uint32_t kNone = CvelA1StreamCursor::kNoTag;
  // DER, lenient, limit, result, tag, header length, content length, indefinite.
  const std::tuple<std::string, bool, uint32_t, CvelResult, uint32_t, uint32_t, uint32_t, bool> cases[] = {
      {"30 03 02 01 05", false, 0, kCvelOk, 0x30, 2, 3, false},
      {"00 00 FF", false, 0, kCvelOk, 0, 2, 0, false},  // end-of-contents is one element of two bytes
      {"FF 04", false, 0, kCvelOk, 0xFF, 1, 0, false},
      {"04 85" + std::string(266, '2'), false, 0, kCvelOk, 4, 2, 133, false},     // 0x85 is a short length here too
      {"9F 1F" + std::string(62, '0'), false, 0, kCvelOk, 0x9F, 2, 0x1F, false},  // high tags are not gathered
      {"30 80 02 01 05 00 00 AA", false, 7, kCvelOk, 0x30, 2, 5, true},  // an indefinite length runs to the limit
      // Content past the end (by one byte, or wrapping in 32 bits) is refused unless read leniently; missing
      // length octets and a lone or bad end-of-contents octet are refused even then. The position stays.
      {"30 04 02 01 05", true, 0, kCvelOk, 0x30, 2, 4, false}, {"30 04 02 01 05", false, 0, kBad, kNone, 0, 0, false},
      {"04 84 FF FF FF FA 00", false, 0, kBad, kNone, 0, 0, false}, {"30", true, 0, kBad, kNone, 0, 0, false},
      {"30 82 01", true, 0, kBad, kNone, 0, 0, false}, {"30 84 00 00", true, 0, kBad, kNone, 0, 0, false},
      {"00", true, 0, kBad, kNone, 0, 0, false},       {"00 01", true, 0, kBad, kNone, 0, 0, false}};
  CvelString s;
  for (const auto& [der, lenient, limit, result, tag, header, length, indefinite] : cases) {
    testutil::assignHex(s, der);
    CvelA1InputString in(s, 0, 0xFFFFFFFF);
    CvelA1StreamCursor c;
    c.setLenient(lenient);
    c.setLimit(limit);
    EXPECT_EQ(c.next(in), result) << der;
    EXPECT_EQ(std::make_tuple(c.tag(), c.headerLength(), c.contentLength(), c.indefinite(), c.position()),
              std::make_tuple(tag, header, length, indefinite, header + length)) << der;
  }
}

TEST(CvelA1StreamCursor, DescendsAndCopiesWithinTheSource) {
  CvelString s = testutil::hexString("31 06 04 01 AA 04 01 BB 05 00");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  ASSERT_EQ(c.next(in), kCvelOk);
  ASSERT_EQ(c.next(in), kCvelOk);
  // Back at the start, descend steps over the header length of the element last read, not to its content.
  c.setPosition(c.start());
  ASSERT_EQ(c.descend(in), kCvelOk);
  ASSERT_EQ(c.next(in), kCvelOk);
  CvelString out;
  ASSERT_EQ(c.getElement(in, out), kCvelOk);
  EXPECT_EQ(testutil::toHex(out), "0401BB");
  ASSERT_EQ(c.next(in), kCvelOk);
  EXPECT_EQ(c.next(in), kCvelErrEndOfData);
  // A lenient element claiming 4 GiB is copied only as far as the source goes.
  testutil::assignHex(s, "04 84 FF FF FF FF 01 02 03");
  CvelA1InputString hugeIn(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor lenient;
  lenient.setLenient(true);
  ASSERT_EQ(lenient.next(hugeIn), kCvelOk);
  ASSERT_EQ(lenient.getContent(hugeIn, out), kCvelOk);
  EXPECT_EQ(testutil::toHex(out), "010203");
}

TEST(CvelA1InputString, SeeksAndReadsNeverPassTheWindow) {
  CvelString s = testutil::hexString("01 02 03 04 05");
  CvelA1InputString in(s, 1, 3);  // a window of three bytes, from byte 1
  // Each seek is followed by a read of one byte. Past the size from the start: refused, yet the position is
  // taken. Relative moves are clamped. From the end only 0 is accepted, and the position goes to the end anyway.
  const std::tuple<int64_t, int, CvelResult, uint32_t> cases[] = {
      {5, 0, kCvelErrBadParameter, 0}, {1, 0, kCvelOk, 1},  {-1, 2, kCvelErrBadParameter, 0}, {-3, 1, kCvelOk, 1},
      {10, 1, kCvelErrBadParameter, 0}, {-4, 1, kCvelErrBadParameter, 1}, {0, 7, kCvelErrBadParameter, 1},
      {0, 2, kCvelOk, 0}};
  for (const auto& [offset, whence, result, readable] : cases) {
    EXPECT_EQ(in.seek(offset, whence), result) << offset << " from " << whence;
    EXPECT_EQ(in.tell(nullptr) == kCvelOk, readable != 0) << offset << " from " << whence;
    unsigned char b = 0;
    uint32_t got = 9;
    ASSERT_EQ(in.read(&b, 1, &got), kCvelOk);
    EXPECT_EQ(got, readable) << offset << " from " << whence;
  }
}

}  // namespace
