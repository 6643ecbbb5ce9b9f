#include "asn1/cvel_a1_integer.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

TEST(CvelA1Integer, EncodesTheFewestOctetsWithoutASignOctet) {
  const std::pair<uint32_t, const char*> cases[] = {
      {0, "020100"},         {127, "02017F"},           {128, "020180"},  // 128: no leading zero, deliberately
      {255, "0201FF"},       {256, "02020100"},         {65535, "0202FFFF"},
      {65536, "0203010000"}, {16777215, "0203FFFFFF"},  {16777216, "020401000000"}, {0xFFFFFFFF, "0204FFFFFFFF"}};
  CvelString out;
  for (const auto& [value, der] : cases) {
    CvelA1Integer i(value);
    const int64_t predicted = i.encodedSize();
    ASSERT_EQ(i.encode(out), kCvelOk);
    EXPECT_EQ(toHex(out), der);
    EXPECT_EQ(predicted, static_cast<int64_t>(out.length())) << value;
    EXPECT_EQ(toHex(i.bytes()), toHex(out).substr(4)) << value;  // the content just written is kept
  }
}

TEST(CvelA1Integer, HeldOctetsGoBehindOneLengthOctetWhileTheSizeFollowsDer) {
  // Count of held octets, the length octet written, and the size by the DER rules (1 + length octets + n):
  // above 127 octets the single octet is the count's low eight bits, deliberately, and the element is
  // shorter than the size says.
  const std::tuple<uint32_t, const char*, int64_t> cases[] = {
      {5, "05", 7}, {127, "7F", 129}, {128, "80", 131}, {255, "FF", 258}, {300, "2C", 304}};
  const testutil::Bytes octets(300, 0x81);
  CvelString out;
  for (const auto& [n, lengthOctet, size] : cases) {
    CvelA1Integer big;
    ASSERT_EQ(big.setBytes(octets.data(), n), kCvelOk);
    EXPECT_EQ(big.encodedSize(), size) << n;
    ASSERT_EQ(big.encode(out), kCvelOk) << n;
    std::string content;
    for (uint32_t i = 0; i < n; ++i) content += "81";
    EXPECT_EQ(toHex(out), std::string("02") + lengthOctet + content) << n;
  }
}

TEST(CvelA1Integer, WriteGivesEncodesBytesAndLeavesTheIntegerAsItWas) {
  // Encoders that size first write the INTEGER into their own buffer: the same octets as encode, held
  // octets behind one length octet included (300 gives 2C), and nothing kept afterwards.
  const testutil::Bytes octets(300, 0x81);
  std::string held300 = "022C";
  for (int i = 0; i < 300; ++i) held300 += "81";
  const std::tuple<uint32_t, uint32_t, std::string> cases[] = {
      {0, 0, "020100"}, {128, 0, "020180"}, {0x12345678, 0, "020412345678"}, {7, 3, "0203818181"},
      {7, 300, held300}};
  for (const auto& [value, held, der] : cases) {
    CvelA1Integer i(value);
    if (held != 0) {
      ASSERT_EQ(i.setBytes(octets.data(), held), kCvelOk);
    }
    testutil::Bytes buffer(i.writtenSize());
    CvelA1Writer w(buffer.data(), buffer.size());
    i.write(w);
    EXPECT_TRUE(w.complete()) << value << " " << held;
    EXPECT_EQ(toHex(buffer), der) << value << " " << held;
    EXPECT_EQ(i.bytes().length(), held) << value;  // write keeps nothing, unlike encode
  }
}

TEST(CvelA1Integer, DecodesUpToFourOctetsUnsigned) {
  // DER, result, value, octets held: no sign extension; five octets with a leading zero set both.
  const std::tuple<const char*, CvelResult, uint32_t, const char*> cases[] = {
      {"02 02 FF 01", kCvelOk, 0xFF01, ""}, {"02 05 00 FF FF FF FF", kCvelOk, 0xFFFFFFFF, "00FFFFFFFF"},
      {"02 05 01 02 03 04 05", kCvelOk, 7, "0102030405"}, {"04 01 05", kCvelErrMalformed, 7, ""},
      {"02 00", kCvelErrBadParameter, 7, ""}, {"02 04 01 02", kCvelErrMalformed, 7, ""},
      {"", kCvelErrMalformed, 7, ""}};
  for (const auto& [hexText, result, value, bytes] : cases) {
    CvelString der;
    testutil::assignHex(der, hexText);
    CvelA1Integer i(7);
    EXPECT_EQ(i.decode(der, nullptr), result) << hexText;
    EXPECT_EQ(i.value(), value) << hexText;
    EXPECT_EQ(toHex(i.bytes()), bytes) << hexText;
  }
}

TEST(CvelA1Integer, TheStreamFormKeepsFiveOctetsWithValueZero) {
  // Whatever the leading octet.
  CvelString der;
  testutil::assignHex(der, "02 05 00 FF FF FF FF");
  CvelA1InputString in(der, 0, 0xFFFFFFFF);
  CvelA1StreamCursor cursor;
  ASSERT_EQ(cursor.next(in), kCvelOk);
  CvelA1Integer i;
  ASSERT_EQ(i.decode(in, cursor), kCvelOk);
  EXPECT_EQ(i.value(), 0u);
  EXPECT_EQ(toHex(i.bytes()), "00FFFFFFFF");
}

}  // namespace
