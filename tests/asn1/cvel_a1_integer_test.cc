#include "asn1/cvel_a1_integer.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "asn1/cvel_a1_der_writer.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

// The octets of write, which larger encoders use, counted and then written.
std::string written(const CvelA1Integer& i) {
  CvelString out;
  EXPECT_EQ(cvelEncodeDer(out, [&i](CvelDerWriter& w) { i.write(w); }), kCvelOk);
  return toHex(out);
}

TEST(CvelA1Integer, EncodesTheFewestOctetsWithoutASignOctet) {
  const std::pair<uint32_t, const char*> cases[] = {
      {0, "020100"},         {127, "02017F"},           {128, "020180"},  // 128: no leading zero, deliberately
      {255, "0201FF"},       {256, "02020100"},         {65535, "0202FFFF"},  {0x12345678, "020412345678"},
      {65536, "0203010000"}, {16777215, "0203FFFFFF"},  {16777216, "020401000000"}, {0xFFFFFFFF, "0204FFFFFFFF"}};
  CvelString out;
  for (const auto& [value, der] : cases) {
    CvelA1Integer i(value);
    EXPECT_EQ(written(i), der) << value;
    EXPECT_TRUE(i.bytes().isEmpty()) << value;  // write keeps nothing, unlike encode
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
  // shorter than the size says. Held octets win over the value (7), in write as in encode.
  const std::tuple<uint32_t, const char*, int64_t> cases[] = {
      {3, "03", 5}, {5, "05", 7}, {127, "7F", 129}, {128, "80", 131}, {255, "FF", 258}, {300, "2C", 304}};
  const testutil::Bytes octets(300, 0x81);
  CvelString out;
  for (const auto& [n, lengthOctet, size] : cases) {
    CvelA1Integer big(7);
    ASSERT_EQ(big.setBytes(octets.data(), n), kCvelOk);
    EXPECT_EQ(big.encodedSize(), size) << n;
    const std::string expected = std::string("02") + lengthOctet + toHex(testutil::Bytes(n, 0x81));
    EXPECT_EQ(written(big), expected) << n;
    ASSERT_EQ(big.encode(out), kCvelOk) << n;
    EXPECT_EQ(toHex(out), expected) << n;
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
    CvelString der = testutil::hexString(hexText);
    CvelA1Integer i(7);
    EXPECT_EQ(i.decode(der, nullptr), result) << hexText;
    EXPECT_EQ(i.value(), value) << hexText;
    EXPECT_EQ(toHex(i.bytes()), bytes) << hexText;
  }
}

TEST(CvelA1Integer, TheStreamFormKeepsFiveOctetsWithValueZero) {
  CvelA1Integer i;  // whatever the leading octet
  ASSERT_EQ(testutil::decodeFirst(testutil::hex("02 05 00 FF FF FF FF"), i), kCvelOk);
  EXPECT_EQ(i.value(), 0u);
  EXPECT_EQ(toHex(i.bytes()), "00FFFFFFFF");
}

}  // namespace
