#include "asn1/cvel_a1_output.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

TEST(CvelA1OutputString, PassesTheAppendResultBack) {
  CvelString target;
  ASSERT_EQ(target.assign("0123"), kCvelOk);
  target.truncate(2);  // room for two more bytes behind the content
  CvelA1OutputString sink(&target);
  uint32_t written = 0;
  // The bytes fit the block: the in-place append result comes back, deliberately, and written is not set.
  EXPECT_EQ(sink.write("ab", 2, &written), kCvelAppendedInPlace);
  EXPECT_EQ(written, 0u);
  // A part of a string: 0xFFFFFFFF means to the end, a larger count is clipped, an offset past the end is
  // refused. The target is full from here on, so every write grows it and succeeds.
  CvelString source;
  testutil::assignHex(source, "31 32 33 34 35");
  for (auto [offset, count] : {std::pair<uint32_t, uint32_t>{1, 2}, {3, 0xFFFFFFFF}, {4, 100}})
    ASSERT_EQ(write(sink, source, offset, count), kCvelOk);
  EXPECT_EQ(write(sink, source, 6, 1), kCvelErrBadParameter);
  EXPECT_EQ(std::string(target.c_str()), "01ab23455");
}

}  // namespace
