#include "asn1/cvel_a1_der_writer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_util.h"

namespace {

using testutil::toHex;

// Nested elements whose lengths cross the short/long boundary, and more elements than the writer holds
// lengths for without a vector. Expected octets derived by hand from X.690 8.1.3.
TEST(CvelDerWriter, NestedLengthsComeFromTheCountingPass) {
  const std::vector<unsigned char> filler(130, 0xAB);
  CvelString out;
  ASSERT_EQ(cvelEncodeDer(out, [&](CvelDerWriter& w) {
              w.element(0x30, [&] {
                w.element(0x04, filler.data(), filler.size());  // 04 81 82 + 130 octets
                w.element(0xA0, [&] { w.byte(0x05); });         // A0 01 05
              });
            }),
            kCvelOk);
  const std::string hex = toHex(out);
  EXPECT_EQ(hex.substr(0, 12), "308188048182");  // 3 + 130 + 3 = 136 = 0x88
  EXPECT_EQ(hex.substr(hex.size() - 6), "A00105");

  std::vector<unsigned char> many;
  ASSERT_EQ(cvelEncodeDer(many, [](CvelDerWriter& w) {
              for (int i = 0; i < 40; ++i) w.element(0x31, [&] { w.element(0x05, nullptr, 0); });
            }),
            kCvelOk);
  std::string expected;
  for (int i = 0; i < 40; ++i) expected += "31020500";
  EXPECT_EQ(toHex(many), expected);
}

// An encoder that writes something else the second time is caught, and the target stays as it was.
TEST(CvelDerWriter, ASecondPassThatDiffersFails) {
  CvelString out;
  ASSERT_EQ(out.assign("keep", 4), kCvelOk);
  int pass = 0;
  EXPECT_EQ(cvelEncodeDer(out, [&](CvelDerWriter& w) {
              ++pass;
              w.element(0x30, [&] { w.bytes("abc", pass == 1 ? 3 : 2); });
            }),
            kCvelErrMalformed);
  EXPECT_EQ(toHex(out), "6B656570");
}

}  // namespace
