#include "asn1/cvel_a1_input.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_util.h"

namespace {

CvelString bytesOf(const std::string& hexText) {
  CvelString s;
  testutil::assignHex(s, hexText);
  return s;
}

TEST(CvelA1InputString, SizeIsTheSmallerOfSourceAndMaximum) {
  CvelString s = bytesOf("01 02 03 04 05");
  CvelA1InputString whole(s, 0, 0xFFFFFFFF);
  EXPECT_EQ(whole.size(), 5u);
  CvelA1InputString part(s, 1, 3);
  EXPECT_EQ(part.size(), 3u);
  uint32_t at = 0;
  ASSERT_EQ(part.tell(&at), kCvelOk);
  EXPECT_EQ(at, 1u);
  unsigned char buffer[8] = {};
  uint32_t got = 0;
  ASSERT_EQ(part.read(buffer, 8, &got), kCvelOk);  // a short read is a success
  EXPECT_EQ(got, 2u);                              // only up to the size of 3
  EXPECT_EQ(buffer[0], 0x02);
  EXPECT_EQ(buffer[1], 0x03);
  EXPECT_FALSE(part.hasMore());
  EXPECT_TRUE(part.name().isEmpty());
}

TEST(CvelA1InputString, SeekFromEachOrigin) {
  CvelString s = bytesOf("AA BB CC");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  uint32_t at = 0;
  // From the start: past the size is refused, but the position is still taken.
  EXPECT_EQ(in.seek(5, CvelA1Input::kFromStart), kCvelErrBadParameter);
  EXPECT_FALSE(in.hasMore());
  EXPECT_EQ(in.tell(&at), kCvelErrMalformed);
  EXPECT_EQ(in.seek(3, CvelA1Input::kFromStart), kCvelOk);  // the end itself is a valid position
  EXPECT_FALSE(in.hasMore());
  ASSERT_EQ(in.seek(1, CvelA1Input::kFromStart), kCvelOk);
  ASSERT_EQ(in.tell(&at), kCvelOk);
  EXPECT_EQ(at, 1u);
  // Relative: clamped to the size when it goes past.
  ASSERT_EQ(in.seek(1, CvelA1Input::kFromCurrent), kCvelOk);
  ASSERT_EQ(in.tell(&at), kCvelOk);
  EXPECT_EQ(at, 2u);
  EXPECT_EQ(in.seek(10, CvelA1Input::kFromCurrent), kCvelErrBadParameter);
  EXPECT_FALSE(in.hasMore());
  ASSERT_EQ(in.seek(-3, CvelA1Input::kFromCurrent), kCvelOk);
  ASSERT_EQ(in.tell(nullptr), kCvelOk);
  // From the end: only offset 0 is accepted; the position goes to the end either way.
  EXPECT_EQ(in.seek(0, CvelA1Input::kFromEnd), kCvelOk);
  EXPECT_FALSE(in.hasMore());
  ASSERT_EQ(in.seek(0, CvelA1Input::kFromStart), kCvelOk);
  EXPECT_EQ(in.seek(-1, CvelA1Input::kFromEnd), kCvelErrBadParameter);
  EXPECT_FALSE(in.hasMore());
  EXPECT_EQ(in.seek(0, 7), kCvelErrBadParameter);
}

TEST(CvelA1InputString, ReadsNeverPassTheEnd) {
  CvelString s = bytesOf("10 20");
  CvelA1InputString in(s, 0, 0xFFFFFFFF);
  EXPECT_EQ(in.read(nullptr, 1, nullptr), kCvelErrBadParameter);
  ASSERT_EQ(in.seek(100, CvelA1Input::kFromStart), kCvelErrBadParameter);
  unsigned char b = 0x5A;
  uint32_t got = 9;
  ASSERT_EQ(in.read(&b, 1, &got), kCvelOk);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(b, 0x5A);
  // A start beyond the source leaves nothing to read.
  CvelA1InputString beyond(s, 7, 0xFFFFFFFF);
  EXPECT_FALSE(beyond.hasMore());
  ASSERT_EQ(beyond.read(&b, 1, &got), kCvelOk);
  EXPECT_EQ(got, 0u);
  // An empty source has no data at all.
  CvelString empty;
  CvelA1InputString none(empty, 0, 0xFFFFFFFF);
  EXPECT_FALSE(none.hasMore());
  ASSERT_EQ(none.read(&b, 1, &got), kCvelOk);
  EXPECT_EQ(got, 0u);
}

}  // namespace
