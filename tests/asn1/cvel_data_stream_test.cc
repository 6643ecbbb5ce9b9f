#include "asn1/cvel_data_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "asn1/cvel_string.h"
#include "base/scratch_dir.h"
#include "support/test_util.h"

namespace {

TEST(CvelDataStream, BufferReadsStopAtTheLimitAndWritesMoveIt) {
  CvelString buffer = testutil::hexString("01 02 03 04 05");
  CvelDataStream stream(&buffer);
  unsigned char got[8] = {};
  uint32_t count = 99;
  // Seek, then read up to 8 bytes: positions past the readable part are refused and change nothing.
  const std::tuple<int64_t, int, CvelResult, uint32_t> cases[] = {
      {3, CvelDataStream::kFromStart, kCvelOk, 2}, {-1, CvelDataStream::kFromEnd, kCvelOk, 1},
      {6, CvelDataStream::kFromStart, kCvelErrBadParameter, 0},
      {-1, CvelDataStream::kFromStart, kCvelErrBadParameter, 0},
      {-2, CvelDataStream::kFromCurrent, kCvelOk, 2}, {0, 9, kCvelErrBadParameter, 0}};
  for (const auto& [offset, whence, result, readable] : cases) {
    EXPECT_EQ(stream.seek(offset, whence), result) << offset << " from " << whence;
    ASSERT_EQ(stream.read(got, sizeof got, &count), kCvelOk);
    EXPECT_EQ(count, readable) << offset << " from " << whence;
  }
  // A write appends to the buffer and leaves position and limit at its new end: nothing more to read.
  ASSERT_EQ(stream.write("\x06\x07", 2, &count), kCvelOk);
  EXPECT_EQ(std::make_tuple(count, testutil::toHex(buffer)), std::make_tuple(2u, "01020304050607"));
  ASSERT_EQ(stream.read(got, sizeof got, &count), kCvelOk);
  EXPECT_EQ(count, 0u);
  ASSERT_EQ(stream.seek(-3, CvelDataStream::kFromEnd), kCvelOk);
  ASSERT_EQ(stream.read(got, sizeof got, &count), kCvelOk);
  EXPECT_EQ(testutil::toHex(testutil::Bytes(got, got + count)), "050607");
  EXPECT_EQ(stream.close(), 0u);  // no file was open
}

TEST(CvelDataStream, OpensOnlyFilesAndRefusesWorkWithoutOne) {
  CvelDataStream stream;
  uint32_t type = 0;
  unsigned char b = 0;
  EXPECT_EQ(stream.detectType(&type), kCvelErrBadParameter);  // neither file nor buffer
  EXPECT_EQ(stream.read(&b, 1, nullptr), kCvelErrMalformed);
  EXPECT_EQ(stream.write(&b, 1, nullptr), kCvelErrMalformed);
  const std::string license = testutil::dataPath("asn1crypto/LICENSE");
  EXPECT_EQ(stream.open(license.c_str(), 3), kCvelErrBadParameter);
  EXPECT_EQ(stream.open(testutil::dataPath("no-such-file").c_str(), CvelDataStream::kRead), kCvelErrIncomplete);
  // A directory is refused at once, deliberately, although fopen takes it for reading.
  EXPECT_EQ(stream.open(KOLVARI_TEST_DATA, CvelDataStream::kRead), kCvelErrIncomplete);
  // A failed read is reported, deliberately, not passed off as the end of the file: a stream opened for
  // writing cannot be read, and its type cannot be detected; each read is judged on its own.
  ScratchDir dir;
  ASSERT_EQ(stream.open(dir.write("w.bin", std::string(32, 'a')).c_str(), CvelDataStream::kWrite), kCvelOk);
  for (int attempt = 0; attempt < 2; ++attempt) EXPECT_EQ(stream.read(&b, 1, nullptr), kCvelErrMalformed);
  EXPECT_EQ(stream.detectType(&type), kCvelErrMalformed);
  EXPECT_EQ(type, kCvelContentUnknown);
  ASSERT_EQ(stream.open(license.c_str(), CvelDataStream::kRead), kCvelOk);
  EXPECT_EQ(stream.detectType(nullptr), kCvelErrBadParameter);
  EXPECT_EQ(stream.close(), kCvelOk);
  EXPECT_FALSE(stream.isReady());
}

}  // namespace
