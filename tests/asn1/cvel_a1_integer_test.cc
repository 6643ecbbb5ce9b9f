#include "asn1/cvel_a1_integer.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

std::string encodeValue(uint32_t value) {
  CvelA1Integer i(value);
  int64_t predicted = i.encodedSize();
  CvelString out;
  EXPECT_EQ(i.encode(out), kCvelOk);
  EXPECT_EQ(predicted, static_cast<int64_t>(out.length())) << value;
  // The content octets just written are kept.
  EXPECT_EQ(toHex(i.bytes()), toHex(out).substr(4));
  return toHex(out);
}

TEST(CvelA1Integer, ValuesUseTheFewestOctetsWithoutASignOctet) {
  EXPECT_EQ(encodeValue(0), "020100");
  EXPECT_EQ(encodeValue(1), "020101");
  EXPECT_EQ(encodeValue(127), "02017F");
  EXPECT_EQ(encodeValue(128), "020180");  // no leading zero although the top bit is set
  EXPECT_EQ(encodeValue(255), "0201FF");
  EXPECT_EQ(encodeValue(256), "02020100");
  EXPECT_EQ(encodeValue(0x8000), "02028000");
  EXPECT_EQ(encodeValue(65535), "0202FFFF");
  EXPECT_EQ(encodeValue(65536), "0203010000");
  EXPECT_EQ(encodeValue(16777215), "0203FFFFFF");
  EXPECT_EQ(encodeValue(16777216), "020401000000");
  EXPECT_EQ(encodeValue(0xFFFFFFFFu), "0204FFFFFFFF");
}

TEST(CvelA1Integer, HeldOctetsAreWrittenAsTheyStand) {
  CvelA1Integer i;
  // A serial number with the leading zero the caller put there.
  testutil::Bytes serial = testutil::hex("00 BD E5 D9 A4 10 31 5C 82");
  ASSERT_EQ(i.setBytes(serial.data(), static_cast<uint32_t>(serial.size())), kCvelOk);
  EXPECT_EQ(i.encodedSize(), 11);
  CvelString out;
  ASSERT_EQ(i.encode(out), kCvelOk);
  EXPECT_EQ(toHex(out), "020900BDE5D9A410315C82");
  // 127 content octets still fit the single length octet; 128 cannot be written.
  testutil::Bytes big(127, 0x11);
  ASSERT_EQ(i.setBytes(big.data(), 127), kCvelOk);
  EXPECT_EQ(i.encodedSize(), 129);
  ASSERT_EQ(i.encode(out), kCvelOk);
  EXPECT_EQ(toHex(out).substr(0, 4), "027F");
  big.push_back(0x11);
  ASSERT_EQ(i.setBytes(big.data(), 128), kCvelOk);
  EXPECT_EQ(i.encodedSize(), -1);
  EXPECT_NE(i.encode(out), kCvelOk);
  // setValue drops the held octets.
  i.setValue(5);
  EXPECT_TRUE(i.bytes().isEmpty());
  EXPECT_EQ(i.encodedSize(), 3);
}

struct DecodeCase {
  const char* der;
  uint32_t value;
  const char* bytes;  // expected held octets
};

TEST(CvelA1Integer, DecodeTakesUpToFourOctetsUnsigned) {
  const DecodeCase cases[] = {
      {"02 01 05", 5, ""},
      {"02 02 FF 01", 0xFF01, ""},  // no sign extension
      {"02 01 80", 0x80, ""},
      {"02 04 FF FF FF FF", 0xFFFFFFFF, ""},
      {"02 05 00 FF FF FF FF", 0xFFFFFFFF, "00FFFFFFFF"},  // padded 32-bit value: value and octets
      {"02 05 01 02 03 04 05", 7, "0102030405"},           // too large: value untouched
      {"02 09 00 BD E5 D9 A4 10 31 5C 82", 7, "00BDE5D9A410315C82"},
  };
  for (const DecodeCase& c : cases) {
    CvelString der;
    testutil::assignHex(der, c.der);
    CvelA1Integer i(7);
    ASSERT_EQ(i.decode(der, nullptr), kCvelOk) << c.der;
    EXPECT_EQ(i.value(), c.value) << c.der;
    EXPECT_EQ(toHex(i.bytes()), c.bytes) << c.der;
  }
}

