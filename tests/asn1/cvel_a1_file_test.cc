#include "asn1/cvel_a1_file.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_output.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_string.h"
#include "base/scratch_dir.h"
#include "support/test_util.h"

namespace {

namespace fs = std::filesystem;

// One step of a walk: result, tag, header and content position, flags, and the bytes of a primitive element.
using Step = std::tuple<CvelResult, uint32_t, uint32_t, uint32_t, uint32_t, bool, bool, testutil::Bytes>;

// Every element in document order: into constructed elements, on behind primitive ones.
std::vector<Step> walk(CvelA1Input& in) {
  std::vector<Step> steps;
  CvelA1StreamCursor c;
  CvelResult r = c.next(in);
  while (r == kCvelOk && steps.size() < 1000000) {
    CvelString element;
    const bool constructed = (c.tag() & 0x20) != 0;
    if (!constructed) {
      EXPECT_EQ(c.getElement(in, element), kCvelOk);
    }
    steps.emplace_back(r, c.tag(), c.headerLength(), c.contentOffset(), c.contentLength(), c.moreFollows(),
                       c.indefinite(), testutil::toBytes(element));
    const uint32_t behind = c.position();
    if (constructed && c.contentLength() != 0 && c.descend(in) == kCvelOk) continue;
    c.setPosition(behind);
    r = c.next(in);
  }
  steps.emplace_back(r, c.tag(), 0, 0, 0, false, false, testutil::Bytes());
  return steps;
}

// Real DER files: everything under the folders that starts with a SEQUENCE.
std::vector<fs::path> derFiles() {
  std::vector<fs::path> folders = {KOLVARI_TEST_DATA};
  for (const char* corpora : {KOLVARI_TEST_DATA "/../../../shared/corpora", "/work/shared/corpora"}) {
    std::error_code ec;
    if (fs::is_directory(corpora, ec)) {
      folders.emplace_back(corpora);
      break;
    }
  }
  std::vector<fs::path> files;
  for (const fs::path& folder : folders) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (!entry.is_regular_file()) continue;
      const testutil::Bytes head = testutil::readFile(entry.path());
      if (!head.empty() && head[0] == 0x30) files.push_back(entry.path());
    }
  }
  return files;
}

TEST(CvelA1File, FilesGiveTheSameBytesAndElementsAsMemory) {
  const std::vector<fs::path> files = derFiles();
  ASSERT_GE(files.size(), 20u);
  ScratchDir dir;
  const std::string copy = dir.file("copy.der");
  for (const fs::path& path : files) {
    SCOPED_TRACE(path.string());
    CvelString der;
    const testutil::Bytes bytes = testutil::readFile(path);
    ASSERT_EQ(der.assign(bytes.data(), static_cast<uint32_t>(bytes.size())), kCvelOk);
    {
      // Written in two parts through the file sink, which counts what it has written.
      CvelA1OutputFile sink(copy.c_str());
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
    CvelA1InputString memory(der, 0, 0xFFFFFFFF);
    const std::vector<Step> fromMemory = walk(memory);
    EXPECT_GT(fromMemory.size(), 2u);
    EXPECT_TRUE(walk(file.input()) == fromMemory);
  }
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
  EXPECT_DEATH(
      {
        dup2(2, 1);
        integer.decode(file);
      },
      "^\\[TRACE\\] CvelA1Integer::decode\\(CvelA1File\\)\n$");
}

}  // namespace
