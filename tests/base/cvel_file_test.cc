#include "base/cvel_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "scratch_dir.h"

namespace {

bool exists(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

std::string contentOf(const std::string& path) {
  std::string text;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) text.append(chunk, n);
    std::fclose(f);
  }
  return text;
}

class CvelFileTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dir_.ok()); }
  ScratchDir dir_;
};

TEST_F(CvelFileTest, TimesAndSize) {
  const std::string path = dir_.write("f", std::string(12345, 'x'));
  const timespec times[2] = {{1000000000, 123456789}, {1700000000, 999999999}};  // access, modification
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  CvelFileTime change{}, access{}, modification{};
  ASSERT_EQ(fileTimes(path.c_str(), &change, &access, &modification), kCvelOk);
  EXPECT_EQ(access.seconds, 1000000000);
  EXPECT_EQ(access.subSecond, 123456);  // microseconds, cut
  EXPECT_EQ(modification.seconds, 1700000000);
  EXPECT_EQ(modification.subSecond, 999999);
  EXPECT_GT(change.seconds, 1700000000);
  uint64_t size = 0;
  ASSERT_EQ(fileSize(path.c_str(), size), kCvelOk);
  EXPECT_EQ(size, 12345u);

  const std::string none = dir_.file("none");
  EXPECT_EQ(fileTimes(none.c_str(), &change, nullptr, &modification), kCvelErrMalformed);
  EXPECT_EQ(change.seconds, 0);
  EXPECT_EQ(modification.subSecond, 0);
  EXPECT_EQ(fileSize(none.c_str(), size), kCvelErrMalformed);
  EXPECT_EQ(fileTimes(nullptr, nullptr, nullptr, nullptr), kCvelErrBadParameter);
}

TEST_F(CvelFileTest, RenameReplacesAndCopyCrossesChunks) {
  std::string data;
  for (uint32_t i = 0; i < 3 * kCvelCopyChunk + 5; ++i) data.push_back(static_cast<char>(i * 7 + i / 251));
  const std::string source = dir_.write("source", data);
  const std::string copy = dir_.write("copy", "longer old content that must not survive the copy" + data);
  ASSERT_EQ(copyFile(source.c_str(), copy.c_str()), kCvelOk);
  EXPECT_EQ(contentOf(copy), data);
  EXPECT_EQ(copyFile(source.c_str(), "/dev/full"), kCvelErrMalformed);  // the write falls short
  EXPECT_EQ(copyFile(dir_.file("none").c_str(), copy.c_str()), kCvelErrMalformed);
  EXPECT_EQ(copyFile(dir_.path().c_str(), copy.c_str()), kCvelErrMalformed);  // reading a directory fails

  const std::string target = dir_.write("target", "old");
  ASSERT_EQ(renameFile(source.c_str(), target.c_str()), kCvelOk);
  EXPECT_FALSE(exists(source));
  EXPECT_EQ(contentOf(target), data);
  EXPECT_EQ(renameFile(source.c_str(), target.c_str()), kCvelErrMalformed);
  EXPECT_EQ(renameFile(nullptr, target.c_str()), kCvelErrBadParameter);
}

TEST_F(CvelFileTest, RemovePath) {
  ASSERT_EQ(::mkdir(dir_.file("empty").c_str(), 0700), 0);
  ASSERT_EQ(::mkdir(dir_.file("full").c_str(), 0700), 0);
  dir_.write("full/f", "x");
  dir_.write("file", "x");
  ASSERT_EQ(::symlink(dir_.file("empty").c_str(), dir_.file("link").c_str()), 0);
  const std::pair<std::string, CvelResult> cases[] = {
      {dir_.file("none"), kCvelErrNoSuchFile}, {dir_.file("empty"), kCvelOk},
      {dir_.file("file"), kCvelOk},            {dir_.file("full"), kCvelErrMalformed},
      {dir_.file("link"), kCvelOk},            {"", kCvelErrBadParameter}};
  for (const auto& [path, expected] : cases) {
    EXPECT_EQ(removePath(path.c_str()), expected) << path;
    if (expected == kCvelOk) {
      EXPECT_FALSE(exists(path)) << path;
    }
  }
  EXPECT_TRUE(exists(dir_.file("full/f")));
}

