#include "asn1/cvel_a1_size.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/openssl_der.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

std::string lengthOctets(uint64_t n) {
  CvelString out;
  EXPECT_EQ(encodeLength(n, out), kCvelOk);
  EXPECT_EQ(out.length(), cvelLengthOfLength(n));
  return toHex(out);
}

TEST(CvelA1Size, LengthOctetsAtEveryBoundary) {
  // Short form below 128, then 0x80 | count followed by the size big-endian without leading zeros.
  EXPECT_EQ(lengthOctets(0), "00");
  EXPECT_EQ(lengthOctets(127), "7F");
  EXPECT_EQ(lengthOctets(128), "8180");
  EXPECT_EQ(lengthOctets(255), "81FF");
  EXPECT_EQ(lengthOctets(256), "820100");
  EXPECT_EQ(lengthOctets(65535), "82FFFF");
  EXPECT_EQ(lengthOctets(65536), "83010000");
  EXPECT_EQ(lengthOctets(16777215), "83FFFFFF");
  EXPECT_EQ(lengthOctets(16777216), "8401000000");
  EXPECT_EQ(lengthOctets(0xFFFFFFFFull), "84FFFFFFFF");
  // The writer goes on to eight length octets, more than the readers accept.
  EXPECT_EQ(lengthOctets(0x100000000ull), "850100000000");
  EXPECT_EQ(lengthOctets(0xFFFFFFFFFFull), "85FFFFFFFFFF");
  EXPECT_EQ(lengthOctets(0x10000000000ull), "86010000000000");
  EXPECT_EQ(lengthOctets(0x1000000000000ull), "8701000000000000");
  EXPECT_EQ(lengthOctets(0x100000000000000ull), "880100000000000000");
  EXPECT_EQ(lengthOctets(0xFFFFFFFFFFFFFFFFull), "88FFFFFFFFFFFFFFFF");
  EXPECT_EQ(cvelTlvSize(128), 131u);
}

TEST(CvelA1Size, NegativeSizesStayNegativeAndWriteOneOctet) {
  CvelA1Size size;
  EXPECT_EQ(size.size(), 0);
  size.addElement(3);  // 1 + 1 + 3
  EXPECT_EQ(size.size(), 5);
  size.addElement(200);  // 1 + 2 + 200
  EXPECT_EQ(size.size(), 208);
  EXPECT_EQ(size.lengthOfLength(), 2u);
  size.add(-1);
  EXPECT_FALSE(size.known());
  size.add(10);
  EXPECT_LT(size.size(), 0);
  EXPECT_EQ(size.lengthOfLength(), 1u);
  CvelString out;
  ASSERT_EQ(size.encodeLength(out), kCvelOk);
  EXPECT_EQ(toHex(out), "7F");
  CvelA1Size fromString;
  CvelString s;
  testutil::assignHex(s, std::string(300, 'A'));
  ASSERT_EQ(fromString.setFromString(s), kCvelOk);
  EXPECT_EQ(fromString.size(), 150);
  ASSERT_EQ(fromString.encodeLength(out), kCvelOk);
  EXPECT_EQ(toHex(out), "8196");
}

TEST(CvelA1Size, WrapWritesTagLengthAndContent) {
  CvelString empty;
  CvelString out;
  ASSERT_EQ(wrap(empty, 0x04, out), kCvelOk);
  EXPECT_EQ(toHex(out), "0400");
  // BIT STRING: a zero unused-bits octet goes in front and is counted.
  ASSERT_EQ(wrap(empty, 0x03, out), kCvelOk);
  EXPECT_EQ(toHex(out), "030100");
  CvelString content;
  testutil::assignHex(content, "AA BB");
  ASSERT_EQ(wrap(content, 0x03, out), kCvelOk);
  EXPECT_EQ(toHex(out), "030300AABB");
  // The output may be the content itself.
  ASSERT_EQ(wrap(content, 0x30, content), kCvelOk);
  EXPECT_EQ(toHex(content), "3002AABB");
  EXPECT_EQ(out.capacity(), out.length() + 1);  // allocated once at its final size
}

TEST(CvelA1Size, WrapMatchesOpensslAroundTheLengthBoundaries) {
  if (!openssl_der::available()) GTEST_SKIP() << "openssl command not available";
  for (uint32_t n : {0u, 1u, 127u, 128u, 255u, 256u, 65535u, 65536u}) {
    std::string hexContent;
    testutil::Bytes bytes;
    for (uint32_t i = 0; i < n; ++i) {
      bytes.push_back(static_cast<unsigned char>(i * 7 + 1));
    }
    hexContent = toHex(bytes);
    for (const char* type : {"OCTETSTRING", "BITSTRING"}) {
      // openssl takes no empty hex text; an empty text in the default format is the same empty content.
      const std::string format = n == 0 ? "" : "FORMAT:HEX,";
      testutil::Bytes expected = openssl_der::genconf("asn1=" + format + type + ":" + hexContent + "\n");
      ASSERT_FALSE(expected.empty()) << type << " " << n;
      CvelString out;
      ASSERT_EQ(wrap(bytes.data(), n, std::string(type) == "BITSTRING" ? 0x03 : 0x04, out), kCvelOk);
      EXPECT_EQ(testutil::toBytes(out), expected) << type << " " << n;
    }
  }
}

TEST(CvelA1Size, WriterRefusesWhatDoesNotFit) {
  unsigned char buffer[4] = {};
  CvelA1Writer w(buffer, sizeof buffer);
  w.header(0x04, 2);
  w.byte(0x11);
  EXPECT_TRUE(w.ok());
  EXPECT_FALSE(w.complete());
  w.bytes("\x22\x33", 2);  // one byte too many: nothing is written
  EXPECT_FALSE(w.ok());
  EXPECT_EQ(buffer[3], 0);
  CvelA1Writer exact(buffer, sizeof buffer);
  exact.header(0x04, 2);
  exact.bytes("\x55\x66", 2);
  EXPECT_TRUE(exact.complete());
  EXPECT_EQ(toHex(testutil::Bytes(buffer, buffer + 4)), "04025566");
}

}  // namespace