TEST(CvelA1Integer, DecodeRejectsOtherTagsEmptyAndTruncatedContent) {
  CvelString der;
  CvelA1Integer i(9);
  testutil::assignHex(der, "04 01 05");
  EXPECT_EQ(i.decode(der, nullptr), kCvelErrMalformed);
  testutil::assignHex(der, "02 00");
  EXPECT_EQ(i.decode(der, nullptr), kCvelErrBadParameter);
  EXPECT_EQ(i.value(), 9u);
  testutil::assignHex(der, "02 04 01 02");
  EXPECT_EQ(i.decode(der, nullptr), kCvelErrMalformed);
  testutil::assignHex(der, "02 84 FF FF FF FF 01");
  EXPECT_EQ(i.decode(der, nullptr), kCvelErrMalformed);
  der.release();
  EXPECT_EQ(i.decode(der, nullptr), kCvelErrMalformed);
}

TEST(CvelA1Integer, DecodeWithAContextReadsInsideItsElementAndLeavesItAlone) {
  // SEQUENCE { INTEGER 0x0102, INTEGER 3 }
  CvelString der;
  testutil::assignHex(der, "30 07 02 02 01 02 02 01 03");
  CvelA1Context c;
  ASSERT_EQ(c.next(der), 0x30);
  const uint32_t position = c.position();
  CvelA1Integer i;
  ASSERT_EQ(i.decode(der, &c), kCvelOk);
  EXPECT_EQ(i.value(), 0x0102u);
  EXPECT_EQ(c.position(), position);
  EXPECT_EQ(c.tag(), 0x30u);
  // decodeContent takes the content of the context's own element.
  ASSERT_EQ(c.descend(der), 0x02);
  ASSERT_EQ(c.next(der), 0x02);
  ASSERT_EQ(i.decodeContent(der, c), kCvelOk);
  EXPECT_EQ(i.value(), 3u);
}

TEST(CvelA1Integer, SerialNumberOfARealCertificate) {
  // openssl x509 -serial prints BDE5D9A410315C82 for this certificate; DER adds the sign octet 00.
  testutil::Bytes file = testutil::readFile(testutil::dataPath("asn1crypto/test-der.crt"));
  ASSERT_FALSE(file.empty());
  CvelString der;
  ASSERT_EQ(der.setView(file.data(), file.size()), kCvelOk);
  CvelA1Context c;
  ASSERT_EQ(c.next(der), 0x30);  // Certificate
  ASSERT_EQ(c.descend(der), 0x30);  // TBSCertificate
  ASSERT_EQ(c.descend(der), 0xA0);  // [0] version
  ASSERT_EQ(c.next(der), 0x02);  // serialNumber
  CvelA1Integer serial;
  ASSERT_EQ(serial.decodeContent(der, c), kCvelOk);
  EXPECT_EQ(toHex(serial.bytes()), "00BDE5D9A410315C82");
  // The version inside [0] is v3, the INTEGER 2.
  CvelA1Context version;
  ASSERT_EQ(version.next(der), 0x30);
  ASSERT_EQ(version.descend(der), 0x30);
  ASSERT_EQ(version.descend(der), 0xA0);
  CvelA1Integer v;
  ASSERT_EQ(v.decode(der, &version), kCvelOk);
  EXPECT_EQ(v.value(), 2u);
}

TEST(CvelA1Integer, DecodeFromTheStreamCursor) {
  CvelString der;
  testutil::assignHex(der, "02 03 01 00 00 02 05 00 FF FF FF FF 04 01 00");
  CvelA1InputString in(der, 0, 0xFFFFFFFF);
  CvelA1StreamCursor cursor;
  CvelA1Integer i(1);
  ASSERT_EQ(cursor.next(in), kCvelOk);
  ASSERT_EQ(i.decode(in, cursor), kCvelOk);
  EXPECT_EQ(i.value(), 65536u);
  EXPECT_TRUE(i.bytes().isEmpty());
  // Five octets: the stream form keeps the octets and sets the value to 0.
  ASSERT_EQ(cursor.next(in), kCvelOk);
  ASSERT_EQ(i.decode(in, cursor), kCvelOk);
  EXPECT_EQ(i.value(), 0u);
  EXPECT_EQ(toHex(i.bytes()), "00FFFFFFFF");
  ASSERT_EQ(cursor.next(in), kCvelOk);
  EXPECT_EQ(i.decode(in, cursor), kCvelErrMalformed);
}

}  // namespace
