#include "asn1/cvel_a1_stream_cursor.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

TEST(CvelA1StreamCursor, ReadsOneElementOrRefusesIt) {
  // DER, limit, tag, header length, content length, indefinite.
  const std::tuple<std::string, uint32_t, uint32_t, uint32_t, uint32_t, bool> cases[] = {
      {"30 03 02 01 05", 0, 0x30, 2, 3, false},
      {"00 00 FF", 0, 0, 2, 0, false},  // end-of-contents is one element of two bytes
      {"FF 04", 0, 0xFF, 1, 0, false},
      {"04 85" + std::string(266, '2'), 0, 4, 2, 133, false},     // 0x85 is a short length here too
      {"9F 1F" + std::string(62, '0'), 0, 0x9F, 2, 0x1F, false},  // high tag numbers are not gathered
      {"30 80 02 01 05 00 00 AA", 7, 0x30, 2, 5, true}};          // an indefinite length runs to the limit
  CvelString s;
  for (const auto& [der, limit, tag, header, length, indefinite] : cases) {
    testutil::assignHex(s, der);
    CvelA1InputString in(s, 0, 0xFFFFFFFF);
    CvelA1StreamCursor c;
    c.setLimit(limit);
    ASSERT_EQ(c.next(in), kCvelOk) << der;
    EXPECT_EQ(std::make_tuple(c.tag(), c.headerLength(), c.contentLength(), c.indefinite()),
              std::make_tuple(tag, header, length, indefinite)) << der;
  }
  // Missing length octets, a length past the end (one wrapping in 32 bits), a lone or a bad end-of-contents
  // octet: refused, and the position stays.
  for (const char* der : {"30", "30 82 01", "30 84 00 00", "04 84 FF FF FF FA 00", "30 05 02 01 05", "00", "00 01"}) {
    testutil::assignHex(s, der);
    CvelA1InputString in(s, 0, 0xFFFFFFFF);
    CvelA1StreamCursor c;
    EXPECT_EQ(c.next(in), kCvelErrMalformed) << der;
    EXPECT_EQ(c.position(), 0u) << der;
  }
}

TEST(CvelA1StreamCursor, DescendsAndCopiesWithinTheSource) {
  CvelString s;
  testutil::assignHex(s, "31 06 04 01 AA 04 01 BB");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor c;
  ASSERT_EQ(c.next(in), kCvelOk);
  c.setPosition(c.start());  // back at the start: descend steps over the header length
  ASSERT_EQ(c.descend(in), kCvelOk);
  ASSERT_EQ(c.next(in), kCvelOk);
  CvelString out;
  ASSERT_EQ(c.getElement(in, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0401BB");
  EXPECT_EQ(c.next(in), kCvelErrEndOfData);
  EXPECT_EQ(c.reset(in), kCvelErrMalformed);  // the source is used up: no start to take
  // A lenient element claiming 4 GiB is copied only as far as the source goes.
  testutil::assignHex(s, "04 84 FF FF FF FF 01 02 03");
  CvelA1InputString hugeIn(s, 0, 0xFFFFFFFF);
  CvelA1StreamCursor lenient;
  lenient.setLenient(true);
  ASSERT_EQ(lenient.next(hugeIn), kCvelOk);
  ASSERT_EQ(lenient.getContent(hugeIn, out), kCvelOk);
  EXPECT_EQ(toHex(out), "010203");
}

TEST(CvelA1InputString, SeeksAndReadsNeverPassTheWindow) {
  CvelString s;
  testutil::assignHex(s, "01 02 03 04 05");
  CvelA1InputString in(s, 1, 3);  // from byte 1 in a window of three bytes
  unsigned char buffer[8] = {};
  uint32_t got = 0;
  ASSERT_EQ(in.read(buffer, 8, &got), kCvelOk);  // a short read is a success
  EXPECT_EQ(toHex(testutil::Bytes(buffer, buffer + got)), "0203");
  // Past the size from the start: refused, yet the position is taken. Relative moves are clamped. From the
  // end only 0 is accepted, and the position goes to the end either way. Each seek is followed by a read.
  const std::tuple<int64_t, int, CvelResult, uint32_t> cases[] = {
      {5, 0, kCvelErrBadParameter, 0},  {1, 0, kCvelOk, 2}, {10, 1, kCvelErrBadParameter, 0}, {-3, 1, kCvelOk, 3},
      {-4, 1, kCvelErrBadParameter, 3}, {-1, 2, kCvelErrBadParameter, 0}, {0, 7, kCvelErrBadParameter, 0}};
  for (const auto& [offset, whence, result, readable] : cases) {
    EXPECT_EQ(in.seek(offset, whence), result) << offset << " from " << whence;
    EXPECT_EQ(in.tell(nullptr) == kCvelOk, readable != 0) << offset << " from " << whence;
    ASSERT_EQ(in.read(buffer, 8, &got), kCvelOk);
    EXPECT_EQ(got, readable) << offset << " from " << whence;
  }
}

}  // namespace
