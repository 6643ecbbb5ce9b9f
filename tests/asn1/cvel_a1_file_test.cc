#include "asn1/cvel_a1_file.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <tuple>

#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_output.h"
#include "asn1/cvel_string.h"
#include "base/scratch_dir.h"
#include "support/test_util.h"

namespace {

// Stepping through a file and through the same bytes in memory is held to agree by fuzz_a1_file_cursor;
// here the file sink and the file source meet real DER.
TEST(CvelA1File, TheSinkWritesInPartsAndTheSourceReadsItBack) {
  const testutil::Bytes bytes = testutil::readFile(testutil::dataPath("asn1crypto/test-ec-der.crt"));
  CvelString der;
  ASSERT_EQ(der.assign(bytes.data(), static_cast<uint32_t>(bytes.size())), kCvelOk);
  ScratchDir dir;
  const std::string copy = dir.file("copy.der");
  {
    CvelA1OutputFile sink(copy.c_str());  // it counts what it has written
    ASSERT_TRUE(sink.isOpen());
    ASSERT_EQ(write(sink, der, 0, 7), kCvelOk);
    ASSERT_EQ(write(sink, der, 7, 0xFFFFFFFF), kCvelOk);
    uint32_t size = 0;
    ASSERT_EQ(sink.getSize(&size), kCvelOk);
    EXPECT_EQ(size, der.length());
  }
  EXPECT_EQ(testutil::readFile(copy.c_str()), bytes);
  CvelA1File file;
  ASSERT_EQ(file.open(copy.c_str()), kCvelOk);
  EXPECT_EQ(file.input().size(), der.length());
}

TEST(CvelA1File, MissingFilesGiveClosedSourcesAndSinks) {
  const std::string missing = testutil::dataPath("no-such-folder/file.der");
  CvelA1File file;
  EXPECT_EQ(file.open(missing.c_str()), kCvelErrIncomplete);
  EXPECT_FALSE(file.isOpen());
  CvelA1InputFile input(missing.c_str());
  unsigned char b = 0;
  EXPECT_EQ(std::make_tuple(input.size(), input.hasMore(), input.read(&b, 1, nullptr)),
            std::make_tuple(0u, false, kCvelErrBadParameter));
  CvelA1OutputFile sink(missing.c_str());
  uint32_t size = 0;
  EXPECT_FALSE(sink.isOpen());
  EXPECT_EQ(sink.write(&b, 1, nullptr), kCvelErrBadParameter);
  EXPECT_EQ(sink.getSize(&size), kCvelErrBadParameter);
}

TEST(CvelA1FileDeathTest, IntegerDecodeFromAFileStopsTheProcess) {
  CvelA1File file;
  CvelA1Integer integer;
  // The trace line goes to standard output; the death test sees standard error, so the one is sent to the other.
  EXPECT_DEATH((dup2(2, 1), integer.decode(file)), "^\\[TRACE\\] CvelA1Integer::decode\\(CvelA1File\\)\n$");
}

}  // namespace
