#include "base/cvel_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "scratch_dir.h"

namespace {

bool exists(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
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
  EXPECT_EQ(modification.subSecond, 999999);
  EXPECT_GT(change.seconds, 1700000000);
  uint64_t size = 0;
  ASSERT_EQ(fileSize(path.c_str(), size), kCvelOk);
  EXPECT_EQ(size, 12345u);
  EXPECT_EQ(fileTimes(dir_.file("none").c_str(), &change, nullptr, nullptr), kCvelErrMalformed);
  EXPECT_EQ(change.seconds, 0);  // zeroed first
}

TEST_F(CvelFileTest, RenameReplacesAndCopyCrossesChunks) {
  std::string data;
  for (uint32_t i = 0; i < 3 * kCvelCopyChunk + 5; ++i) data.push_back(static_cast<char>(i * 7 + i / 251));
  const std::string source = dir_.write("source", data);
  const std::string copy = dir_.write("copy", "longer old content, not to survive the copy" + data);
  ASSERT_EQ(copyFile(source.c_str(), copy.c_str()), kCvelOk);
  EXPECT_EQ(dir_.read("copy"), data);
  EXPECT_EQ(copyFile(source.c_str(), "/dev/full"), kCvelErrMalformed);  // the write falls short

  ASSERT_EQ(renameFile(source.c_str(), dir_.write("target", "old").c_str()), kCvelOk);
  EXPECT_EQ(dir_.read("target"), data);
  EXPECT_EQ(renameFile(source.c_str(), copy.c_str()), kCvelErrMalformed);
}

TEST_F(CvelFileTest, RemovePath) {
  ASSERT_EQ(::mkdir(dir_.file("empty").c_str(), 0700), 0);
  ASSERT_EQ(::mkdir(dir_.file("full").c_str(), 0700), 0);
  dir_.write("full/f", "x");
  ASSERT_EQ(::symlink(dir_.file("empty").c_str(), dir_.file("link").c_str()), 0);
  const std::pair<std::string, CvelResult> cases[] = {
      {dir_.file("none"), kCvelErrNoSuchFile}, {dir_.file("empty"), kCvelOk},
      {dir_.file("full/f"), kCvelOk},          {dir_.file("link"), kCvelOk},  // the link, not its target
      {dir_.path(), kCvelErrMalformed},        {"", kCvelErrBadParameter}};
  for (const auto& [path, expected] : cases) {
    EXPECT_EQ(removePath(path.c_str()), expected) << path;
    EXPECT_EQ(exists(path), expected == kCvelErrMalformed) << path;
  }
}

TEST_F(CvelFileTest, OpenModes) {
  const std::string path = dir_.write("f", "abc");
  const struct {
    uint32_t mode, flags;
    const char *writes, *content;
  } cases[] = {{kCvelOpenWrite, 0, "x", "x"},      {kCvelOpenWrite, kCvelOpenAppend, "yz", "xyz"},
               {kCvelOpenReadWrite, 0, "A", "Ayz"}, {kCvelOpenReadWrite, kCvelOpenAppend, "B", "AyzB"},
               {kCvelOpenRead, 0, "C", "AyzB"}};
  for (const auto& c : cases) {
    CvelFile file;
    ASSERT_EQ(openFile(path.c_str(), c.mode, c.flags, file), kCvelOk);
    std::fputs(c.writes, file.stream());
    EXPECT_EQ(file.close(), kCvelOk);
    EXPECT_EQ(dir_.read("f"), c.content) << c.mode << "/" << c.flags;
  }
  CvelFile file;
  EXPECT_EQ(openFile(path.c_str(), 4, 0, file), kCvelErrBadParameter);
  EXPECT_EQ(openFile(dir_.file("none").c_str(), kCvelOpenReadWrite, 0, file), kCvelErrNoSuchFile);
  EXPECT_EQ(openFile(dir_.path().c_str(), kCvelOpenWrite, 0, file), kCvelErrMalformed);
}

TEST_F(CvelFileTest, TemporaryFiles) {
  std::string name;
  ASSERT_EQ(makeTempName(name), kCvelOk);
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
    std::fputs("data", file.stream());  // "rb+": read back through the same stream
    std::rewind(file.stream());
    EXPECT_EQ(std::fgetc(file.stream()), 'd');
  }
  EXPECT_FALSE(exists(kept));  // removed with the object

  CvelFile anonymous;
  ASSERT_EQ(createTempFile(anonymous, nullptr, true), kCvelOk);
  EXPECT_EQ(anonymous.path().rfind("/tmp/vel", 0), 0u);
  EXPECT_FALSE(exists(anonymous.path()));
  EXPECT_EQ(std::fputs("still usable", anonymous.stream()), 1);

  // At 1017 characters the name reaches mkstemp, which fails (its last part is too long for the file
  // system); at 1018 it is refused before the file system is touched.
  const std::string base = dir_.path() + "/";
  CvelFile tooLong;
  EXPECT_EQ(createTempFile(tooLong, (base + std::string(kCvelMaxTempPrefix - base.size(), 'p')).c_str(), false),
            kCvelErrMalformed);
  EXPECT_EQ(createTempFile(tooLong, (base + std::string(kCvelMaxTempPrefix + 1 - base.size(), 'p')).c_str(), false),
            kCvelErrTooLong);
}

}  // namespace
