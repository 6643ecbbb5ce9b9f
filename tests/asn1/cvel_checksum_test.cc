// CRC-64 check values of the reflected Jones polynomial with a zero initial value.
#include <gtest/gtest.h>

#include <string>

#include "asn1/cvel_checksum.h"

namespace {

TEST(Crc64, CheckValuesAndEmptyInput) {
  EXPECT_EQ(crc64("123456789", 9), 0xE9C6D914C4B8D9CAull);
  EXPECT_EQ(crc64(std::string("123456789")), 0xE9C6D914C4B8D9CAull);
  EXPECT_EQ(crc64(nullptr, 9), 0u);
  EXPECT_EQ(crc64(std::string()), 0u);
  // A zero byte with a zero initial value leaves the register at zero: no hidden initial or final XOR.
  EXPECT_EQ(crc64("\0\0", 2), 0u);
}

}  // namespace