TEST_F(CvelFileTest, OpenModes) {
  const std::string path = dir_.write("f", "abc");
  struct Case {
    uint32_t mode;
    uint32_t flags;
    const char* writes;
    const char* content;
  };
  const Case cases[] = {{kCvelOpenWrite, 0, "x", "x"},
                        {kCvelOpenWrite, kCvelOpenAppend, "yz", "xyz"},
                        {kCvelOpenReadWrite, 0, "A", "Ayz"},
                        {kCvelOpenReadWrite, kCvelOpenAppend, "B", "AyzB"},
                        {kCvelOpenRead, 0, "C", "AyzB"}};
  for (const auto& c : cases) {
    CvelFile file;
    ASSERT_EQ(openFile(path.c_str(), c.mode, c.flags, file), kCvelOk);
    std::fputs(c.writes, file.stream());
    EXPECT_EQ(file.close(), kCvelOk);
    EXPECT_EQ(contentOf(path), c.content) << c.mode << "/" << c.flags;
  }
  CvelFile file;
  EXPECT_EQ(openFile(path.c_str(), 4, 0, file), kCvelErrBadParameter);
  EXPECT_EQ(openFile(path.c_str(), 0, 0, file), kCvelErrBadParameter);
  EXPECT_EQ(openFile(dir_.file("none").c_str(), kCvelOpenRead, 0, file), kCvelErrNoSuchFile);
  EXPECT_EQ(openFile(dir_.file("none").c_str(), kCvelOpenReadWrite, 0, file), kCvelErrNoSuchFile);
  EXPECT_EQ(openFile(dir_.path().c_str(), kCvelOpenWrite, 0, file), kCvelErrMalformed);
  EXPECT_FALSE(file.isOpen());
}

TEST_F(CvelFileTest, TemporaryFiles) {
  std::string name;
  ASSERT_EQ(makeTempName(name), kCvelOk);
  EXPECT_EQ(name.size(), 14u);
  EXPECT_EQ(name.rfind("/tmp/vel", 0), 0u);
  EXPECT_FALSE(exists(name));

  const std::string prefix = dir_.file("t_");
  std::string kept;
  {
    CvelFile file;
    ASSERT_EQ(createTempFile(file, prefix.c_str(), false), kCvelOk);
    kept = file.path();
    EXPECT_EQ(kept.size(), prefix.size() + 6);
    EXPECT_TRUE(exists(kept));
    EXPECT_TRUE(file.deleteOnClose());
    // "rb+": written, then read back through the same stream.
    std::fputs("data", file.stream());
    std::rewind(file.stream());
    char back[5] = {};
    EXPECT_EQ(std::fread(back, 1, 4, file.stream()), 4u);
    EXPECT_STREQ(back, "data");
  }
  EXPECT_FALSE(exists(kept));  // gone with the object

  CvelFile anonymous;
  ASSERT_EQ(createTempFile(anonymous, prefix.c_str(), true), kCvelOk);
  EXPECT_FALSE(exists(anonymous.path()));
  EXPECT_EQ(std::fputs("still usable", anonymous.stream()), 1);
  EXPECT_EQ(anonymous.close(), kCvelOk);

  CvelFile defaulted;
  ASSERT_EQ(createTempFile(defaulted, nullptr, false), kCvelOk);
  EXPECT_EQ(defaulted.path().rfind("/tmp/vel", 0), 0u);
  EXPECT_EQ(defaulted.close(), kCvelOk);
  EXPECT_FALSE(exists(defaulted.path()));

  // At 1017 characters the name reaches mkstemp (and fails there: its last part is too long for the file
  // system); at 1018 it is refused before the file system is touched.
  CvelFile tooLong;
  const std::string base = dir_.path() + "/";
  EXPECT_EQ(createTempFile(tooLong, (base + std::string(kCvelMaxTempPrefix - base.size(), 'p')).c_str(), false),
            kCvelErrMalformed);
  EXPECT_EQ(createTempFile(tooLong, (base + std::string(kCvelMaxTempPrefix + 1 - base.size(), 'p')).c_str(), false),
            kCvelErrTooLong);
  EXPECT_FALSE(tooLong.isOpen());
}

}  // namespace
