#include "asn1/cvel_a1_output.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_util.h"

namespace {

using testutil::toHex;

TEST(CvelA1OutputString, PassesTheAppendResultBack) {
  CvelString target;
  ASSERT_EQ(target.assign("0123456789"), kCvelOk);
  target.truncate(2);  // spare room behind the content
  CvelA1OutputString sink(&target);
  uint32_t written = 0;
  // The bytes fit the existing block: the in-place append result comes back, and written stays untouched.
  EXPECT_EQ(sink.write("ab", 2, &written), kCvelAppendedInPlace);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(std::string(target.c_str(), target.length()), "01ab");
  // A full target grows: success, and written is set.
  CvelString full;
  CvelA1OutputString fullSink(&full);
  ASSERT_EQ(fullSink.write("xyz", 3, &written), kCvelOk);
  EXPECT_EQ(written, 3u);
  ASSERT_EQ(fullSink.write("w", 1, nullptr), kCvelOk);
  EXPECT_EQ(std::string(full.c_str(), full.length()), "xyzw");
  EXPECT_EQ(fullSink.write(nullptr, 1, &written), kCvelErrBadParameter);
  uint32_t size = 0;
  ASSERT_EQ(fullSink.getSize(&size), kCvelOk);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(fullSink.getSize(nullptr), kCvelErrBadParameter);
  EXPECT_TRUE(fullSink.isOpen());
  EXPECT_TRUE(fullSink.name().isEmpty());
}

TEST(CvelA1OutputString, WritesAPartOfAString) {
  CvelString source;
  testutil::assignHex(source, "01 02 03 04 05");
  CvelString target;
  CvelA1OutputString sink(&target);
  ASSERT_EQ(write(sink, source, 1, 2), kCvelOk);
  EXPECT_EQ(toHex(target), "0203");
  ASSERT_EQ(write(sink, source, 3, 0xFFFFFFFF), kCvelOk);  // to the end of the source
  EXPECT_EQ(toHex(target), "02030405");
  ASSERT_EQ(write(sink, source, 4, 100), kCvelOk);  // clipped to what the source holds
  EXPECT_EQ(toHex(target), "0203040505");
  EXPECT_EQ(write(sink, source, 6, 1), kCvelErrBadParameter);
  EXPECT_EQ(toHex(target), "0203040505");
}

}  // namespace
