#include "asn1/cvel_a1_size.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using testutil::toHex;

TEST(CvelA1Size, LengthOctetsAtEveryBoundary) {
  // Short form below 128, then 0x80 | count and the size big-endian without leading zeros. The writer goes on
  // to eight length octets, more than the readers accept.
  const std::pair<uint64_t, const char*> cases[] = {
      {0, "00"},           {127, "7F"},           {128, "8180"},           {255, "81FF"},
      {256, "820100"},     {65535, "82FFFF"},     {65536, "83010000"},     {16777216, "8401000000"},
      {0xFFFFFFFF, "84FFFFFFFF"},                 {0x100000000, "850100000000"},
      {0x1000000000000, "8701000000000000"},      {0xFFFFFFFFFFFFFFFF, "88FFFFFFFFFFFFFFFF"}};
  CvelString out;
  for (const auto& [n, octets] : cases) {
    ASSERT_EQ(encodeLength(n, out), kCvelOk);
    EXPECT_EQ(toHex(out), octets);
    EXPECT_EQ(cvelLengthOfLength(n), out.length()) << n;
  }
  // A negative size stays negative in every sum and is written as one octet of its low seven bits.
  CvelA1Size size;
  size.addElement(200);
  EXPECT_EQ(size.size(), 203);
  size.add(-1);
  size.add(10);
  ASSERT_EQ(size.encodeLength(out), kCvelOk);
  EXPECT_EQ(toHex(out), "7F");
}

TEST(CvelA1Size, WrapWritesOnceAtTheFinalSize) {
  CvelString content;
  CvelString out;
  ASSERT_EQ(wrap(content, 0x04, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0400");
  ASSERT_EQ(wrap(content, 0x03, out), kCvelOk);  // BIT STRING: a zero unused-bits octet, counted
  EXPECT_EQ(toHex(out), "030100");
  testutil::assignHex(content, "AA BB");
  ASSERT_EQ(wrap(content, 0x30, content), kCvelOk);  // the output may be the content itself
  EXPECT_EQ(toHex(content), "3002AABB");
  EXPECT_EQ(content.capacity(), 5u);
  unsigned char buffer[4] = {};
  CvelA1Writer w(buffer, sizeof buffer);
  w.header(0x04, 2);
  w.bytes("\x11\x22\x33", 3);  // one byte too many: nothing is written
  EXPECT_FALSE(w.ok());
  EXPECT_EQ(buffer[2], 0);
  // A BIT STRING of 127 octets crosses into the long form with its unused-bits octet: 03 81 80 00 ...
  const testutil::Bytes bytes(127, 0x5A);
  ASSERT_EQ(wrap(bytes.data(), 127, 0x03, out), kCvelOk);
  EXPECT_EQ(toHex(out), "03818000" + toHex(bytes));
}

}  // namespace
